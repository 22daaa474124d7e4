#pragma once
// Plug-in modules: shared libraries that the host loads, identifies by their
// exported record and drives through their entry, at start and at shutdown.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/core/result.h"

namespace zta {

// The interface version this host hands each module on load.
constexpr int32_t HOST_INTERFACE_VERSION = 21100;

// Actions of a module's entry, and the messages the host sends through action 6.
enum : int32_t { MODULE_LOAD = 1, MODULE_START = 2, MODULE_END = 3, MODULE_QUERY = 4, MODULE_MESSAGE = 6 };
enum : int32_t { MSG_RELOAD_RESOURCES = 1, MSG_SYSTEM_READY = 1000, MSG_SYSTEM_END = 1001 };

// The names a module exports.
constexpr const char* MODULE_ENTRY_SYMBOL = "zta_main";
constexpr const char* MODULE_RECORD_SYMBOL = "g_zelmar";
constexpr const char* MODULE_YIELD_SYMBOL = "g_CpuYieldDelegate";

using ModuleEntry = int32_t (*)(int32_t action, void* first, void* second, void* third);
// What a module exports as its record: who it is and the host interface it
// was built for. The loader reads it before running any of the module's code.
struct ModuleRecord {
  const char* identifier;
  int32_t interfaceVersion;
};
// A module's spin waits call this so that a busy wait hands its core back;
// the host fills the module's slot with CpuYield on load.
using CpuYieldDelegate = void (*)();
void CpuYield();

// A started module. When the last reference goes (UnloadModules drops the
// loader's) it sends system-end and end; the library stays mapped.
class LoadedModule {
 public:
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  const std::string& GetIdentifier() const { return identifier_; }
  // The library's path; empty for a module linked into the program.
  const std::string& GetPath() const { return path_; }
  // Sends a message through action 6; true when the module handled it.
  bool SendMessage(int32_t id, void* data = nullptr) const;
  int32_t Query() const;

 private:
  friend struct ModuleStarter;
  LoadedModule() = default;
  void* handle_ = nullptr;
  ModuleEntry entry_ = nullptr;
  std::string identifier_;
  std::string path_;
  std::string folder_;
};

// Loads the library at `path`, checks its three exports and its record, and
// brings it up as the application does: load (with the module's folder as the
// file context), start, then system-ready. A module that is already loaded is
// returned as it stands.
Result<std::shared_ptr<LoadedModule>> LoadModule(const std::string& path);
// Brings up a module whose code is linked into this program (the test
// programs that reach the module's internals): its entry, record and yield
// slot stand in for the three exports, `folder` is its file context (the folder
// that holds its "res"), and every step after finding the exports is
// LoadModule's. A second start of the same entry returns the started module.
Result<std::shared_ptr<LoadedModule>> StartLinkedModule(ModuleEntry entry, const ModuleRecord* record,
                                                        CpuYieldDelegate* yieldSlot, const std::string& folder);
// The modules this process has loaded, in load order.
std::vector<std::shared_ptr<LoadedModule>> GetLoadedModules();
// Stops every loaded module, the last loaded first. A program calls it before
// it returns: nothing ends a module at exit.
void UnloadModules();

}  // namespace zta
