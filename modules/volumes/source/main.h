#pragma once
// Module start and registration: the host entry and what a build without the
// host uses to start the module the way the host would.
#include <cstdint>
#include <string>
#include <vector>

#include "host/core/config.h"
#include "host/core/resource.h"
#include "host/core/result.h"
#include "zelmar/volumemodule.h"

extern "C" int32_t zta_main(int32_t action, void* firstArgument, void* secondArgument, void* thirdArgument);

namespace zelmar {

// Host entry actions and messages.
enum : int32_t { ZTA_ACTION_LOAD = 1, ZTA_ACTION_START = 2, ZTA_ACTION_END = 3, ZTA_ACTION_QUERY = 4, ZTA_ACTION_MESSAGE = 6 };
enum : int32_t { ZTA_MSG_RELOAD_RESOURCES = 1, ZTA_MSG_SYSTEM_READY = 1000, ZTA_MSG_SYSTEM_END = 1001 };
// The lowest host interface version the module accepts.
constexpr int32_t kMinimumHostVersion = 21100;
// The host library kept at system-ready.
constexpr int32_t kHostLibraryId = 1001428;

extern zta::ConfigBool g_rprEnableVolumeRendering;

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

}  // namespace zelmar
