#pragma once
// Scene loaders and savers: plug-ins that bring the contents of a foreign
// file into a document, or write a document out as one. Each has a node of
// its own (SceneFilterNode) whose container holds the settings of its
// import or export dialog; front ends fill it through the parameter path,
// so that the plug-in's rules on its settings hold whoever sets them.
#include <functional>
#include <memory>
#include <vector>

#include "host/core/thread.h"
#include "host/core/types.h"
#include "host/core/url.h"
#include "host/scene/baselist2d.h"
#include "host/scene/nodedata.h"

namespace zta {

enum : Int32 {
  // LoadScene and SaveScene: a person waits for the result and may be shown dialogs.
  SCENEFILTER_DIALOGSALLOWED = 8,
  // The import or export dialog is about to open on a file: SceneFilterPrepare.
  MSG_SCENEFILTER_PREPARE = 1039900,
};

// Results of LoadScene and SaveScene.
enum : Int32 {
  FILEERROR_NONE = 0,
  FILEERROR_OPEN = -1,
  FILEERROR_READ = -3,
  FILEERROR_WRITE = -4,
  FILEERROR_NODOCUMENT = -6,
  FILEERROR_OUTOFMEMORY = -7,
  FILEERROR_USERBREAK = -8,
  FILEERROR_WRONG_VALUE = -105,
};

struct SceneFilterPrepare {
  BaseDocument* doc = nullptr;
  Url url;
};

// What the host lends a loader or saver for one run: the thread to poll
// (Ctrl-C on the command line), where progress goes, and the text of a failure.
class SceneFilterRun {
 public:
  ThreadRef thread;
  std::function<void(Float fraction)> progress;
  String error;
  // Files a saver wrote.
  Int32 filesWritten = 0;

  bool TestBreak() const { return thread && thread->TestBreak(); }
  void SetProgress(Float fraction) const {
    if (progress) progress(fraction);
  }
};

class SceneLoaderData : public NodeData {
 public:
  // Whether the file is one this loader reads, by its name and its first
  // bytes (`size` of them at `probe`).
  virtual bool IdentifyFile(BaseList2D* node, const String& name, const unsigned char* probe, Int32 size) = 0;
  // Adds the file's contents to `doc`; FILEERROR_NONE or a failure, whose
  // text goes to run.error.
  virtual Int32 LoadScene(BaseList2D* node, BaseDocument* doc, const Url& url, Int32 flags, SceneFilterRun& run) = 0;
};

class SceneSaverData : public NodeData {
 public:
  virtual Int32 SaveScene(BaseList2D* node, BaseDocument* doc, const Url& url, Int32 flags, SceneFilterRun& run) = 0;
};

// The node of a registered loader or saver, with the defaults of its
// description in its container; null for an id that is neither.
std::unique_ptr<BaseList2D> AllocSceneFilter(Int32 id);

// The first bytes of a file that IdentifyFile is given.
constexpr Int32 kSceneFilterProbeSize = 1024;
// Reads the probe of `path`: as many bytes as the file has, up to the size.
bool ReadSceneFilterProbe(const String& path, std::vector<unsigned char>* probe);

}  // namespace zta
