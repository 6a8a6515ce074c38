// The host's plug-in interface, declared here so the extension needs nothing but the standard
// library to build. Layouts and signatures follow what the host publishes for interface 0x20E.
#pragma once

class PCM_source;
class ReaProject;
class MediaTrack;
class MediaItem;
class MediaItem_Take;

struct reaper_plugin_info_t {
  int caller_version;
  void* hwnd_main;
  int (*Register)(const char* name, void* infostruct);
  void* (*GetFunc)(const char* name);
};

namespace quillmere {

constexpr int kPluginInterfaceVersion = 0x20E;

extern MediaItem* (*AddMediaItemToTrack)(MediaTrack* tr);
extern MediaItem_Take* (*AddTakeToMediaItem)(MediaItem* item);
extern int (*CountSelectedTracks)(ReaProject* proj);
extern bool (*DeleteTrackMediaItem)(MediaTrack* tr, MediaItem* it);
extern ReaProject* (*EnumProjects)(int idx, char* projfnOutOptional, int projfnOutOptional_sz);
extern double (*GetCursorPositionEx)(ReaProject* proj);
extern double (*GetMediaSourceLength)(PCM_source* source, bool* lengthIsQNOut);
extern double (*GetMediaTrackInfo_Value)(MediaTrack* tr, const char* parmname);
extern void (*GetProjectPathEx)(ReaProject* proj, char* bufOut, int bufOut_sz);
extern MediaTrack* (*GetSelectedTrack)(ReaProject* proj, int seltrackidx);
extern void* (*GetSetMediaItemTakeInfo)(MediaItem_Take* tk, const char* parmname,
                                        void* setNewValue);
extern bool (*GetSetMediaItemTakeInfo_String)(MediaItem_Take* tk, const char* parmname,
                                              char* stringNeedBig, bool setNewValue);
extern void (*MarkProjectDirty)(ReaProject* proj);
extern PCM_source* (*PCM_Source_CreateFromFile)(const char* filename);
extern void (*PCM_Source_Destroy)(PCM_source* src);
extern void (*PreventUIRefresh)(int prevent_count);
extern bool (*SetMediaItemInfo_Value)(MediaItem* item, const char* parmname, double newvalue);
extern void (*SetMediaItemSelected)(MediaItem* item, bool selected);
extern bool (*SetMediaItemTakeInfo_Value)(MediaItem_Take* take, const char* parmname,
                                          double newvalue);
extern void (*Undo_BeginBlock2)(ReaProject* proj);
extern void (*Undo_EndBlock2)(ReaProject* proj, const char* descchange, int extraflags);
extern void (*UpdateArrange)();
extern void (*UpdateItemInProject)(MediaItem* item);

struct ApiBinding {
  void* destination;  // address of one of the function pointers above; null ends the table
  const char* name;
};

// The 23 host functions in alphabetical order, then a terminator whose destination is null.
extern const ApiBinding apiBindings[];
constexpr int kApiFunctionCount = 23;

// Fills every pointer of the table, a miss included; returns how many names the host lacked.
int REAPERAPI_LoadAPI(void* (*getFunc)(const char* name));

}  // namespace quillmere
