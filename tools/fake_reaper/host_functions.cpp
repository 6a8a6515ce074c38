// The 23 host functions, the registration callback and the lookup, served over Host::instance().
#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <thread>

#include "fake_reaper/fake_reaper.h"

namespace fake_reaper {
namespace {

// The handle of the one project; only its address matters.
char projectTag;

Host& host() {
  return Host::instance();
}

template <typename Handle, typename Record>
Handle* handleOf(Record* record) {
  return reinterpret_cast<Handle*>(record);
}

void noteCall(const char* name, std::string args = {}) {
  host().calls.push_back({name, std::move(args)});
  if (host().callDuration.count() > 0) std::this_thread::sleep_for(host().callDuration);
}

void violate(const std::string& what) {
  host().violations.push_back(what);
}

bool fails(const std::string& name, const char* parmname = nullptr) {
  if (host().raising.count(name) != 0) throw std::runtime_error(name + " raised");
  return host().fails(name, parmname);
}

void checkProject(ReaProject* proj, const char* name) {
  if (proj != nullptr && proj != handleOf<ReaProject>(&projectTag)) {
    violate(std::string(name) + ": a project handle the host never gave");
  }
}

Track* findTrack(MediaTrack* handle) {
  for (const auto& track : host().tracks) {
    if (handleOf<MediaTrack>(track.get()) == handle) return track.get();
  }
  return nullptr;
}

Item* findItem(MediaItem* handle) {
  for (Item* item : host().allItems()) {
    if (handleOf<MediaItem>(item) == handle) return item;
  }
  return nullptr;
}

Take* findTake(MediaItem_Take* handle) {
  for (Item* item : host().allItems()) {
    for (const auto& take : item->takes) {
      if (handleOf<MediaItem_Take>(take.get()) == handle) return take.get();
    }
  }
  return nullptr;
}

std::string trackName(const Track* track) {
  return track == nullptr ? "track ?" : "track " + std::to_string(track->number);
}

// Sets the numeric property `parm` of a record; false for a property the record does not have.
template <typename Record>
bool setField(Record& record, const std::string& parm, double value,
              std::initializer_list<std::pair<const char*, double Record::*>> fields) {
  for (const auto& [name, field] : fields) {
    if (parm == name) {
      record.*field = value;
      return true;
    }
  }
  return false;
}

// Strings written into a caller's buffer are cut to fit and NUL-terminated, unless the host is
// told to fill the buffer to its last byte.
void writeString(const std::string& text, char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return;
  const auto room = static_cast<std::size_t>(size);
  if (host().unterminatedStrings) {
    std::memcpy(buffer, text.data(), std::min(text.size(), room));
    if (text.size() < room) buffer[text.size()] = '\0';
    return;
  }
  const std::size_t length = std::min(text.size(), room - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
}

// The host functions.

MediaItem* AddMediaItemToTrack(MediaTrack* tr) {
  Track* track = findTrack(tr);
  noteCall("AddMediaItemToTrack", trackName(track));
  if (fails("AddMediaItemToTrack")) return nullptr;
  if (track == nullptr) {
    violate("AddMediaItemToTrack: not a track of the project");
    return nullptr;
  }
  track->items.push_back(std::make_unique<Item>());
  track->items.back()->track = track;
  return handleOf<MediaItem>(track->items.back().get());
}

MediaItem_Take* AddTakeToMediaItem(MediaItem* it) {
  noteCall("AddTakeToMediaItem");
  if (fails("AddTakeToMediaItem")) return nullptr;
  Item* item = findItem(it);
  if (item == nullptr) {
    violate("AddTakeToMediaItem: not an item of the project");
    return nullptr;
  }
  item->takes.push_back(std::make_unique<Take>());
  if (host().takesComeWithSource) item->takes.back()->source = host().create("<preloaded>", 0.0);
  return handleOf<MediaItem_Take>(item->takes.back().get());
}

int CountSelectedTracks(ReaProject* proj) {
  noteCall("CountSelectedTracks");
  checkProject(proj, "CountSelectedTracks");
  if (fails("CountSelectedTracks")) return 0;
  return static_cast<int>(std::count_if(host().tracks.begin(), host().tracks.end(),
                                        [](const auto& track) { return track->selected; }));
}

bool DeleteTrackMediaItem(MediaTrack* tr, MediaItem* it) {
  Track* track = findTrack(tr);
  noteCall("DeleteTrackMediaItem", trackName(track));
  if (fails("DeleteTrackMediaItem") || track == nullptr) return false;
  auto found = std::find_if(track->items.begin(), track->items.end(), [&](const auto& item) {
    return handleOf<MediaItem>(item.get()) == it;
  });
  if (found == track->items.end()) return false;
  for (const auto& take : (*found)->takes) {
    if (take->source != nullptr) host().destroyedSources.insert(take->source);
  }
  track->items.erase(found);
  return true;
}

ReaProject* EnumProjects(int idx, char* projfnOutOptional, int projfnOutOptional_sz) {
  noteCall("EnumProjects", std::to_string(idx) + " " + std::to_string(projfnOutOptional_sz));
  if (fails("EnumProjects") || (idx != -1 && idx != 0)) return nullptr;
  // A project never saved has no file name; the host then leaves the buffer as it was.
  if (!host().projectFile.empty()) {
    writeString(host().projectFile, projfnOutOptional, projfnOutOptional_sz);
  }
  return handleOf<ReaProject>(&projectTag);
}

double GetCursorPositionEx(ReaProject* proj) {
  noteCall("GetCursorPositionEx");
  checkProject(proj, "GetCursorPositionEx");
  if (fails("GetCursorPositionEx")) return 0.0;
  return host().cursor;
}

double GetMediaSourceLength(PCM_source* source, bool* lengthIsQNOut) {
  noteCall("GetMediaSourceLength", host().nameOf(source));
  if (fails("GetMediaSourceLength")) return 0.0;
  if (!host().alive(source)) {
    violate("GetMediaSourceLength: not a live source");
    return 0.0;
  }
  const double seconds = host().find(source)->seconds;
  bool inQuarterNotes = false;
  double length = seconds;
  switch (host().sourceLength) {
    case SourceLength::FromFile:
      break;
    case SourceLength::QuarterNotes:
      inQuarterNotes = true;
      length = seconds * 2.0;  // at 120 beats a minute
      break;
    case SourceLength::NotANumber:
      length = std::numeric_limits<double>::quiet_NaN();
      break;
    case SourceLength::Zero:
      length = 0.0;
      break;
  }
  if (lengthIsQNOut != nullptr) *lengthIsQNOut = inQuarterNotes;
  return length;
}

double GetMediaTrackInfo_Value(MediaTrack* tr, const char* parmname) {
  const std::string parm = parmname == nullptr ? "" : parmname;
  noteCall("GetMediaTrackInfo_Value", parm);
  if (fails("GetMediaTrackInfo_Value", parmname)) return 0.0;
  const Track* track = findTrack(tr);
  if (track == nullptr) {
    violate("GetMediaTrackInfo_Value: not a track of the project");
    return 0.0;
  }
  if (parm == "IP_TRACKNUMBER") return track->number;
  if (parm == "I_SELECTED") return track->selected ? 1.0 : 0.0;
  return 0.0;
}

void GetProjectPathEx(ReaProject* proj, char* bufOut, int bufOut_sz) {
  noteCall("GetProjectPathEx", std::to_string(bufOut_sz));
  checkProject(proj, "GetProjectPathEx");
  if (fails("GetProjectPathEx")) return;
  writeString(host().mediaPath, bufOut, bufOut_sz);
}

MediaTrack* GetSelectedTrack(ReaProject* proj, int seltrackidx) {
  noteCall("GetSelectedTrack", std::to_string(seltrackidx));
  checkProject(proj, "GetSelectedTrack");
  if (fails("GetSelectedTrack")) return nullptr;
  int index = 0;
  for (const auto& track : host().tracks) {
    if (track->selected && index++ == seltrackidx) return handleOf<MediaTrack>(track.get());
  }
  return nullptr;
}

void* GetSetMediaItemTakeInfo(MediaItem_Take* tk, const char* parmname, void* setNewValue) {
  const std::string parm = parmname == nullptr ? "" : parmname;
  noteCall("GetSetMediaItemTakeInfo", parm + (setNewValue == nullptr ? " query" : " set"));
  if (fails("GetSetMediaItemTakeInfo", parmname)) return nullptr;
  Take* take = findTake(tk);
  if (take == nullptr) {
    violate("GetSetMediaItemTakeInfo: not a take of the project");
    return nullptr;
  }
  if (parm != "P_SOURCE") return nullptr;
  if (setNewValue == nullptr) return take->source;

  auto* source = static_cast<PCM_source*>(setNewValue);
  if (!host().alive(source)) {
    violate("GetSetMediaItemTakeInfo: P_SOURCE set to a pointer that is no live source");
    return nullptr;
  }
  const Take* holder = host().holderOf(source);
  if (holder == take) return nullptr;
  if (holder != nullptr) {
    violate("GetSetMediaItemTakeInfo: P_SOURCE set to a source another take already holds (" +
            host().nameOf(source) + ")");
    return nullptr;
  }
  // The take now owns the new source; the old one goes back to the caller.
  PCM_source* old = take->source;
  take->source = source;
  return old;
}

bool GetSetMediaItemTakeInfo_String(MediaItem_Take* tk, const char* parmname, char* stringNeedBig,
                                    bool setNewValue) {
  const std::string parm = parmname == nullptr ? "" : parmname;
  const bool writable = setNewValue && stringNeedBig != nullptr;
  noteCall("GetSetMediaItemTakeInfo_String",
           writable ? parm + "=" + stringNeedBig : parm + (setNewValue ? " set" : " query"));
  if (fails("GetSetMediaItemTakeInfo_String", parmname)) return false;
  Take* take = findTake(tk);
  if (take == nullptr) {
    violate("GetSetMediaItemTakeInfo_String: not a take of the project");
    return false;
  }
  // Only setting the name is served; reading would need the caller's buffer size.
  if (parm != "P_NAME" || !writable) return false;
  take->name = stringNeedBig;
  return true;
}

void MarkProjectDirty(ReaProject* proj) {
  noteCall("MarkProjectDirty");
  checkProject(proj, "MarkProjectDirty");
  if (fails("MarkProjectDirty")) return;
  host().dirty = true;
}

PCM_source* PCM_Source_CreateFromFile(const char* filename) {
  noteCall("PCM_Source_CreateFromFile", filename == nullptr ? "<null>" : filename);
  if (fails("PCM_Source_CreateFromFile") || filename == nullptr) return nullptr;
  const std::optional<double> seconds = audioFileSeconds(filename);
  if (!seconds) return nullptr;
  return host().create(filename, *seconds);
}

void PCM_Source_Destroy(PCM_source* src) {
  noteCall("PCM_Source_Destroy", host().nameOf(src));
  if (fails("PCM_Source_Destroy") || src == nullptr) return;
  if (host().find(src) == nullptr) {
    violate("PCM_Source_Destroy: a pointer that was never a source");
  } else if (host().destroyedSources.count(src) != 0) {
    violate("PCM_Source_Destroy: source destroyed twice (" + host().nameOf(src) + ")");
  } else if (host().holderOf(src) != nullptr) {
    violate("PCM_Source_Destroy: source destroyed while a take owns it (" + host().nameOf(src) +
            ")");
  } else {
    host().destroyedSources.insert(src);
  }
}

void PreventUIRefresh(int prevent_count) {
  noteCall("PreventUIRefresh", std::to_string(prevent_count));
  if (fails("PreventUIRefresh")) return;
  host().refreshHolds += prevent_count;
  if (host().refreshHolds < 0) {
    violate("PreventUIRefresh: released more often than held (balance " +
            std::to_string(host().refreshHolds) + ")");
  }
}

bool SetMediaItemInfo_Value(MediaItem* it, const char* parmname, double newvalue) {
  const std::string parm = parmname == nullptr ? "" : parmname;
  noteCall("SetMediaItemInfo_Value", parm + "=" + number(newvalue));
  if (fails("SetMediaItemInfo_Value", parmname)) return false;
  Item* item = findItem(it);
  if (item == nullptr) {
    violate("SetMediaItemInfo_Value: not an item of the project");
    return false;
  }
  return setField(*item, parm, newvalue,
                  {{"D_POSITION", &Item::position}, {"D_LENGTH", &Item::length}});
}

void SetMediaItemSelected(MediaItem* it, bool selected) {
  noteCall("SetMediaItemSelected", selected ? "true" : "false");
  if (fails("SetMediaItemSelected")) return;
  Item* item = findItem(it);
  if (item == nullptr) {
    violate("SetMediaItemSelected: not an item of the project");
    return;
  }
  item->selected = selected;
}

bool SetMediaItemTakeInfo_Value(MediaItem_Take* tk, const char* parmname, double newvalue) {
  const std::string parm = parmname == nullptr ? "" : parmname;
  noteCall("SetMediaItemTakeInfo_Value", parm + "=" + number(newvalue));
  if (fails("SetMediaItemTakeInfo_Value", parmname)) return false;
  Take* take = findTake(tk);
  if (take == nullptr) {
    violate("SetMediaItemTakeInfo_Value: not a take of the project");
    return false;
  }
  return setField(*take, parm, newvalue,
                  {{"D_STARTOFFS", &Take::startOffset},
                   {"D_PLAYRATE", &Take::playRate},
                   {"D_VOL", &Take::volume}});
}

void Undo_BeginBlock2(ReaProject* proj) {
  noteCall("Undo_BeginBlock2");
  checkProject(proj, "Undo_BeginBlock2");
  if (fails("Undo_BeginBlock2")) return;
  ++host().openUndoBlocks;
}

void Undo_EndBlock2(ReaProject* proj, const char* descchange, int extraflags) {
  const std::string label = descchange == nullptr ? "" : descchange;
  noteCall("Undo_EndBlock2", label + "|" + std::to_string(extraflags));
  checkProject(proj, "Undo_EndBlock2");
  if (fails("Undo_EndBlock2")) return;
  if (host().openUndoBlocks == 0) {
    violate("Undo_EndBlock2: no undo block is open (" + label + ")");
    return;
  }
  --host().openUndoBlocks;
  host().undoHistory.push_back({label, extraflags});
  if (host().undoBlockClosed) host().undoBlockClosed(host().undoHistory.back());
}

void UpdateArrange() {
  noteCall("UpdateArrange");
  if (fails("UpdateArrange")) return;
  ++host().arrangeUpdates;
}

void UpdateItemInProject(MediaItem* it) {
  noteCall("UpdateItemInProject");
  if (fails("UpdateItemInProject")) return;
  if (findItem(it) == nullptr) violate("UpdateItemInProject: not an item of the project");
}

struct Served {
  const char* name;
  void* function;
};

// Each function is checked against the extension's own declaration of its signature.
#define FAKE_REAPER_SERVE(fn) \
  { #fn, reinterpret_cast < void*>(static_cast <decltype(quillmere::fn)>(&fn)) }

const Served served[] = {
    FAKE_REAPER_SERVE(AddMediaItemToTrack),
    FAKE_REAPER_SERVE(AddTakeToMediaItem),
    FAKE_REAPER_SERVE(CountSelectedTracks),
    FAKE_REAPER_SERVE(DeleteTrackMediaItem),
    FAKE_REAPER_SERVE(EnumProjects),
    FAKE_REAPER_SERVE(GetCursorPositionEx),
    FAKE_REAPER_SERVE(GetMediaSourceLength),
    FAKE_REAPER_SERVE(GetMediaTrackInfo_Value),
    FAKE_REAPER_SERVE(GetProjectPathEx),
    FAKE_REAPER_SERVE(GetSelectedTrack),
    FAKE_REAPER_SERVE(GetSetMediaItemTakeInfo),
    FAKE_REAPER_SERVE(GetSetMediaItemTakeInfo_String),
    FAKE_REAPER_SERVE(MarkProjectDirty),
    FAKE_REAPER_SERVE(PCM_Source_CreateFromFile),
    FAKE_REAPER_SERVE(PCM_Source_Destroy),
    FAKE_REAPER_SERVE(PreventUIRefresh),
    FAKE_REAPER_SERVE(SetMediaItemInfo_Value),
    FAKE_REAPER_SERVE(SetMediaItemSelected),
    FAKE_REAPER_SERVE(SetMediaItemTakeInfo_Value),
    FAKE_REAPER_SERVE(Undo_BeginBlock2),
    FAKE_REAPER_SERVE(Undo_EndBlock2),
    FAKE_REAPER_SERVE(UpdateArrange),
    FAKE_REAPER_SERVE(UpdateItemInProject),
};

#undef FAKE_REAPER_SERVE

static_assert(sizeof(served) / sizeof(served[0]) == quillmere::kApiFunctionCount);

}  // namespace

int registerFacility(const char* name, void* infostruct) {
  if (name == nullptr) return 0;
  Host& h = host();
  h.registrations.emplace_back(name, infostruct);
  void (*function)() = reinterpret_cast<void (*)()>(infostruct);
  const std::string facility = name;
  if (facility == "timer" && h.registerAnswer != 0) h.timer = function;
  if (facility == "-timer" && h.timer == function) h.timer = nullptr;
  return h.registerAnswer;
}

void* getFunc(const char* name) {
  if (name == nullptr || host().missing.count(name) != 0) return nullptr;
  for (const Served& entry : served) {
    if (std::strcmp(entry.name, name) == 0) return entry.function;
  }
  return nullptr;
}

}  // namespace fake_reaper
