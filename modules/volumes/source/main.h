#pragma once
// Module start and registration: the host entry and what a build without the
// host uses to start the module the way the host would.
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "host/core/config.h"
#include "host/core/moduleloader.h"
#include "host/core/resource.h"
#include "host/core/result.h"
#include "zelmar/api.h"

// The module's three exports: its entry, its record and the host's yield slot.
extern "C" ZELMAR_API int32_t zta_main(int32_t action, void* firstArgument, void* secondArgument, void* thirdArgument);
extern "C" ZELMAR_API const zta::ModuleRecord g_zelmar;
extern "C" ZELMAR_API zta::CpuYieldDelegate g_CpuYieldDelegate;

namespace zelmar {

// The lowest host interface version the module accepts.
constexpr int32_t kMinimumHostVersion = 21100;
// The host library kept at system-ready.
constexpr int32_t kHostLibraryId = 1001428;

extern zta::ConfigBool g_rprEnableVolumeRendering;

// Busy waits of the module hand their core back through the host's delegate.
inline void YieldCpu() {
  if (g_CpuYieldDelegate)
    g_CpuYieldDelegate();
  else
    std::this_thread::yield();
}

// One row of the start table: a label for the failure log, whether the row
// depends on g_rprEnableVolumeRendering, and the registration itself.
struct RegistrationRow {
  const char* label;
  bool gated;
  bool (*registerPlugin)();
};

// The rows that module start runs, in order.
const std::vector<RegistrationRow>& GetRegistrationTable();

// Runs `rows` in order; every row runs even after a failure. Gated rows are
// skipped silently unless `gatedEnabled`. Returns the labels of the failures,
// joined without separators.
std::string RunRegistrations(const std::vector<RegistrationRow>& rows, bool gatedEnabled);

// The message handler of the host entry (action 6).
bool HandleModuleMessage(int32_t id, void* data);

// Module state, for the host layer and tests.
int32_t GetLoadCount();
bool IsOpenVDBReady();
const zta::StringResource& GetModuleResource();
const std::string& GetModuleFolder();

// Starts the module linked into this program through the host's loader, as a
// loaded library is started: load, start and system-ready, with the module's
// files in `moduleFolder` (the folder that holds "res"). A second call returns
// at once: the module is started.
zta::Result<void> StartModuleStandalone(const std::string& moduleFolder);
// Ends the loader's modules (system-end and end), as the host does at shutdown.
void StopModuleStandalone();

}  // namespace zelmar
