// Loads an extension module the way the host does and finds its entry point.
#pragma once

#include <string>

#include "host/host_api.h"

namespace fake_reaper {

using PluginEntry = int (*)(void* hInstance, reaper_plugin_info_t* rec);

class LoadedModule {
 public:
  // Loads `path`; on failure `entry()` is null and `error()` says why.
  explicit LoadedModule(const std::string& path);
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  void* handle() const { return handle_; }
  PluginEntry entry() const { return entry_; }
  const std::string& error() const { return error_; }

 private:
  void* handle_ = nullptr;
  PluginEntry entry_ = nullptr;
  std::string error_;
};

}  // namespace fake_reaper
