#include "host/host_api.h"

#include <cstring>

namespace quillmere {

MediaItem* (*AddMediaItemToTrack)(MediaTrack*) = nullptr;
MediaItem_Take* (*AddTakeToMediaItem)(MediaItem*) = nullptr;
int (*CountSelectedTracks)(ReaProject*) = nullptr;
bool (*DeleteTrackMediaItem)(MediaTrack*, MediaItem*) = nullptr;
ReaProject* (*EnumProjects)(int, char*, int) = nullptr;
double (*GetCursorPositionEx)(ReaProject*) = nullptr;
double (*GetMediaSourceLength)(PCM_source*, bool*) = nullptr;
double (*GetMediaTrackInfo_Value)(MediaTrack*, const char*) = nullptr;
void (*GetProjectPathEx)(ReaProject*, char*, int) = nullptr;
MediaTrack* (*GetSelectedTrack)(ReaProject*, int) = nullptr;
void* (*GetSetMediaItemTakeInfo)(MediaItem_Take*, const char*, void*) = nullptr;
bool (*GetSetMediaItemTakeInfo_String)(MediaItem_Take*, const char*, char*, bool) = nullptr;
void (*MarkProjectDirty)(ReaProject*) = nullptr;
PCM_source* (*PCM_Source_CreateFromFile)(const char*) = nullptr;
void (*PCM_Source_Destroy)(PCM_source*) = nullptr;
void (*PreventUIRefresh)(int) = nullptr;
bool (*SetMediaItemInfo_Value)(MediaItem*, const char*, double) = nullptr;
void (*SetMediaItemSelected)(MediaItem*, bool) = nullptr;
bool (*SetMediaItemTakeInfo_Value)(MediaItem_Take*, const char*, double) = nullptr;
void (*Undo_BeginBlock2)(ReaProject*) = nullptr;
void (*Undo_EndBlock2)(ReaProject*, const char*, int) = nullptr;
void (*UpdateArrange)() = nullptr;
void (*UpdateItemInProject)(MediaItem*) = nullptr;

#define QUILLMERE_BIND(fn) \
  { reinterpret_cast<void*>(&(fn)), #fn }

const ApiBinding apiBindings[] = {
    QUILLMERE_BIND(AddMediaItemToTrack),
    QUILLMERE_BIND(AddTakeToMediaItem),
    QUILLMERE_BIND(CountSelectedTracks),
    QUILLMERE_BIND(DeleteTrackMediaItem),
    QUILLMERE_BIND(EnumProjects),
    QUILLMERE_BIND(GetCursorPositionEx),
    QUILLMERE_BIND(GetMediaSourceLength),
    QUILLMERE_BIND(GetMediaTrackInfo_Value),
    QUILLMERE_BIND(GetProjectPathEx),
    QUILLMERE_BIND(GetSelectedTrack),
    QUILLMERE_BIND(GetSetMediaItemTakeInfo),
    QUILLMERE_BIND(GetSetMediaItemTakeInfo_String),
    QUILLMERE_BIND(MarkProjectDirty),
    QUILLMERE_BIND(PCM_Source_CreateFromFile),
    QUILLMERE_BIND(PCM_Source_Destroy),
    QUILLMERE_BIND(PreventUIRefresh),
    QUILLMERE_BIND(SetMediaItemInfo_Value),
    QUILLMERE_BIND(SetMediaItemSelected),
    QUILLMERE_BIND(SetMediaItemTakeInfo_Value),
    QUILLMERE_BIND(Undo_BeginBlock2),
    QUILLMERE_BIND(Undo_EndBlock2),
    QUILLMERE_BIND(UpdateArrange),
    QUILLMERE_BIND(UpdateItemInProject),
    {nullptr, nullptr},
};

#undef QUILLMERE_BIND

static_assert(sizeof(apiBindings) / sizeof(apiBindings[0]) == kApiFunctionCount + 1);
static_assert(sizeof(void*) == sizeof(void (*)()), "function pointers are stored as bytes");

int REAPERAPI_LoadAPI(void* (*getFunc)(const char* name)) {
  int missing = 0;
  for (const ApiBinding* entry = apiBindings; entry->destination != nullptr; ++entry) {
    void* found = getFunc(entry->name);
    // Copied as bytes: the destinations are function pointers of many different types.
    std::memcpy(entry->destination, &found, sizeof found);
    if (found == nullptr) ++missing;
  }
  return missing;
}

}  // namespace quillmere
