#include "spot/spot_operation.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/host_fixture.h"

namespace fs = std::filesystem;
using fake_reaper::SourceLength;
using quillmere::spot;
using quillmere::SpotRequest;
using quillmere::SpotResult;
using Trace = std::vector<std::string>;

namespace {

const char kMismatch[] =
    "REAPER \xe5\xbd\x93\xe5\x89\x8d\xe5\xb7\xa5\xe7\xa8\x8b\xe4\xb8\x8e Quillmere "
    "\xe7\xbb\x91\xe5\xae\x9a\xe5\xb7\xa5\xe7\xa8\x8b\xe4\xb8\x8d\xe4\xb8\x80\xe8\x87\xb4\xef\xbc"
    "\x8c\xe8\xaf\xb7\xe5\x88\x87\xe6\x8d\xa2\xe5\xb7\xa5\xe7\xa8\x8b\xe6\x88\x96\xe9\x87\x8d\xe6"
    "\x96\xb0\xe6\x8b\x96\xe5\x85\xa5 .rpp";

Trace join(std::initializer_list<Trace> parts) {
  Trace whole;
  for (const Trace& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

// The host calls a request makes, step by step, for track 2, cursor 12.5 and a two-second file
// placed whole at rate 1 and 0 dB as "Kick 01".
Trace checks(const std::string& source) {
  return {"CountSelectedTracks",
          "GetSelectedTrack 0",
          "GetMediaTrackInfo_Value IP_TRACKNUMBER",
          "GetCursorPositionEx",
          "PCM_Source_CreateFromFile " + source,
          "GetMediaSourceLength " + source};
}
const Trace kOpen = {"Undo_BeginBlock2", "PreventUIRefresh 1"};
const Trace kItemAndTake = {"AddMediaItemToTrack track 2", "AddTakeToMediaItem"};
const Trace kHandOver = {"GetSetMediaItemTakeInfo P_SOURCE query",
                         "GetSetMediaItemTakeInfo P_SOURCE set"};
const Trace kValues = {
    "SetMediaItemInfo_Value D_POSITION=12.5",   "SetMediaItemInfo_Value D_LENGTH=2",
    "SetMediaItemTakeInfo_Value D_STARTOFFS=0", "SetMediaItemTakeInfo_Value D_PLAYRATE=1",
    "SetMediaItemTakeInfo_Value D_VOL=1",       "GetSetMediaItemTakeInfo_String P_NAME=Kick 01"};
const Trace kCommit = {"SetMediaItemSelected true",
                       "UpdateItemInProject",
                       "MarkProjectDirty",
                       "PreventUIRefresh -1",
                       "Undo_EndBlock2 Quillmere: Spot Kick 01|-1",
                       "UpdateArrange"};
const Trace kRollBack = {"PreventUIRefresh -1", "Undo_EndBlock2 Quillmere: Spot failed|-1",
                         "UpdateArrange"};
const Trace kRollBackWithItem = {"PreventUIRefresh -1", "DeleteTrackMediaItem track 2",
                                 "Undo_EndBlock2 Quillmere: Spot failed|-1", "UpdateArrange"};

Trace firstValues(std::size_t count) {
  return Trace(kValues.begin(), kValues.begin() + count);
}

class Spot : public testing_support::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    source = tone("take.wav", 2.0);
    freshProject();
  }

  // Three tracks, the second selected, the cursor at 12.5 s; a request for the whole tone.
  void freshProject() {
    host().reset();
    for (int number = 1; number <= 3; ++number) host().addTrack(number == 2);
    host().cursor = 12.5;
    request = SpotRequest();
    request.source_path = source;
    request.display_name = "Kick 01";
  }

  fs::path makeFile(const std::string& name) const {
    testing_support::writeAll(home.path() / name, "x");
    return home.path() / name;
  }

  std::string source;
  SpotRequest request;
};

TEST_F(Spot, PlacesTheWholeFileAsOneUndoPointInTheOrderedSteps) {
  const std::string project = makeFile("song.rpp").string();
  const struct {
    const char* name;
    std::string boundProject;
    bool takesComeWithSource;
    Trace before;  // calls ahead of the checks
    Trace afterHandOver;
  } cases[] = {
      {"no project bound", "", false, {}, {}},
      {"bound project", project, false, {"EnumProjects -1 4096"}, {}},
      {"take that already holds a source", "", true, {}, {"PCM_Source_Destroy <preloaded>"}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    freshProject();
    host().projectFile = request.expected_project_path = test.boundProject;
    host().takesComeWithSource = test.takesComeWithSource;
    const SpotResult result = spot(request);
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.message, "Spotted to selected REAPER track");
    EXPECT_EQ(result.track_index, 2);
    EXPECT_EQ(result.position_seconds, 12.5);
    EXPECT_EQ(result.output_path, source);
    EXPECT_EQ(host().trace(), join({test.before, checks(source), kOpen, kItemAndTake, kHandOver,
                                    test.afterHandOver, kValues, kCommit}));

    ASSERT_EQ(host().allItems().size(), 1u);
    const fake_reaper::Item& item = *host().allItems()[0];
    EXPECT_EQ(item.track->number, 2);
    EXPECT_EQ(item.position, 12.5);
    EXPECT_EQ(item.length, 2.0);
    EXPECT_TRUE(item.selected);
    ASSERT_EQ(item.takes.size(), 1u);
    EXPECT_EQ(item.takes[0]->name, "Kick 01");
    ASSERT_NE(item.takes[0]->source, nullptr);
    EXPECT_EQ(reinterpret_cast<fake_reaper::Source*>(item.takes[0]->source)->path, source);
    ASSERT_EQ(host().undoHistory.size(), 1u);
    EXPECT_EQ(host().undoHistory[0].label, "Quillmere: Spot Kick 01");
    EXPECT_EQ(host().undoHistory[0].flags, -1);
    EXPECT_TRUE(host().dirty);
    EXPECT_EQ(host().arrangeUpdates, 1);
    EXPECT_EQ(host().liveSources(), 1);
    expectSettled();
  }
}

TEST_F(Spot, FailedChecksChangeNothingAndFreeTheSource) {
  const std::string notAudio = makeFile("notes.wav").string();
  const std::string missing = (home.path() / "gone.wav").string();
  Trace refused = checks(notAudio);
  refused.pop_back();
  const Trace invalid = join({checks(source), {"PCM_Source_Destroy " + source}});
  const char* const missingFile = "Quillmere source file is missing";
  const char* const invalidLength = "Quillmere audio duration is invalid";
  const SourceLength seconds = SourceLength::FromFile;
  const Trace unavailable = {"CountSelectedTracks", "GetSelectedTrack 0"};
  const struct {
    std::string sourcePath;
    bool trackSelected;
    const char* failing;
    SourceLength length;
    const char* message;
    int trackIndex;
    double position;
    Trace trace;
  } cases[] = {
      {missing, true, "", seconds, missingFile, 0, 0, {}},
      {home.path().string(), true, "", seconds, missingFile, 0, 0, {}},
      {source, false, "", seconds, "Select a REAPER track first", 0, 0, {"CountSelectedTracks"}},
      {source, true, "GetSelectedTrack", seconds, "REAPER selected track is unavailable", 0, 0,
       unavailable},
      {notAudio, true, "", seconds, "REAPER cannot open the Quillmere audio file", 2, 12.5,
       refused},
      {source, true, "", SourceLength::QuarterNotes, invalidLength, 2, 12.5, invalid},
      {source, true, "", SourceLength::NotANumber, invalidLength, 2, 12.5, invalid},
      {source, true, "", SourceLength::Zero, invalidLength, 2, 12.5, invalid},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.message);
    freshProject();
    request.source_path = test.sourcePath;
    host().trackByNumber(2)->selected = test.trackSelected;
    if (*test.failing != '\0') host().failing = {test.failing};
    host().sourceLength = test.length;
    const SpotResult result = spot(request);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.message, test.message);
    EXPECT_EQ(result.track_index, test.trackIndex);
    EXPECT_EQ(result.position_seconds, test.position);
    EXPECT_EQ(result.output_path, test.sourcePath);
    EXPECT_EQ(host().trace(), test.trace);
    EXPECT_TRUE(host().allItems().empty());
    EXPECT_TRUE(host().undoHistory.empty());
    EXPECT_EQ(host().arrangeUpdates, 0);
    EXPECT_EQ(host().liveSources(), 0);
    expectSettled();
  }
}

