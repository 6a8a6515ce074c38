#include "spot/spot_operation.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <tuple>

#include "support/host_fixture.h"

namespace fs = std::filesystem;
using fake_reaper::SourceLength;

namespace {

const char kMismatch[] = "REAPER 当前工程与 Quillmere 绑定工程不一致，请切换工程或重新拖入 .rpp";
const char kSpotted[] = "Spotted to selected REAPER track";
// The calls of a success after the project check: track 2, cursor 12.5, the whole two-second
// tone at rate 1 and 0 dB, named "Kick 01".
const std::string kSucceeded =
    "CountSelectedTracks\nGetSelectedTrack 0\nGetMediaTrackInfo_Value IP_TRACKNUMBER\n"
    "GetCursorPositionEx\nPCM_Source_CreateFromFile take.wav\nGetMediaSourceLength take.wav\n"
    "Undo_BeginBlock2\nPreventUIRefresh 1\nAddMediaItemToTrack track 2\nAddTakeToMediaItem\n"
    "GetSetMediaItemTakeInfo P_SOURCE query\nGetSetMediaItemTakeInfo P_SOURCE set\n"
    "SetMediaItemInfo_Value D_POSITION=12.5\nSetMediaItemInfo_Value D_LENGTH=2\n"
    "SetMediaItemTakeInfo_Value D_STARTOFFS=0\nSetMediaItemTakeInfo_Value D_PLAYRATE=1\n"
    "SetMediaItemTakeInfo_Value D_VOL=1\nGetSetMediaItemTakeInfo_String P_NAME=Kick 01\n"
    "SetMediaItemSelected true\nUpdateItemInProject\nMarkProjectDirty\nPreventUIRefresh -1\n"
    "Undo_EndBlock2 Quillmere: Spot Kick 01|-1\nUpdateArrange\n";

class Spot : public testing_support::HostTest {
 protected:
  // Tracks 2 and 3 selected, a selected item on track 3, the cursor at 12.5 s; a request for
  // `source`, named "Kick 01".
  void fresh(const char* source) {
    fs::current_path(home.path());
    tone("take.wav", 2.0);
    testing_support::writeAll("song.rpp", "x");
    host().reset();
    for (bool selected : {false, true}) host().addTrack(selected);
    host().addTrack(true).items.push_back(std::make_unique<fake_reaper::Item>());
    host().tracks[2]->items[0]->selected = true;
    host().cursor = 12.5;
    request.source_path = source;
    request.display_name = "Kick 01";
  }

