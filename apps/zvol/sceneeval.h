#pragma once
// Scenes as the verbs that show or write them meet them: read, evaluated at
// a frame, and what they show gathered as free objects.
#include <memory>
#include <string>
#include <vector>

#include "host/core/math.h"
#include "host/core/types.h"
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

// One object of what a scene shows, with what it was made from.
struct GatheredObject {
  const zta::BaseObject* source = nullptr;
  // The "a/b" path of the source in its document.
  std::string path;
  // The dirty sum of the source's hierarchy, its caches included, and its
  // global matrix, when the copy was made.
  zta::UInt32 stamp = 0;
  zta::Matrix placed;
  std::unique_ptr<zta::BaseObject> copy;
  // While an evaluation runs: the copy is shared with `previous` (see below).
  bool kept = false;
};
// EvaluateScene that keeps the copies of `previous` (a result of the same
// document) whose source neither changed nor moved: what a view drew of them
// (its buffers) stays with them. `previous` loses the copies kept only when
// the whole evaluation succeeds.
std::vector<GatheredObject> EvaluateSceneKeeping(const Context& ctx, zta::BaseDocument& doc, int64_t frame,
                                                 std::vector<GatheredObject>& previous);

}  // namespace zvol