TEST_F(Spot, RollsBackAFailureAtEveryStepOfTheEdit) {
  const struct {
    const char* failing;  // empty: no host call fails
    bool fullHandles;
    double offset;
    double visible;
    const char* message;
    Trace steps;  // after the undo block and the refresh hold
  } cases[] = {
      {"AddMediaItemToTrack", false, 0, 0, "Cannot create a REAPER media item",
       join({{"AddMediaItemToTrack track 2"}, kRollBack, {"PCM_Source_Destroy " + source}})},
      {"AddTakeToMediaItem", false, 0, 0, "Cannot create a REAPER media take",
       join({kItemAndTake, kRollBackWithItem, {"PCM_Source_Destroy " + source}})},
      {"", true, 2, 1, "Quillmere visible handle range is invalid",
       join({kItemAndTake, kHandOver, kRollBackWithItem})},
      {"", true, 0.5, 0, "Quillmere visible handle range is invalid",
       join({kItemAndTake, kHandOver, kRollBackWithItem})},
      {"SetMediaItemInfo_Value D_POSITION", false, 0, 0, "Cannot configure the REAPER media item",
       join({kItemAndTake, kHandOver, firstValues(1), kRollBackWithItem})},
      {"SetMediaItemInfo_Value D_LENGTH", false, 0, 0, "Cannot configure the REAPER media item",
       join({kItemAndTake, kHandOver, firstValues(2), kRollBackWithItem})},
      {"SetMediaItemTakeInfo_Value D_STARTOFFS", false, 0, 0,
       "Cannot configure the REAPER media item",
       join({kItemAndTake, kHandOver, firstValues(3), kRollBackWithItem})},
      {"SetMediaItemTakeInfo_Value D_PLAYRATE", false, 0, 0,
       "Cannot configure the REAPER media item",
       join({kItemAndTake, kHandOver, firstValues(4), kRollBackWithItem})},
      {"SetMediaItemTakeInfo_Value D_VOL", false, 0, 0, "Cannot configure the REAPER take gain",
       join({kItemAndTake, kHandOver, firstValues(5), kRollBackWithItem})},
      {"GetSetMediaItemTakeInfo_String P_NAME", false, 0, 0, "Cannot name the REAPER media take",
       join({kItemAndTake, kHandOver, firstValues(6), kRollBackWithItem})},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.failing) + " " + test.message);
    freshProject();
    if (*test.failing != '\0') host().failing = {test.failing};
    request.full_handles = test.fullHandles;
    request.source_offset_seconds = test.offset;
    request.visible_length_seconds = test.visible;
    const SpotResult result = spot(request);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.message, test.message);
    EXPECT_EQ(result.track_index, 2);
    EXPECT_EQ(result.position_seconds, 12.5);
    EXPECT_EQ(result.output_path, source);
    EXPECT_EQ(host().trace(), join({checks(source), kOpen, test.steps}));
    EXPECT_TRUE(host().allItems().empty());
    EXPECT_EQ(host().refreshHolds, 0);
    ASSERT_EQ(host().undoHistory.size(), 1u);
    EXPECT_EQ(host().undoHistory[0].label, "Quillmere: Spot failed");
    EXPECT_EQ(host().undoHistory[0].flags, -1);
    EXPECT_FALSE(host().dirty);
    EXPECT_EQ(host().liveSources(), 0);
    expectSettled();
  }
}

