#include "spot/spot_operation.h"

#include <gtest/gtest.h>

#include <tuple>

#include "platform/utf8_path.h"
#include "support/host_fixture.h"

using fake_reaper::SourceLength;

namespace {

const char kMismatch[] = "REAPER 当前工程与 Quillmere 绑定工程不一致，请切换工程或重新拖入 .rpp";
const char kSpotted[] = "Spotted to selected REAPER track";
const char kProject[] = "Prøjekt 音.rpp";
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

struct Spot : testing_support::HostTest {
  // Tracks 2 and 3 selected, the cursor at 12.5 s.
  void fresh() {
    expectSettled();
    host().reset();
    for (bool selected : {false, true, true}) host().addTrack(selected);
    host().cursor = 12.5;
  }
};

TEST_F(Spot, PlacesTheFileInOrderedStepsAtTheRequestedRangeOrFailsWithAMessageAndRollsBack) {
  std::filesystem::current_path(home.path());
  tone("take.wav", 2.0);
  // Named through the standard conversion, so that the seam under test cannot name it alike.
  testing_support::writeAll(std::filesystem::u8path(kProject), "");
  const bool links = testing_support::makeSymlink("take.wav", "link.rpp") &&
                     testing_support::makeSymlink("loop.rpp", "loop.rpp");
  const char* const item = "Cannot configure the REAPER media item";
  const std::string destroyed = "PCM_Source_Destroy take.wav\n";
  const std::string failed = "Undo_EndBlock2 Quillmere: Spot failed|-1\nUpdateArrange\n";
  const std::string undone = "PreventUIRefresh -1\nDeleteTrackMediaItem track 2\n" + failed;
  const struct {
    int steps;  // how many calls of a success come first
    const char *message, *failing = "";
    std::string after = "";  // the calls that follow those
    SourceLength length = SourceLength::FromFile;
    // The host's project file ("" when never saved), the bound one, and the audio file.
    const char *current = "", *expected = "", *source = "take.wav";
  } cases[] = {
      {24, kSpotted, "", "", SourceLength::FromFile, "link.rpp", "./take.wav"},
      {24, kSpotted, "", "", SourceLength::FromFile, kProject, "./Prøjekt 音.rpp"},
      {0, kMismatch, "", "", SourceLength::FromFile, "take.wav", "."},  // another path
      {0, kMismatch, "", "", SourceLength::FromFile, "", "take.wav"},
      {0, kMismatch, "", "", SourceLength::FromFile, "take.wav", "loop.rpp"},  // a link loop
      {0, "Quillmere source file is missing", "", "", SourceLength::FromFile, "", "", "."},
      {1, "Select a REAPER track first", "CountSelectedTracks"},
      {2, "REAPER selected track is unavailable", "GetSelectedTrack"},
      {5, "REAPER cannot open the Quillmere audio file", "PCM_Source_CreateFromFile"},
      {6, "Quillmere audio duration is invalid", "", destroyed, SourceLength::QuarterNotes},
      {6, "Quillmere audio duration is invalid", "", destroyed, SourceLength::NotANumber},
      {6, "Quillmere audio duration is invalid", "", destroyed, SourceLength::Zero},
      {9, "Cannot create a REAPER media item", "AddMediaItemToTrack",
       "PreventUIRefresh -1\n" + failed + destroyed},
      {10, "Cannot create a REAPER media take", "AddTakeToMediaItem", undone + destroyed},
      {13, item, "SetMediaItemInfo_Value D_POSITION", undone},
      {14, item, "SetMediaItemInfo_Value D_LENGTH", undone},
      {15, item, "SetMediaItemTakeInfo_Value D_STARTOFFS", undone},
      {16, item, "SetMediaItemTakeInfo_Value D_PLAYRATE", undone},
      {17, "Cannot configure the REAPER take gain", "SetMediaItemTakeInfo_Value D_VOL", undone},
      {18, "Cannot name the REAPER media take", "GetSetMediaItemTakeInfo_String P_NAME", undone},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::Message() << test.message << " " << test.failing << " " << test.expected);
    const std::string current = test.current, expected = test.expected;
    if (!links && (current == "link.rpp" || expected == "loop.rpp")) continue;  // needs links
    fresh();
    host().failing = {test.failing};
    std::tie(host().sourceLength, host().projectFile) = std::tie(test.length, test.current);
    const auto got = quillmere::spot({0, "", 0, test.source, test.expected, "Kick 01"});
    // The track and the cursor are known from the fourth call on.
    EXPECT_EQ(std::tie(got.ok, got.message, got.track_index, got.position_seconds, got.output_path),
              std::make_tuple(test.message == kSpotted, test.message, test.steps < 4 ? 0 : 2,
                              test.steps < 4 ? 0 : 12.5, test.source));
    std::string calls, want = *test.expected ? "EnumProjects -1 4096\n" : "";
    for (const std::string& call : host().trace()) calls += call + "\n";
    std::size_t end = 0;
    for (int step = 0; step < test.steps; ++step) end = kSucceeded.find('\n', end) + 1;
    EXPECT_EQ(calls, want + kSucceeded.substr(0, end) + test.after);
    EXPECT_EQ(host().tracks[1]->items.size(), test.message == kSpotted ? 1u : 0u);
  }
  // Handles, offset, visible length, rate, dB; then the take's offset, the item's length (0 for
  // a refused range) and the take's volume.
  const std::tuple<bool, double, double, double, double, double, double, double> ranges[] = {
      {false, 3, 1, 0.5, -59.9, 0, 20, 0},
      {true, 2, 5, 2, 12, 2, 2.5, 3.9810717055349722},
      {true, 8, 5, 1, -59.89, 8, 2, 0.0010127},
      {true, 10, 1, 1, 0, 0, 0, 0},
  };
  for (const auto& [handles, offset, visible, rate, gainDb, startOffset, length, volume] : ranges) {
    SCOPED_TRACE(testing::Message() << offset << "+" << visible << " " << gainDb);
    fresh();
    // Each new take comes holding a source, which must be freed once the new one is in.
    host().takesComeWithSource = true;
    const quillmere::SpotResult got = quillmere::spot(
        {0, "", 0, tone("ten.wav", 10.0), "", "Kick 01", gainDb, rate, handles, offset, visible});
    EXPECT_EQ(got.message, length > 0 ? kSpotted : "Quillmere visible handle range is invalid");
    if (length == 0) continue;
    const fake_reaper::Item& item = *host().tracks[1]->items.at(0);
    EXPECT_EQ(std::tie(item.length, item.takes.at(0)->startOffset, item.takes[0]->playRate),
              std::tie(length, startOffset, rate));
    EXPECT_NEAR(item.takes[0]->volume, volume, 1e-7);
  }
}

TEST_F(Spot, TakesAProjectNameThatFillsTheWholeBufferWithoutATerminatorToItsLastByte) {
  // 4095 bytes naming the project (the longest path the system opens); one byte more fills the
  // host's buffer to its last byte and names nothing.
  tone("project.rpp", 1.0);
  std::string project = home.path().string() + "/";
  while (project.size() < 4095 - std::string("project.rpp").size()) project += "/";
  project += "project.rpp";
  ASSERT_EQ(project.size(), 4095u);
  for (const auto& [reported, message] :
       {std::pair{project, kSpotted}, std::pair{project + "x", kMismatch}}) {
    SCOPED_TRACE(reported.size());
    fresh();
    host().unterminatedStrings = true;
    host().projectFile = reported;
    EXPECT_EQ(quillmere::spot({0, "", 0, tone("take.wav", 1.0), project, "Kick 01"}).message,
              message);
    EXPECT_EQ(host().trace().at(0), "EnumProjects -1 4096");
  }
}

}  // namespace
