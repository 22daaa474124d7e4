#include <assimp/version.h>

#include <cstdio>

#include "host/core/registry.h"
#include "zvol.h"

namespace {

zvol::VerbRun Setup(CLI::App& app) {
  return [](const zvol::Context&) {
    std::printf("zvol %s\n", ZV_VERSION);
    for (const auto& [id, info] : zta::ModuleVersionInfos().GetEntries()) {
      std::printf("%s %s\n", info.Get("net.zelmar.moduleversioninfo.description").Get<std::string>().c_str(),
                  info.Get("net.zelmar.moduleversioninfo.versionnumberstring").Get<std::string>().c_str());
    }
    // The mesh files of the host are read through Assimp.
    std::printf("Assimp %u.%u.%u\n", aiGetVersionMajor(), aiGetVersionMinor(), aiGetVersionPatch());
    return 0;
  };
}

}  // namespace

ZVOL_VERB("version", "print the version of zvol and of the libraries it uses", Setup);
