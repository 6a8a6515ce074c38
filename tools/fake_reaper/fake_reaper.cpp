#include "fake_reaper/fake_reaper.h"

#include <algorithm>
#include <cmath>
#include <locale>
#include <sstream>

namespace fake_reaper {

Host::Host() {
  record.Register = &registerFacility;
  record.GetFunc = &getFunc;
}

Host& Host::instance() {
  static Host host;
  return host;
}

void Host::reset() {
  *this = Host();
}

int Host::liveSources() const {
  return static_cast<int>(std::count_if(sources.begin(), sources.end(), [&](const auto& source) {
    return destroyedSources.count(source.get()) == 0;
  }));
}

int Host::strayOwnedSources() const {
  return static_cast<int>(std::count_if(sources.begin(), sources.end(), [&](const auto& source) {
    const auto* handle = reinterpret_cast<const PCM_source*>(source.get());
    return destroyedSources.count(source.get()) == 0 && holderOf(handle) == nullptr;
  }));
}

const std::vector<std::string>& Host::checkSettled() {
  if (refreshHolds != 0) {
    violations.push_back("screen refresh not balanced: " + std::to_string(refreshHolds) +
                         " hold(s) outstanding");
  }
  if (openUndoBlocks != 0) {
    violations.push_back(std::to_string(openUndoBlocks) + " undo block(s) still open");
  }
  for (const auto& source : sources) {
    const auto* handle = reinterpret_cast<const PCM_source*>(source.get());
    if (destroyedSources.count(source.get()) == 0 && holderOf(handle) == nullptr) {
      violations.push_back("source leaked: alive, and no take holds it (" + source->path + ")");
    }
  }
  return violations;
}

std::string number(double value) {
  for (int precision : {15, 17}) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out.precision(precision);
    out << value;
    std::istringstream in(out.str());
    in.imbue(std::locale::classic());
    double back = 0.0;
    in >> back;
    if (precision == 17 || back == value || std::isnan(value)) return out.str();
  }
  return {};
}

std::string describeProject(const Host& host) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << "project file: " << (host.projectFile.empty() ? "(never saved)" : host.projectFile)
      << "\nmedia path: " << host.mediaPath << "\ncursor: " << number(host.cursor) << " s\n";
  out << "tracks: " << host.tracks.size() << "\n";
  for (const auto& track : host.tracks) {
    out << "  track " << track->number << (track->selected ? " (selected)" : "") << "\n";
  }
  const std::vector<Item*> items = host.allItems();
  out << "items: " << items.size() << "\n";
  for (const Item* item : items) {
    out << "  on track " << item->track->number << " at " << number(item->position) << " s, length "
        << number(item->length) << " s" << (item->selected ? ", selected" : "") << "\n";
    for (const auto& take : item->takes) {
      const Source* source = host.find(take->source);
      out << "    take \"" << take->name << "\": source "
          << (source == nullptr ? "(none)" : source->path) << ", start offset "
          << number(take->startOffset) << " s, rate " << number(take->playRate) << ", volume "
          << number(take->volume) << "\n";
    }
  }
  out << "undo history: " << host.undoHistory.size() << "\n";
  for (const UndoBlock& block : host.undoHistory) {
    out << "  " << block.label << " (flags " << block.flags << ")\n";
  }
  out << "refresh balance: " << host.refreshHolds << ", open undo blocks: " << host.openUndoBlocks
      << ", dirty: " << (host.dirty ? "yes" : "no") << ", arrange updates: " << host.arrangeUpdates
      << ", live sources: " << host.liveSources() << "\n";
  return out.str();
}

}  // namespace fake_reaper
