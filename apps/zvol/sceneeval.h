#pragma once
// Scenes as the verbs that show or write them meet them: read, evaluated at
// a frame, and what they show gathered as free objects.
#include <memory>
#include <string>
#include <vector>

#include "zvol.h"

namespace zta {
class BaseDocument;
class BaseObject;
}  // namespace zta

namespace zvol {

// Whether `path` names a scene file (.zscene or .json) by its extension.
bool IsScenePath(const std::string& path);
// Reads either form of scene file.
std::unique_ptr<zta::BaseDocument> LoadScene(const Context& ctx, const std::string& path);
// What the scene shows at `frame`, once evaluated there: copies of the
// objects that show something, standing in world space.
std::vector<std::unique_ptr<zta::BaseObject>> EvaluateScene(const Context& ctx, zta::BaseDocument& doc, int64_t frame);

}  // namespace zvol
