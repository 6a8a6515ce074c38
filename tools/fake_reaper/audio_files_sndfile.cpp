// Audio files through libsndfile: any format it reads reports its true length.
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "fake_reaper/audio_sources.h"

namespace fake_reaper {

std::optional<double> audioFileSeconds(const std::string& path) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) return std::nullopt;
  sf_close(file);
  if (info.samplerate <= 0) return std::nullopt;
  return static_cast<double>(info.frames) / info.samplerate;
}

bool writeTestTone(const std::string& path, double seconds, int sampleRate) {
  if (!std::isfinite(seconds) || seconds < 0.0 || sampleRate <= 0) return false;
  const double exactFrames = std::round(seconds * sampleRate);
  if (exactFrames > std::numeric_limits<int>::max()) return false;
  const auto frames = static_cast<sf_count_t>(exactFrames);

  SF_INFO info{};
  info.samplerate = sampleRate;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) return false;

  const double pi = std::acos(-1.0);
  const double step = 2.0 * pi * 440.0 / sampleRate;
  std::vector<short> block(4096);
  bool written = true;
  for (sf_count_t done = 0; done < frames && written;) {
    const sf_count_t count = std::min<sf_count_t>(frames - done, block.size());
    for (sf_count_t i = 0; i < count; ++i) {
      block[i] = static_cast<short>(std::lround(16000.0 * std::sin(step * (done + i))));
    }
    written = sf_write_short(file, block.data(), count) == count;
    done += count;
  }
  return sf_close(file) == 0 && written;
}

}  // namespace fake_reaper
