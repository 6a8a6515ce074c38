#include "fake_reaper/fake_reaper.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/host_fixture.h"

namespace q = quillmere;

namespace {

using FakeHost = testing_support::HostTest;

TEST_F(FakeHost, NotesEveryBrokenRule) {
  // Per case: whether a take is given the source, how often the source is destroyed, how often
  // the screen refresh is released, and the first rule noted as broken.
  const std::tuple<bool, int, int, const char*> cases[] = {{false, 0, 0, "source leaked"},
                                                           {false, 2, 0, "destroyed twice"},
                                                           {true, 1, 0, "while a take owns it"},
                                                           {false, 1, 1, "released more often"}};
  for (const auto& [handed, destroys, releases, violation] : cases) {
    SCOPED_TRACE(violation);
    PCM_source* source = q::PCM_Source_CreateFromFile(tone("t.wav", 1.0).c_str());
    MediaItem_Take* take = q::AddTakeToMediaItem(
        q::AddMediaItemToTrack(reinterpret_cast<MediaTrack*>(&host().addTrack())));
    if (handed) q::GetSetMediaItemTakeInfo(take, "P_SOURCE", source);
    for (int i = 0; i < destroys; ++i) q::PCM_Source_Destroy(source);
    q::PreventUIRefresh(-releases);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, violation, host().checkSettled().at(0));
    host().reset();
  }
}

TEST_F(FakeHost, ReportsAToneLengthToTheFrame) {
  // 0.8 of a frame is written as one whole frame.
  PCM_source* source = q::PCM_Source_CreateFromFile(tone("t.wav", 0.0001, 8000).c_str());
  EXPECT_EQ(q::GetMediaSourceLength(source, nullptr), 0.000125);
  q::PCM_Source_Destroy(source);
}

}  // namespace
