#include "fake_reaper/module_loader.h"

#include <dlfcn.h>

namespace fake_reaper {

LoadedModule::LoadedModule(const std::string& path) {
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    error_ = "cannot load " + path + ": " + dlerror();
    return;
  }
  entry_ = reinterpret_cast<PluginEntry>(dlsym(handle_, "ReaperPluginEntry"));
  if (entry_ == nullptr) error_ = path + " exports no ReaperPluginEntry";
}

LoadedModule::~LoadedModule() {
  if (handle_ != nullptr) dlclose(handle_);
}

}  // namespace fake_reaper
