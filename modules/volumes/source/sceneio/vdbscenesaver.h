#pragma once
// OpenVDBSaverData: the host's export of .vdb files (1039865, "fvdbexport").
// It writes the volumes of the scene, every volume object found in the
// chosen objects, their children and their caches, to one file for the
// current frame or to one file per frame of a range.
#include <memory>
#include <string>
#include <vector>

#include "host/core/url.h"
#include "host/scene/sceneio.h"
#include "host/ui/progressdialog.h"
#include "zelmar/volume.h"

namespace zta {
class BaseObject;
}

namespace zelmar {

enum : zta::Int32 {
  VDBEXPORT_ANIMATION = 1000,
  VDBEXPORT_FIRST = 1001,
  VDBEXPORT_LAST = 1002,
  VDBEXPORT_SELECTION = 1003,
  VDBEXPORT_NAMING = 1004,
  VDBEXPORT_UNIT = 1005,
};

struct SaverSettings {
  zta::Int32 firstFrame = 0;
  zta::Int32 lastFrame = 0;
  zta::Int32 naming = 0;
  bool animation = false;
  bool selectionOnly = false;
  // File units per scene unit.
  double scale = 1.0;
};

// The file of `frame` that an export to `url` writes: `url` itself for one
// frame; with `animation` the name without the digits at its end, the
// separator and the zero-filled number of the naming form, and ".vdb".
Url ExportFrameUrl(const Url& url, zta::Int32 frame, zta::Int32 naming, bool animation);

// `name` unless `taken` holds it, else the first free "name_1", "name_2", ...;
// the result is added to `taken`.
std::string MakeUniqueGridName(const std::string& name, std::vector<std::string>& taken);

// Writes the frames of `settings`: at each the document is evaluated and its
// volumes written. A stop request (`run`'s thread, or the dialog's cancel)
// ends the export before the next frame; the files written stay, and a file
// is either written whole or not at all. `done` counts the files written.
// `thread`, when given, is polled beside `run`'s (the dialog's own thread).
zta::Result<void> ExportFrames(const SaverSettings& settings, zta::BaseDocument* doc, const Url& url,
                               zta::SceneFilterRun& run, zta::ProgressDialog* dialog, zta::ZTAThread* thread = nullptr,
                               zta::Int32* done = nullptr);

class OpenVDBExportProgressDialog : public zta::ProgressDialog {
 public:
  OpenVDBExportProgressDialog(const SaverSettings& settings, zta::BaseDocument* doc, const Url& url,
                              zta::SceneFilterRun& run);
  bool Succeeded() const { return succeeded_; }

 protected:
  void Main(zta::ZTAThread* thread) override;

 private:
  SaverSettings settings_;
  zta::BaseDocument* doc_;
  Url url_;
  zta::SceneFilterRun& run_;
  bool succeeded_ = false;
};

// The "SceneHandler-" row of the start table: the loader, then the saver,
// both under one display name; the saver only when the loader registered.
bool RegisterVDBSceneHandlers();

class OpenVDBSaverData : public zta::SceneSaverData {
 public:
  static std::unique_ptr<zta::NodeData> Alloc();

  bool InitNode(zta::GeListNode* node) override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  bool DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) override;
  bool SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                         zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;
  zta::Int32 SaveScene(zta::BaseList2D* node, zta::BaseDocument* doc, const Url& url, zta::Int32 flags,
                       zta::SceneFilterRun& run) override;

 private:
  // Whether a person or a front end gave the frame range; until then the dialog takes the document's.
  bool rangeSet_ = false;
};

}  // namespace zelmar
