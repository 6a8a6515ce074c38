#pragma once

#include "host/host_api.h"

namespace quillmere {

extern reaper_plugin_info_t* pluginInfo;

}  // namespace quillmere

#if defined(_WIN32)
#define QUILLMERE_EXPORT __declspec(dllexport)
#else
#define QUILLMERE_EXPORT __attribute__((visibility("default")))
#endif

extern "C" QUILLMERE_EXPORT int ReaperPluginEntry(void* hInstance, reaper_plugin_info_t* rec);