  quillmere::SpotRequest request;
};

TEST_F(Spot, PlacesTheFileInTheOrderedStepsOrFailsWithAMessageAndRollsBack) {
  fs::create_symlink("song.rpp", home.path() / "link.rpp");
  fs::create_symlink("b.rpp", home.path() / "a.rpp");
  fs::create_symlink("a.rpp", home.path() / "b.rpp");
  const char* const item = "Cannot configure the REAPER media item";
  const std::string destroyed = "PCM_Source_Destroy take.wav\n";
  const std::string failed = "Undo_EndBlock2 Quillmere: Spot failed|-1\nUpdateArrange\n";
  const std::string rolledBack = "PreventUIRefresh -1\nDeleteTrackMediaItem track 2\n" + failed;
  const struct {
    const char* message;
    int steps;  // how many calls of a success come first
    const char* failing = "";
    std::string after = "";  // the calls that follow those
    SourceLength length = SourceLength::FromFile;
    // The host's project file ("" when never saved), the bound one, and the audio file.
    const char *current = "", *expected = "", *source = "take.wav";
  } cases[] = {
      {kSpotted, 24},
      {kSpotted, 24, "", "", SourceLength::FromFile, "song.rpp", "link.rpp"},
      {kSpotted, 24, "", "", SourceLength::FromFile, "link.rpp", "./song.rpp"},
      {kMismatch, 0, "", "", SourceLength::FromFile, "song.rpp", "take.wav"},  // another file
      {kMismatch, 0, "", "", SourceLength::FromFile, "song.rpp", "gone.rpp"},
      {kMismatch, 0, "", "", SourceLength::FromFile, "", "song.rpp"},
      {kMismatch, 0, "", "", SourceLength::FromFile, "song.rpp", "a.rpp"},  // a link loop
      {"Quillmere source file is missing", 0, "", "", SourceLength::FromFile, "", "", "gone.wav"},
      {"Quillmere source file is missing", 0, "", "", SourceLength::FromFile, "", "", "."},
      {"Select a REAPER track first", 1, "CountSelectedTracks"},
      {"REAPER selected track is unavailable", 2, "GetSelectedTrack"},
      {"REAPER cannot open the Quillmere audio file", 5, "PCM_Source_CreateFromFile"},
      {"Quillmere audio duration is invalid", 6, "", destroyed, SourceLength::QuarterNotes},
      {"Quillmere audio duration is invalid", 6, "", destroyed, SourceLength::NotANumber},
      {"Quillmere audio duration is invalid", 6, "", destroyed, SourceLength::Zero},
      {"Cannot create a REAPER media item", 9, "AddMediaItemToTrack",
       "PreventUIRefresh -1\n" + failed + destroyed},
      {"Cannot create a REAPER media take", 10, "AddTakeToMediaItem", rolledBack + destroyed},
      {item, 13, "SetMediaItemInfo_Value D_POSITION", rolledBack},
      {item, 14, "SetMediaItemInfo_Value D_LENGTH", rolledBack},
      {item, 15, "SetMediaItemTakeInfo_Value D_STARTOFFS", rolledBack},
      {item, 16, "SetMediaItemTakeInfo_Value D_PLAYRATE", rolledBack},
      {"Cannot configure the REAPER take gain", 17, "SetMediaItemTakeInfo_Value D_VOL", rolledBack},
      {"Cannot name the REAPER media take", 18, "GetSetMediaItemTakeInfo_String P_NAME",
       rolledBack},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.message) + " " + test.failing + " " + test.expected);
    fresh(test.source);
    host().failing = {test.failing};
    host().sourceLength = test.length;
    host().projectFile = test.current;
    request.expected_project_path = test.expected;
    const quillmere::SpotResult got = spot(request);
    // The track and the cursor are known from the fourth call on.
    EXPECT_EQ(std::tie(got.ok, got.message, got.track_index, got.position_seconds, got.output_path),
              std::make_tuple(test.message == kSpotted, std::string(test.message),
                              test.steps >= 4 ? 2 : 0, test.steps >= 4 ? 12.5 : 0.0,
                              std::string(test.source)));
    std::string calls, enumerated = *test.expected ? "EnumProjects -1 4096\n" : "";
    for (const std::string& call : host().trace()) calls += call + "\n";
    std::size_t end = 0;
    for (int step = 0; step < test.steps; ++step) end = kSucceeded.find('\n', end) + 1;
    EXPECT_EQ(calls, enumerated + kSucceeded.substr(0, end) + test.after);
    EXPECT_EQ(host().tracks[1]->items.size(), test.message == kSpotted ? 1u : 0u);
    EXPECT_TRUE(host().tracks[2]->items[0]->selected);
    expectSettled();
  }
}

TEST_F(Spot, PlacesTheRequestedRangeAtTheRequestedRateAndGain) {
  tone("ten.wav", 10.0);
  const struct {
    bool handles;
    // An item length of 0 expects the range to be refused.
    double offset, visible, rate, gainDb, startOffset, itemLength, volume;
  } cases[] = {
      {false, 3, 1, 0.5, -59.9, 0, 20, 0}, {true, 2, 5, 2, 12, 2, 2.5, 3.9810717055349722},
      {true, 8, 5, 1, -60, 8, 2, 0},       {false, 0, 0, 1, -59.89, 0, 10, 0.0010127},
      {true, 10, 1, 1, 0, 0, 0, 0},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::Message() << test.offset << "+" << test.visible << " " << test.gainDb);
    fresh("ten.wav");
    // Each new take comes holding a source, which must be freed once the new one is in.
    host().takesComeWithSource = true;
    std::tie(request.full_handles, request.source_offset_seconds, request.visible_length_seconds,
             request.playback_rate, request.gain_db) =
        std::tie(test.handles, test.offset, test.visible, test.rate, test.gainDb);
    EXPECT_EQ(spot(request).message,
              test.itemLength > 0 ? kSpotted : "Quillmere visible handle range is invalid");
    expectSettled();
    if (test.itemLength == 0) continue;
    const fake_reaper::Item& item = *host().tracks[1]->items.at(0);
    EXPECT_EQ(std::tie(item.length, item.takes.at(0)->startOffset, item.takes[0]->playRate),
              std::tie(test.itemLength, test.startOffset, test.rate));
    EXPECT_NEAR(item.takes[0]->volume, test.volume, 1e-7);
  }
}

}  // namespace
