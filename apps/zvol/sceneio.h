#pragma once
// What zvol import and export share: the scene's units by name, scene files
// read and written in either form.
#include <memory>
#include <string>

#include "host/scene/basedocument.h"
#include "host/scene/unitscale.h"
#include "sceneeval.h"
#include "zvol.h"

namespace zvol {

// "cm", "m", "10 m", "2.5in": a unit with an optional scale before it.
zta::UnitScaleData ParseUnit(const std::string& text, const char* option);
// The scene file forms zvol reads and writes, by extension; anything else is a usage error.
void RequireSceneFile(const std::string& path, const char* option);
void SaveScene(const Context& ctx, zta::BaseDocument* doc, const std::string& path);

}  // namespace zvol
