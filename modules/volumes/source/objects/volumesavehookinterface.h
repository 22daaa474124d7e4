#pragma once
// What the volume objects and sets need of the document's save hook (scene
// hook 1040459): the file each of them owns. The hook's class implements this
// beside SceneHookData, so an object finds it as the plug-in data of the
// document's hook node.
#include "host/core/result.h"
#include "host/core/url.h"
#include "host/scene/baselist2d.h"

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMESAVEHOOK = 1040459,
  ID_VOLUMESET = 1039867,
};

class VolumeSaveHookInterface {
 public:
  virtual ~VolumeSaveHookInterface() = default;
  // Enters `object` with `url`, or moves it to `url` when it is known. The url
  // may come back changed: a name that another object holds gets a number.
  virtual zta::Result<void> RegisterVolumeFile(zta::BaseList2D* object, zta::Url& url) = 0;
};

// The save hook's interface on a hook node; null for any other node.
inline VolumeSaveHookInterface* GetSaveHookInterface(zta::BaseList2D* hookNode) {
  if (!hookNode || hookNode->GetType() != ID_VOLUMESAVEHOOK) return nullptr;
  return hookNode->GetNodeData<VolumeSaveHookInterface>();
}

}  // namespace zelmar
