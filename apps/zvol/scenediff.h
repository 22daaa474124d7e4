#pragma once
// A scene file read again, brought onto the document already on screen:
// what changed is changed there, so the evaluation rebuilds only the
// generators that depend on it and every other cache stays.
#include <string>
#include <vector>

namespace zta {
class BaseDocument;
}  // namespace zta

namespace zvol {

struct SceneChanges {
  // Objects ("a/b" paths) whose parameters, matrices, modes or tags'
  // parameters were set anew in place.
  std::vector<std::string> edited;
  // Objects whose own data or tags' data changed: replaced by copies of the
  // new ones, their children kept.
  std::vector<std::string> replaced;
  bool Any() const { return !edited.empty() || !replaced.empty(); }
};

// `loaded` is the document as last read from the file (never evaluated),
// `shown` the evaluated twin on screen and `fresh` the file read again. When
// the three object trees have the same shape (names, types, order; `loaded`
// and `fresh` also the same tags) the differences between `loaded` and
// `fresh` are made on `shown` and returned; when they do not, nothing is
// touched and the result is false: the caller shows `fresh` instead.
bool ApplySceneChanges(const zta::BaseDocument& loaded, const zta::BaseDocument& fresh, zta::BaseDocument& shown,
                       SceneChanges& changes);

}  // namespace zvol
