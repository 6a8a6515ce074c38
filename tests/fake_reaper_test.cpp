#include "fake_reaper/fake_reaper.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "extension/host_api.h"
#include "support/host_fixture.h"

namespace q = quillmere;

namespace {

// These tests break the host's rules on purpose, so the project is cleared before the fixture
// checks that it was left settled.
class FakeHost : public testing_support::HostTest {
 protected:
  void TearDown() override {
    host().reset();
    HostTest::TearDown();
  }

  PCM_source* openTone(double seconds = 1.0) {
    return q::PCM_Source_CreateFromFile(tone("tone.wav", seconds).c_str());
  }
  static MediaItem_Take* newTake() {
    MediaItem* item = q::AddMediaItemToTrack(q::GetSelectedTrack(nullptr, 0));
    return q::AddTakeToMediaItem(item);
  }
};

TEST_F(FakeHost, NotesEveryBrokenRule) {
  const struct {
    const char* name;
    std::function<void()> breakRule;
    const char* firstViolation;
  } cases[] = {
      {"refresh released more than held", [] { q::PreventUIRefresh(-1); },
       "released more often than held"},
      {"source leaked", [&] { openTone(); }, "source leaked"},
      {"source destroyed twice",
       [&] {
         PCM_source* source = openTone();
         q::PCM_Source_Destroy(source);
         q::PCM_Source_Destroy(source);
       },
       "destroyed twice"},
      {"source destroyed while a take owns it",
       [&] {
         PCM_source* source = openTone();
         q::GetSetMediaItemTakeInfo(newTake(), "P_SOURCE", source);
         q::PCM_Source_Destroy(source);
       },
       "while a take owns it"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    host().reset();
    host().addTrack(true);
    test.breakRule();
    const std::vector<std::string>& violations = host().checkSettled();
    ASSERT_FALSE(violations.empty());
    EXPECT_NE(violations.front().find(test.firstViolation), std::string::npos)
        << violations.front();
  }
}

TEST_F(FakeHost, SettingATakesSourceHandsTheOldOneBackToTheCaller) {
  host().addTrack(true);
  host().takesComeWithSource = true;
  MediaItem_Take* take = newTake();
  PCM_source* preloaded =
      static_cast<PCM_source*>(q::GetSetMediaItemTakeInfo(take, "P_SOURCE", nullptr));
  ASSERT_NE(preloaded, nullptr);
  EXPECT_EQ(host().strayOwnedSources(), 0);

  PCM_source* source = openTone();
  EXPECT_EQ(q::GetSetMediaItemTakeInfo(take, "P_SOURCE", source), preloaded);
  EXPECT_EQ(q::GetSetMediaItemTakeInfo(take, "P_SOURCE", nullptr), source);
  EXPECT_EQ(host().strayOwnedSources(), 1);
  q::PCM_Source_Destroy(preloaded);
  EXPECT_EQ(host().liveSources(), 1);
  EXPECT_TRUE(host().checkSettled().empty());
}

TEST_F(FakeHost, ReportsAToneLengthToTheFrame) {
  const struct {
    double seconds;
    int sampleRate;
    double reported;
  } cases[] = {
      {2.0, 48000, 2.0}, {0.5, 44100, 0.5}, {1.00001, 48000, 1.0}, {0.0001, 8000, 0.000125}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.seconds);
    const std::string path = tone("t.wav", test.seconds, test.sampleRate);
    PCM_source* source = q::PCM_Source_CreateFromFile(path.c_str());
    ASSERT_NE(source, nullptr);
    bool inQuarterNotes = true;
    EXPECT_EQ(q::GetMediaSourceLength(source, &inQuarterNotes), test.reported);
    EXPECT_FALSE(inQuarterNotes);
    q::PCM_Source_Destroy(source);
  }
  testing_support::writeAll(home.path() / "notes.wav", "not audio");
  EXPECT_EQ(q::PCM_Source_CreateFromFile((home.path() / "notes.wav").c_str()), nullptr);
  EXPECT_TRUE(host().checkSettled().empty());
}

}  // namespace
