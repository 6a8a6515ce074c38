#include "fake_reaper/project.h"

namespace fake_reaper {

Track& Project::addTrack(bool selected) {
  tracks.push_back(std::make_unique<Track>());
  tracks.back()->number = static_cast<int>(tracks.size());
  tracks.back()->selected = selected;
  return *tracks.back();
}

Track* Project::trackByNumber(int number) {
  for (const auto& track : tracks) {
    if (track->number == number) return track.get();
  }
  return nullptr;
}

std::vector<Item*> Project::allItems() const {
  std::vector<Item*> items;
  for (const auto& track : tracks) {
    for (const auto& item : track->items) items.push_back(item.get());
  }
  return items;
}

Take* Project::holderOf(const PCM_source* source) const {
  for (Item* item : allItems()) {
    for (const auto& take : item->takes) {
      if (take->source == source) return take.get();
    }
  }
  return nullptr;
}

}  // namespace fake_reaper