TEST_F(Spot, MatchesTheProjectByFileIdentityNotByName) {
  const fs::path song = makeFile("song.rpp");
  const fs::path other = makeFile("other.rpp");
  fs::create_directories(home.path() / "sub");
  fs::create_symlink(song, home.path() / "link.rpp");
  fs::create_hard_link(song, home.path() / "hard.rpp");
  fs::create_symlink(home.path() / "b.rpp", home.path() / "a.rpp");
  fs::create_symlink(home.path() / "a.rpp", home.path() / "b.rpp");
  const fs::path gone = home.path() / "gone.rpp";
  const struct {
    const char* name;
    std::string current;   // the host's project file; empty: never saved
    std::string expected;  // empty: no project bound
    bool accepted;
  } cases[] = {
      {"the same path", song.string(), song.string(), true},
      {"expected through a symbolic link", song.string(), (home.path() / "link.rpp").string(),
       true},
      {"current through a symbolic link", (home.path() / "link.rpp").string(), song.string(), true},
      {"another path to the same file", song.string(), (home.path() / "sub/../song.rpp").string(),
       true},
      {"a hard link", song.string(), (home.path() / "hard.rpp").string(), true},
      {"unsaved, nothing expected", "", "", true},
      {"another file", song.string(), other.string(), false},
      {"expected file deleted", song.string(), gone.string(), false},
      {"current file deleted", gone.string(), song.string(), false},
      {"unsaved, one expected", "", song.string(), false},
      {"expected path loops", song.string(), (home.path() / "a.rpp").string(), false},
      {"expected name too long", song.string(), (home.path() / std::string(300, 'n')).string(),
       false},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    freshProject();
    host().projectFile = test.current;
    request.expected_project_path = test.expected;
    const SpotResult result = spot(request);
    EXPECT_EQ(result.ok, test.accepted);
    EXPECT_EQ(result.message, test.accepted ? "Spotted to selected REAPER track" : kMismatch);
    EXPECT_EQ(result.track_index, test.accepted ? 2 : 0);
    EXPECT_EQ(!host().calls.empty() && host().calls[0].name == "EnumProjects",
              !test.expected.empty());
    EXPECT_EQ(result.output_path, source);
    expectSettled();
  }
}

