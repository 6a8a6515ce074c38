#include "fake_reaper/fake_reaper.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/utf8_path.h"
#include "support/host_fixture.h"

using FakeHost = testing_support::HostTest;
using testing::HasSubstr;

TEST_F(FakeHost, NotesEveryBrokenRuleInTheOrderBroken) {
  PCM_source* twice = quillmere::PCM_Source_CreateFromFile(tone("t.wav", 1.0).c_str());
  for (int i = 0; i < 2; ++i) quillmere::PCM_Source_Destroy(twice);
  quillmere::PCM_Source_CreateFromFile(tone("leaked.wav", 1.0).c_str());
  quillmere::PreventUIRefresh(-1);
  EXPECT_THAT(host().checkSettled(),
              testing::ElementsAre(HasSubstr("destroyed twice"), HasSubstr("more often than held"),
                                   HasSubstr("not balanced"), HasSubstr("leaked.wav")));
  host().reset();
}

namespace {

// A stereo 16-bit 1000 Hz file of `frames` frames, behind an odd-sized chunk that is padded.
std::string handMadeWave(std::uint32_t frames) {
  const auto le = [](std::uint32_t value, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) bytes += static_cast<char>((value >> (8 * i)) & 0xFF);
    return bytes;
  };
  const std::string body = "WAVE" + std::string("LIST") + le(3, 4) + "abc" + '\0' + "fmt " +
                           le(16, 4) + le(1, 2) + le(2, 2) + le(1000, 4) + le(4000, 4) + le(4, 2) +
                           le(16, 2) + "data" + le(frames * 4, 4) + std::string(frames * 4, '\0');
  return "RIFF" + le(static_cast<std::uint32_t>(body.size()), 4) + body;
}

}  // namespace

TEST_F(FakeHost, ReadsTheLengthOfWaveFilesItWroteOrWasGivenAndOfNothingElse) {
  const std::pair<std::string, std::optional<double>> files[] = {
      {handMadeWave(1500), 1.5},
      {handMadeWave(0), 0.0},
      {std::string("RIFF\x04\0\0\0WAVE", 12), std::nullopt},  // no chunks
      {"not audio at all, just some text that is long enough to be looked at", std::nullopt},
  };
  for (const auto& [bytes, seconds] : files) {
    SCOPED_TRACE(bytes.substr(0, 12));
    testing_support::writeAll(home.path() / "given.wav", bytes);
    EXPECT_EQ(fake_reaper::audioFileSeconds(quillmere::utf8FromPath(home.path() / "given.wav")),
              seconds);
  }
  EXPECT_EQ(fake_reaper::audioFileSeconds(quillmere::utf8FromPath(home.path() / "none.wav")),
            std::nullopt);
}
