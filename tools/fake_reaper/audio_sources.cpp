#include "fake_reaper/audio_sources.h"

namespace fake_reaper {

PCM_source* AudioSources::create(std::string path, double seconds) {
  sources.push_back(std::make_unique<Source>(Source{std::move(path), seconds}));
  return reinterpret_cast<PCM_source*>(sources.back().get());
}

Source* AudioSources::find(const void* handle) const {
  for (const auto& source : sources) {
    if (source.get() == handle) return source.get();
  }
  return nullptr;
}

bool AudioSources::alive(const void* handle) const {
  return find(handle) != nullptr && destroyedSources.count(handle) == 0;
}

std::string AudioSources::nameOf(const void* handle) const {
  const Source* found = find(handle);
  return found == nullptr ? "?" : found->path;
}

}  // namespace fake_reaper
