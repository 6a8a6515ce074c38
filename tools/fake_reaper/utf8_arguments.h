// The program's command-line arguments as UTF-8 bytes on every platform.
#pragma once

#include <string>
#include <vector>

namespace fake_reaper {

std::vector<std::string> utf8Arguments(int argc, char** argv);

}  // namespace fake_reaper
