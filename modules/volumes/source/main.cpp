#include "modules/volumes/source/main.h"

#include <blosc.h>
#include <openvdb/openvdb.h>
#include <tbb/version.h>

#include <filesystem>
#include <memory>

#include "host/core/diagnostics.h"
#include "host/core/format.h"
#include "host/core/registry.h"
#include "host/ui/strings.h"
#include "modules/volumes/source/helper/gridtypes.h"

namespace zelmar {

zta::ConfigBool g_rprEnableVolumeRendering("g_rprEnableVolumeRendering", true,
                                           "Activate Volume Rendering components in RPR");

namespace {

int32_t g_loadCount = 0;
std::unique_ptr<std::string> g_fileContext;
zta::StringResource g_resource;
bool g_openvdbReady = false;
const void* g_hostLibrary = nullptr;

// Where the module's strings are: "res" beside the module, or, when the host
// reports a separately installed resource tree ($ZTA_RESOURCE_PATH), its
// resource/modules/<module folder name>.
std::string ResourceFolder() {
  const std::string moduleFolder = g_fileContext ? *g_fileContext : std::string();
  if (const char* tree = std::getenv("ZTA_RESOURCE_PATH")) {
    const std::string name = std::filesystem::path(moduleFolder).filename().string();
    return std::string(tree) + "/resource/modules/" + name;
  }
  return moduleFolder + "/res";
}

bool LoadModuleResource() {
  if (!g_resource.Load(ResourceFolder())) return false;
  zta::SetModuleStrings(&g_resource);
  return true;
}

bool ModuleStart() {
  // A stock OpenVDB has no memory handler hooks; its allocations stay its own.
  if (!LoadModuleResource()) return false;
  const std::string failed = RunRegistrations(GetRegistrationTable(), g_rprEnableVolumeRendering.Read());
  if (!failed.empty()) zta::DiagnosticOutput("@", failed);
  return true;
}

// The libraries the module announces, added when the program starts.
zta::Result<void> AddModuleVersionInfos() {
  struct Row {
    const char* id;
    const char* name;
    const char* description;
    std::string version;
  };
  const Row rows[] = {
      {"net.zelmar.moduleinfo.openvdb", "openvdb", "OpenVDB",
       zta::FormatString("@.@.@", OPENVDB_LIBRARY_MAJOR_VERSION_NUMBER, OPENVDB_LIBRARY_MINOR_VERSION_NUMBER,
                         OPENVDB_LIBRARY_PATCH_VERSION_NUMBER)},
      {"net.zelmar.moduleinfo.cblosc", "cblosc", "Blosc: A blocking, shuffling and lossless compression library",
       zta::FormatString("@.@.@", BLOSC_VERSION_MAJOR, BLOSC_VERSION_MINOR, BLOSC_VERSION_RELEASE)},
      {"net.zelmar.moduleinfo.tbb", "tbb", "Intel Threading Building Blocks",
       zta::FormatString("@.@", TBB_VERSION_MAJOR, TBB_VERSION_MINOR)},
  };
  for (const Row& row : rows) {
    zta::DataDictionary info;
    info.Set("net.zelmar.moduleversioninfo.modulename", row.name);
    info.Set("net.zelmar.moduleversioninfo.description", row.description);
    info.Set("net.zelmar.moduleversioninfo.versionnumberstring", row.version);
    if (auto r = zta::ModuleVersionInfos().Insert(row.id, std::move(info)); !r) return r;
  }
  return zta::OK();
}

const zta::Result<void> g_versionInfosAdded = AddModuleVersionInfos();

}  // namespace

std::string RunRegistrations(const std::vector<RegistrationRow>& rows, bool gatedEnabled) {
  std::string failed;
  for (const RegistrationRow& row : rows) {
    if (row.gated && !gatedEnabled) continue;
    if (!row.registerPlugin || !row.registerPlugin()) failed += row.label;
  }
  return failed;
}

bool HandleModuleMessage(int32_t id, void* data) {
  switch (id) {
    case zta::MSG_SYSTEM_READY:
      openvdb::initialize();
      RegisterModuleGridTypes();
      g_hostLibrary = zta::FindLibrary(kHostLibraryId);
      g_openvdbReady = true;
      return true;
    case zta::MSG_SYSTEM_END:
      if (g_openvdbReady) {
        UnregisterModuleGridTypes();
        openvdb::uninitialize();
        g_openvdbReady = false;
      }
      return true;
    case zta::MSG_RELOAD_RESOURCES:
      if (!LoadModuleResource()) return false;
      if (data) *static_cast<int32_t*>(data) = 0;
      return true;
    default:
      return false;
  }
}

int32_t GetLoadCount() { return g_loadCount; }
bool IsOpenVDBReady() { return g_openvdbReady; }
const zta::StringResource& GetModuleResource() { return g_resource; }
const std::string& GetModuleFolder() {
  static const std::string none;
  return g_fileContext ? *g_fileContext : none;
}

zta::Result<void> StartModuleStandalone(const std::string& moduleFolder) {
  return zta::StartLinkedModule(&zta_main, &g_zelmar, &g_CpuYieldDelegate, moduleFolder);
}

void StopModuleStandalone() { zta::UnloadModules(); }

}  // namespace zelmar

extern "C" const zta::ModuleRecord g_zelmar = {"net.zelmar.zta.volumes", zelmar::kMinimumHostVersion};
extern "C" zta::CpuYieldDelegate g_CpuYieldDelegate = nullptr;

// The host entry. Action 1 reads the host's interface version through
// `firstArgument` (a pointer to an int32) and the module's folder from
// `thirdArgument` (a C string); action 6 carries the message id in
// `firstArgument` and its data in `secondArgument`.
extern "C" int32_t zta_main(int32_t action, void* firstArgument, void* secondArgument, void* thirdArgument) {
  using namespace zelmar;
  switch (action) {
    case zta::MODULE_LOAD: {
      const int32_t version = firstArgument ? *static_cast<const int32_t*>(firstArgument) : 0;
      if (version < kMinimumHostVersion || !thirdArgument) return -3;
      if (g_loadCount++ == 0) g_fileContext = std::make_unique<std::string>(static_cast<const char*>(thirdArgument));
      return 1;
    }
    case zta::MODULE_START:
      return ModuleStart() ? 1 : 0;
    case zta::MODULE_END:
      if (g_loadCount > 0 && --g_loadCount == 0) {
        zta::SetModuleStrings(nullptr);
        g_resource = zta::StringResource();
        g_hostLibrary = nullptr;
        g_fileContext.reset();
      }
      return 1;
    case zta::MODULE_QUERY:
      return 5;
    case zta::MODULE_MESSAGE:
      return HandleModuleMessage(int32_t(reinterpret_cast<intptr_t>(firstArgument)), secondArgument) ? 1 : -1;
    default:
      return -1;
  }
}
