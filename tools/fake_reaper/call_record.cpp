#include "fake_reaper/call_record.h"

namespace fake_reaper {

std::vector<std::string> CallRecord::callNames() const {
  std::vector<std::string> names;
  for (const Call& call : calls) names.push_back(call.name);
  return names;
}

std::vector<std::string> CallRecord::trace() const {
  std::vector<std::string> lines;
  for (const Call& call : calls)
    lines.push_back(call.args.empty() ? call.name : call.name + " " + call.args);
  return lines;
}

bool Faults::fails(const std::string& name, const char* parmname) const {
  if (failing.count(name) != 0) return true;
  return parmname != nullptr && failing.count(name + " " + parmname) != 0;
}

}  // namespace fake_reaper
