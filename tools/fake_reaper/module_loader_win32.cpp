#include <windows.h>

#include <exception>
#include <filesystem>

#include "fake_reaper/module_loader.h"

namespace fake_reaper {

LoadedModule::LoadedModule(const std::string& path) {
  std::wstring widePath;
  try {
    widePath = std::filesystem::u8path(path).native();
  } catch (const std::exception&) {
    error_ = "cannot load " + path + ": not UTF-8";
    return;
  }
  HMODULE module = LoadLibraryW(widePath.c_str());
  if (module == nullptr) {
    error_ = "cannot load " + path + ": error " + std::to_string(GetLastError());
    return;
  }
  handle_ = module;
  // Through a generic function pointer, which GCC accepts from FARPROC without a warning.
  const auto found = reinterpret_cast<void (*)()>(GetProcAddress(module, "ReaperPluginEntry"));
  entry_ = reinterpret_cast<PluginEntry>(found);
  if (entry_ == nullptr) error_ = path + " exports no ReaperPluginEntry";
}

LoadedModule::~LoadedModule() {
  if (handle_ != nullptr) FreeLibrary(static_cast<HMODULE>(handle_));
}

}  // namespace fake_reaper
