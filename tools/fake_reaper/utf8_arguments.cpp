#include "fake_reaper/utf8_arguments.h"

#if defined(_WIN32)
#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <exception>
#include <filesystem>
#endif

namespace fake_reaper {

#if defined(_WIN32)

// argv holds the arguments in the ANSI code page, which cannot hold every letter; the wide
// command line holds them all.
std::vector<std::string> utf8Arguments(int argc, char** argv) {
  int count = 0;
  LPWSTR* wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (wide == nullptr || count != argc) {
    if (wide != nullptr) LocalFree(wide);
    return std::vector<std::string>(argv, argv + argc);
  }
  std::vector<std::string> arguments;
  for (int i = 0; i < count; ++i) {
    try {
      arguments.push_back(std::filesystem::path(wide[i]).u8string());
    } catch (const std::exception&) {
      arguments.push_back(argv[i]);
    }
  }
  LocalFree(wide);
  return arguments;
}

#else

std::vector<std::string> utf8Arguments(int argc, char** argv) {
  return std::vector<std::string>(argv, argv + argc);
}

#endif

}  // namespace fake_reaper