TEST_F(Spot, LetsAFileSystemErrorOfTheSourceCheckPassOutBeforeTouchingTheProject) {
  fs::create_symlink(home.path() / "b.wav", home.path() / "a.wav");
  fs::create_symlink(home.path() / "a.wav", home.path() / "b.wav");
  for (const fs::path& path : {home.path() / "a.wav", home.path() / std::string(300, 'w')}) {
    SCOPED_TRACE(path.string());
    freshProject();
    request.source_path = path.string();
    EXPECT_THROW(spot(request), fs::filesystem_error);
    EXPECT_TRUE(host().calls.empty());
  }
}

TEST_F(Spot, PlacesTheRequestedRangeAtTheRequestedRateAndGain) {
  const std::string tenSeconds = tone("ten.wav", 10.0);
  const struct {
    const char* name;
    bool fullHandles;
    double offset, visible, rate, gainDb;
    double startOffset, itemLength, volume, tolerance;
  } cases[] = {
      {"whole file at half speed", false, 3, 1, 0.5, 0, 0, 20, 1, 0},
      {"handles at double speed", true, 2, 5, 2, -6, 2, 2.5, 0.5011872336272722, 1e-15},
      {"visible length cut to what remains", true, 8, 5, 1, 12, 8, 2, 3.9810717055349722, 1e-15},
      {"bottom of the gain range", false, 0, 0, 1, -60, 0, 10, 0, 0},
      {"silence threshold", false, 0, 0, 1, -59.9, 0, 10, 0, 0},
      {"just above the silence threshold", false, 0, 0, 1, -59.89, 0, 10, 0.0010127, 5e-8},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    freshProject();
    request.source_path = tenSeconds;
    request.full_handles = test.fullHandles;
    request.source_offset_seconds = test.offset;
    request.visible_length_seconds = test.visible;
    request.playback_rate = test.rate;
    request.gain_db = test.gainDb;
    ASSERT_TRUE(spot(request).ok);
    const fake_reaper::Item& item = *host().allItems().at(0);
    EXPECT_EQ(item.length, test.itemLength);
    EXPECT_EQ(item.takes.at(0)->startOffset, test.startOffset);
    EXPECT_EQ(item.takes.at(0)->playRate, test.rate);
    EXPECT_NEAR(item.takes.at(0)->volume, test.volume, test.tolerance);
    expectSettled();
  }
}

TEST_F(Spot, UsesTheFirstSelectedTrackAndKeepsOtherItemsSelected) {
  host().trackByNumber(1)->selected = true;
  host().trackByNumber(3)->selected = true;
  fake_reaper::Track& third = *host().trackByNumber(3);
  third.items.push_back(std::make_unique<fake_reaper::Item>());
  third.items.back()->track = &third;
  third.items.back()->selected = true;

  const SpotResult result = spot(request);
  ASSERT_TRUE(result.ok);
  EXPECT_EQ(result.track_index, 1);
  ASSERT_EQ(host().trackByNumber(1)->items.size(), 1u);
  EXPECT_TRUE(host().trackByNumber(1)->items[0]->selected);
  EXPECT_TRUE(host().trackByNumber(2)->items.empty());
  ASSERT_EQ(third.items.size(), 1u);
  EXPECT_TRUE(third.items[0]->selected);
}

}  // namespace
