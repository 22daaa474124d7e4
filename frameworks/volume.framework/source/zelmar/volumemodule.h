#pragma once
// Starting the module without the host: what a front end calls to bring it
// up the way the host does, and to take it down again.
#include <string>

#include "host/core/result.h"

namespace zelmar {

// Load, start and system-ready, with the module's files in `moduleFolder`
// (the folder that holds "res"). A second call only counts another load.
zta::Result<void> StartModuleStandalone(const std::string& moduleFolder);
// System-end and end, as the host does at shutdown.
void StopModuleStandalone();

}  // namespace zelmar
