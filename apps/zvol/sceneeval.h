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
// The object at "a/b/c", by names from the top of the tree down; null for none.
zta::BaseObject* FindObjectByPath(const zta::BaseDocument& doc, const std::string& path);
// Selects the objects of a list of such paths ("a,group/b"); an unknown path is a Failure.
void SelectObjectsByPath(zta::BaseDocument& doc, const std::string& paths);
// Reads either form of scene file.
std::unique_ptr<zta::BaseDocument> LoadScene(const Context& ctx, const std::string& path);
// What the scene shows at `frame`, once evaluated there: copies of the
// objects that show something, standing in world space.
std::vector<std::unique_ptr<zta::BaseObject>> EvaluateScene(const Context& ctx, zta::BaseDocument& doc, int64_t frame);

}  // namespace zvol
