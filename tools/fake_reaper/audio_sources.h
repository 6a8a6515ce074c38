// The stand-in's audio source objects, and the audio files they are made from.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

class PCM_source;

namespace fake_reaper {

struct Source {
  std::string path;
  double seconds = 0.0;  // the file's true length
};

struct AudioSources {
  // A destroyed source stays here until reset, so no address is reused and a second destroy is
  // noticed.
  std::vector<std::unique_ptr<Source>> sources;
  std::set<const void*> destroyedSources;

  PCM_source* create(std::string path, double seconds);
  Source* find(const void* handle) const;
  bool alive(const void* handle) const;
  std::string nameOf(const void* handle) const;  // its path, or "?"
};

// The length in seconds of the audio file at `path`, or nothing when it is no audio file.
std::optional<double> audioFileSeconds(const std::string& path);

// Writes a 16-bit mono sine tone WAV of exactly `seconds` (rounded to whole frames).
bool writeTestTone(const std::string& path, double seconds, int sampleRate = 48000);

}  // namespace fake_reaper
