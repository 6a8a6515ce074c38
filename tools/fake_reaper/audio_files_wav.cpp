// Audio files as plain RIFF/WAVE, where libsndfile is not at hand (Windows builds): the length of
// any PCM or floating-point WAVE file, and 16-bit mono tones.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <vector>

#include "fake_reaper/audio_sources.h"

namespace fake_reaper {

namespace {

constexpr std::uint16_t kPcm = 1;
constexpr std::uint16_t kFloat = 3;
constexpr std::uint16_t kExtensible = 0xFFFE;

// The caller's UTF-8 path; nothing when the bytes are not UTF-8.
std::optional<std::filesystem::path> pathOf(const std::string& utf8) {
  try {
    return std::filesystem::u8path(utf8);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::uint32_t littleEndian(const unsigned char* bytes, int size) {
  std::uint32_t value = 0;
  for (int i = size - 1; i >= 0; --i) value = (value << 8) | bytes[i];
  return value;
}

void putLittleEndian(std::vector<char>& out, std::uint32_t value, int size) {
  for (int i = 0; i < size; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

void putTag(std::vector<char>& out, const char* tag) {
  out.insert(out.end(), tag, tag + 4);
}

}  // namespace

std::optional<double> audioFileSeconds(const std::string& path) {
  const std::optional<std::filesystem::path> file = pathOf(path);
  if (!file) return std::nullopt;
  std::ifstream in(*file, std::ios::binary);
  std::array<unsigned char, 12> riff{};
  if (!in.read(reinterpret_cast<char*>(riff.data()), riff.size()) ||
      std::string(riff.begin(), riff.begin() + 4) != "RIFF" ||
      std::string(riff.begin() + 8, riff.end()) != "WAVE") {
    return std::nullopt;
  }
  std::uint32_t sampleRate = 0;
  std::uint32_t blockAlign = 0;
  std::optional<std::uint64_t> dataBytes;
  std::array<unsigned char, 8> header{};
  while ((sampleRate == 0 || !dataBytes) &&
         in.read(reinterpret_cast<char*>(header.data()), header.size())) {
    const std::string tag(header.begin(), header.begin() + 4);
    const std::uint32_t size = littleEndian(header.data() + 4, 4);
    const auto start = static_cast<std::streamoff>(in.tellg());
    if (tag == "fmt ") {
      std::array<unsigned char, 16> format{};
      if (size < format.size() || !in.read(reinterpret_cast<char*>(format.data()), format.size()))
        return std::nullopt;
      const std::uint32_t encoding = littleEndian(format.data(), 2);
      if (encoding != kPcm && encoding != kFloat && encoding != kExtensible) return std::nullopt;
      sampleRate = littleEndian(format.data() + 4, 4);
      blockAlign = littleEndian(format.data() + 12, 2);
      if (littleEndian(format.data() + 2, 2) == 0 || sampleRate == 0 || blockAlign == 0)
        return std::nullopt;
    } else if (tag == "data") {
      // A data chunk that claims more than the file holds counts what is there.
      in.seekg(0, std::ios::end);
      dataBytes = std::min<std::uint64_t>(
          size, static_cast<std::uint64_t>(static_cast<std::streamoff>(in.tellg()) - start));
    }
    // Chunks are padded to an even size.
    in.seekg(start + static_cast<std::streamoff>(size) + (size & 1));
  }
  if (sampleRate == 0 || !dataBytes) return std::nullopt;
  return static_cast<double>(*dataBytes / blockAlign) / sampleRate;
}

bool writeTestTone(const std::string& path, double seconds, int sampleRate) {
  if (!std::isfinite(seconds) || seconds < 0.0 || sampleRate <= 0) return false;
  const double exactFrames = std::round(seconds * sampleRate);
  if (exactFrames > std::numeric_limits<int>::max()) return false;
  const auto frames = static_cast<std::uint64_t>(exactFrames);
  constexpr std::uint32_t kHeaderBytes = 36;  // of the RIFF size: "WAVE", fmt and data headers
  if (kHeaderBytes + frames * 2 > std::numeric_limits<std::uint32_t>::max()) return false;
  const auto dataBytes = static_cast<std::uint32_t>(frames * 2);
  const auto rate = static_cast<std::uint32_t>(sampleRate);

  std::vector<char> out;
  putTag(out, "RIFF");
  putLittleEndian(out, kHeaderBytes + dataBytes, 4);
  putTag(out, "WAVE");
  putTag(out, "fmt ");
  putLittleEndian(out, 16, 4);
  putLittleEndian(out, kPcm, 2);
  putLittleEndian(out, 1, 2);  // mono
  putLittleEndian(out, rate, 4);
  putLittleEndian(out, rate * 2, 4);  // bytes per second
  putLittleEndian(out, 2, 2);         // bytes per frame
  putLittleEndian(out, 16, 2);        // bits per sample
  putTag(out, "data");
  putLittleEndian(out, dataBytes, 4);

  const std::optional<std::filesystem::path> file = pathOf(path);
  if (!file) return false;
  std::ofstream stream(*file, std::ios::binary | std::ios::trunc);
  const double pi = std::acos(-1.0);
  const double step = 2.0 * pi * 440.0 / sampleRate;
  for (std::uint64_t done = 0; done < frames && stream;) {
    for (; done < frames && out.size() < 65536; ++done) {
      const long sample = std::lround(16000.0 * std::sin(step * static_cast<double>(done)));
      putLittleEndian(out, static_cast<std::uint16_t>(static_cast<std::int16_t>(sample)), 2);
    }
    stream.write(out.data(), static_cast<std::streamsize>(out.size()));
    out.clear();
  }
  stream.write(out.data(), static_cast<std::streamsize>(out.size()));
  stream.close();
  return !stream.fail();
}

}  // namespace fake_reaper
