#include "spot/spot_operation.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "host/host_api.h"
#include "platform/utf8_path.h"

namespace quillmere {
namespace {

const char kProjectMismatch[] =
    "REAPER 当前工程与 Quillmere 绑定工程不一致，请切换工程或重新拖入 .rpp";
const char kSourceMissing[] = "Quillmere source file is missing";
const char kNoSelectedTrack[] = "Select a REAPER track first";
const char kTrackUnavailable[] = "REAPER selected track is unavailable";
const char kCannotOpenSource[] = "REAPER cannot open the Quillmere audio file";
const char kInvalidDuration[] = "Quillmere audio duration is invalid";
const char kNoItem[] = "Cannot create a REAPER media item";
const char kNoTake[] = "Cannot create a REAPER media take";
const char kInvalidRange[] = "Quillmere visible handle range is invalid";
const char kItemRefused[] = "Cannot configure the REAPER media item";
const char kGainRefused[] = "Cannot configure the REAPER take gain";
const char kNameRefused[] = "Cannot name the REAPER media take";
const char kUnexpectedFailure[] = "Unexpected failure while placing the Quillmere audio";
const char kSpotted[] = "Spotted to selected REAPER track";
const char kUndoLabelPrefix[] = "Quillmere: Spot ";
const char kUndoLabelFailed[] = "Quillmere: Spot failed";

constexpr int kProjectNameBufferSize = 4096;
constexpr int kAllProjectState = -1;
// The bottom tenth of a decibel of the gain range is silence, not a barely audible factor.
constexpr double kSilenceAtOrBelowDb = -59.9;

// What the edit has opened so far, so that a failure undoes exactly that.
struct Edit {
  MediaTrack* track = nullptr;
  MediaItem* item = nullptr;
  PCM_source* ownedSource = nullptr;  // null once the take owns it
  bool undoOpen = false;
  bool refreshHeld = false;
};

bool currentProjectIs(const std::string& expectedPath) {
  std::vector<char> buffer(kProjectNameBufferSize, '\0');
  EnumProjects(-1, buffer.data(), kProjectNameBufferSize);
  const std::string current(buffer.begin(), std::find(buffer.begin(), buffer.end(), '\0'));
  if (current.empty()) return false;
  std::error_code error;
  const bool same =
      std::filesystem::equivalent(pathFromUtf8(current), pathFromUtf8(expectedPath), error);
  return !error && same;
}

std::int32_t trackNumber(double reported) {
  const double number = std::floor(reported);
  // Converting a value outside the integer's range would be undefined.
  if (!(number >= std::numeric_limits<std::int32_t>::min() &&
        number <= std::numeric_limits<std::int32_t>::max())) {
    return 0;
  }
  return static_cast<std::int32_t>(number);
}

double takeVolume(double gainDb) {
  return gainDb <= kSilenceAtOrBelowDb ? 0.0 : std::pow(10.0, gainDb / 20.0);
}

// Builds the item and its take; throws with the user message at the first refusal.
void buildItem(const SpotRequest& request, double sourceLength, SpotResult& result, Edit& edit) {
  Undo_BeginBlock2(nullptr);
  edit.undoOpen = true;
  PreventUIRefresh(1);
  edit.refreshHeld = true;

  edit.item = AddMediaItemToTrack(edit.track);
  if (edit.item == nullptr) throw std::runtime_error(kNoItem);
  MediaItem_Take* take = AddTakeToMediaItem(edit.item);
  if (take == nullptr) throw std::runtime_error(kNoTake);

  // Query, set, then destroy: the old source must be out of the take before it is freed.
  auto* previous = static_cast<PCM_source*>(GetSetMediaItemTakeInfo(take, "P_SOURCE", nullptr));
  GetSetMediaItemTakeInfo(take, "P_SOURCE", edit.ownedSource);
  edit.ownedSource = nullptr;
  if (previous != nullptr) PCM_Source_Destroy(previous);

  // Without handles the file holds exactly the chosen part, so the request's range is ignored.
  double startOffset = 0.0;
  double visibleLength = sourceLength;
  if (request.full_handles) {
    startOffset = std::clamp(request.source_offset_seconds, 0.0, sourceLength);
    const double available = std::max(0.0, sourceLength - startOffset);
    visibleLength = std::clamp(request.visible_length_seconds, 0.0, available);
  }
  if (!(visibleLength > 0.0)) throw std::runtime_error(kInvalidRange);

  if (!SetMediaItemInfo_Value(edit.item, "D_POSITION", result.position_seconds) ||
      !SetMediaItemInfo_Value(edit.item, "D_LENGTH", visibleLength / request.playback_rate) ||
      !SetMediaItemTakeInfo_Value(take, "D_STARTOFFS", startOffset) ||
      !SetMediaItemTakeInfo_Value(take, "D_PLAYRATE", request.playback_rate)) {
    throw std::runtime_error(kItemRefused);
  }
  if (!SetMediaItemTakeInfo_Value(take, "D_VOL", takeVolume(request.gain_db))) {
    throw std::runtime_error(kGainRefused);
  }
  // The host's string setter takes a writable buffer.
  std::vector<char> name(request.display_name.begin(), request.display_name.end());
  name.push_back('\0');
  if (!GetSetMediaItemTakeInfo_String(take, "P_NAME", name.data(), true)) {
    throw std::runtime_error(kNameRefused);
  }
  const std::string undoLabel = kUndoLabelPrefix + request.display_name;

  SetMediaItemSelected(edit.item, true);
  UpdateItemInProject(edit.item);
  MarkProjectDirty(nullptr);
  PreventUIRefresh(-1);
  edit.refreshHeld = false;
  Undo_EndBlock2(nullptr, undoLabel.c_str(), kAllProjectState);
  edit.undoOpen = false;
  UpdateArrange();

  result.message = kSpotted;
  result.ok = true;
}

void rollBack(const Edit& edit) {
  if (edit.refreshHeld) PreventUIRefresh(-1);
  // The item takes its take, and the source once handed over, with it.
  if (edit.item != nullptr) DeleteTrackMediaItem(edit.track, edit.item);
  if (edit.undoOpen) Undo_EndBlock2(nullptr, kUndoLabelFailed, kAllProjectState);
  UpdateArrange();
}

}  // namespace

SpotResult sourceMissingResult(const SpotRequest& request) {
  SpotResult result;
  result.output_path = request.source_path;
  result.message = kSourceMissing;
  return result;
}

SpotResult spot(const SpotRequest& request) {
  SpotResult result;
  result.output_path = request.source_path;

  if (!request.expected_project_path.empty() && !currentProjectIs(request.expected_project_path)) {
    result.message = kProjectMismatch;
    return result;
  }
  // The raising form on purpose: a missing file answers false, any other file-system error
  // leaves this function before the project is touched.
  if (!std::filesystem::is_regular_file(pathFromUtf8(request.source_path))) {
    return sourceMissingResult(request);
  }
  if (CountSelectedTracks(nullptr) < 1) {
    result.message = kNoSelectedTrack;
    return result;
  }
  MediaTrack* track = GetSelectedTrack(nullptr, 0);
  if (track == nullptr) {
    result.message = kTrackUnavailable;
    return result;
  }
  result.track_index = trackNumber(GetMediaTrackInfo_Value(track, "IP_TRACKNUMBER"));
  result.position_seconds = GetCursorPositionEx(nullptr);

  PCM_source* source = PCM_Source_CreateFromFile(request.source_path.c_str());
  if (source == nullptr) {
    result.message = kCannotOpenSource;
    return result;
  }
  bool inQuarterNotes = false;
  const double sourceLength = GetMediaSourceLength(source, &inQuarterNotes);
  if (inQuarterNotes || !std::isfinite(sourceLength) || !(sourceLength > 0.0)) {
    PCM_Source_Destroy(source);
    result.message = kInvalidDuration;
    return result;
  }

  Edit edit;
  edit.track = track;
  edit.ownedSource = source;
  try {
    buildItem(request, sourceLength, result, edit);
  } catch (const std::exception& error) {
    rollBack(edit);
    result.message = error.what();
  } catch (...) {
    rollBack(edit);
    result.message = kUnexpectedFailure;
  }
  if (edit.ownedSource != nullptr) PCM_Source_Destroy(edit.ownedSource);
  return result;
}

}  // namespace quillmere
