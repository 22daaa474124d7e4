#include "host/core/moduleloader.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>
#include <thread>

namespace zta {

namespace {

std::mutex g_modulesMutex;
// Never destroyed: a module still started when the process exits stays so,
// since ending it then would run its system-end after the statics of the
// libraries it uses (OpenVDB's registries) are gone. Ending is UnloadModules'.
std::vector<std::shared_ptr<LoadedModule>>& Modules() {
  static auto* modules = new std::vector<std::shared_ptr<LoadedModule>>();
  return *modules;
}

int32_t Call(ModuleEntry entry, int32_t action, void* first = nullptr, void* second = nullptr, void* third = nullptr) {
  return entry(action, first, second, third);
}

}  // namespace

void CpuYield() { std::this_thread::yield(); }

LoadedModule::~LoadedModule() {
  if (!entry_) return;
  Call(entry_, MODULE_MESSAGE, reinterpret_cast<void*>(intptr_t(MSG_SYSTEM_END)));
  Call(entry_, MODULE_END);
  // The library stays mapped: objects it made (plug-in data, strings in
  // registries) may outlive the module object in a process that is ending.
}

bool LoadedModule::SendMessage(int32_t id, void* data) const {
  return Call(entry_, MODULE_MESSAGE, reinterpret_cast<void*>(intptr_t(id)), data) == 1;
}

int32_t LoadedModule::Query() const { return Call(entry_, MODULE_QUERY); }

// What LoadModule and StartLinkedModule share once the three exports are in
// hand; runs under g_modulesMutex. `name` says which module an error is about.
struct ModuleStarter {
  static Result<std::shared_ptr<LoadedModule>> Start(ModuleEntry entry, const ModuleRecord* record,
                                                     CpuYieldDelegate* yield, void* handle, std::string path,
                                                     std::string folder, const std::string& name) {
    for (const auto& m : Modules())
      if (m->entry_ == entry) return m;
    if (!record->identifier || record->interfaceVersion > HOST_INTERFACE_VERSION)
      return IllegalStateError(name + " needs a newer host (interface " + std::to_string(record->interfaceVersion) +
                               ")");

    std::shared_ptr<LoadedModule> module(new LoadedModule());
    module->handle_ = handle;
    module->identifier_ = record->identifier;
    module->path_ = std::move(path);
    module->folder_ = std::move(folder);
    *yield = &CpuYield;

    int32_t version = HOST_INTERFACE_VERSION;
    if (Call(entry, MODULE_LOAD, &version, nullptr, module->folder_.data()) != 1)
      return IllegalStateError("module " + module->identifier_ + " refused to load");
    if (Call(entry, MODULE_START) != 1) {
      Call(entry, MODULE_END);
      return IllegalStateError("module " + module->identifier_ + " did not start: its resources are missing from " +
                               module->folder_ + "/res");
    }
    module->entry_ = entry;
    module->SendMessage(MSG_SYSTEM_READY);
    Modules().push_back(module);
    return module;
  }
};

Result<std::shared_ptr<LoadedModule>> LoadModule(const std::string& path) {
  std::error_code ec;
  const std::filesystem::path full = std::filesystem::weakly_canonical(path, ec);
  const std::string canonical = ec ? path : full.string();
  std::lock_guard<std::mutex> lock(g_modulesMutex);
  for (const auto& m : Modules())
    if (!m->GetPath().empty() && m->GetPath() == canonical) return m;

  void* handle = dlopen(canonical.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (!handle) return IoError("cannot load module " + canonical + ": " + dlerror());
  auto entry = reinterpret_cast<ModuleEntry>(dlsym(handle, MODULE_ENTRY_SYMBOL));
  auto* record = static_cast<const ModuleRecord*>(dlsym(handle, MODULE_RECORD_SYMBOL));
  auto* yield = static_cast<CpuYieldDelegate*>(dlsym(handle, MODULE_YIELD_SYMBOL));
  if (!entry || !record || !yield)
    return IllegalStateError(canonical + " is not a module: it does not export " + MODULE_ENTRY_SYMBOL + ", " +
                             MODULE_RECORD_SYMBOL + " and " + MODULE_YIELD_SYMBOL);
  return ModuleStarter::Start(entry, record, yield, handle, canonical,
                              std::filesystem::path(canonical).parent_path().string(), canonical);
}

Result<std::shared_ptr<LoadedModule>> StartLinkedModule(ModuleEntry entry, const ModuleRecord* record,
                                                        CpuYieldDelegate* yieldSlot, const std::string& folder) {
  if (!entry || !record || !yieldSlot)
    return IllegalArgumentError("a linked module needs its entry, its record and its yield slot");
  std::lock_guard<std::mutex> lock(g_modulesMutex);
  return ModuleStarter::Start(entry, record, yieldSlot, nullptr, std::string(), folder,
                              record->identifier ? record->identifier : "a linked module");
}

std::vector<std::shared_ptr<LoadedModule>> GetLoadedModules() {
  std::lock_guard<std::mutex> lock(g_modulesMutex);
  return Modules();
}

void UnloadModules() {
  std::vector<std::shared_ptr<LoadedModule>> modules;
  {
    std::lock_guard<std::mutex> lock(g_modulesMutex);
    modules.swap(Modules());
  }
  while (!modules.empty()) modules.pop_back();
}

}  // namespace zta
