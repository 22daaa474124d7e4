#include <sstream>
#include "sceneeval.h"

#include <filesystem>

#include "host/core/format.h"
#include "host/modeling/modeling.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"
#include "host/scene/scenefile.h"
#include "host/scene/scenejson.h"
#include "zelmar/volumecommands.h"

namespace zvol {

namespace {

// What the objects of `first` and its siblings show, as free objects placed
// in world space: a copy of a generator's (deformed) cache, of a polygon,
// spline or line object, or of a volume object. An object that shows nothing
// of its own (a null) gives what its children show; the children of one that
// does are its to consume. A copy in `previous` of the same source, whose
// stamp and place did not change, is taken again instead of a new one.
void Gather(const Context& ctx, zta::BaseDocument& doc, zta::BaseObject* first, const std::string& prefix,
            std::vector<GatheredObject>& previous, std::vector<GatheredObject>& out) {
  for (zta::BaseObject* op = first; op; op = op->GetNext()) {
    const std::string path = prefix.empty() ? op->GetName() : prefix + "/" + op->GetName();
    const bool volume = zelmar::GetObjectVolume(op).IsInitialized();
    const bool geometry = op->GetType() == zta::HOST_TYPE_POLYGON || op->GetType() == zta::HOST_TYPE_SPLINE ||
                          op->GetType() == zta::HOST_TYPE_LINE;
    if (!volume && !geometry && !op->GetCache() && !op->GetDeformCache()) {
      Gather(ctx, doc, op->GetDown(), path, previous, out);
      continue;
    }
    GatheredObject g;
    g.source = op;
    g.path = path;
    g.stamp = op->GetHDirty(zta::DIRTYFLAGS_ALL & ~zta::DIRTYFLAGS_SELECT);
    auto* up = dynamic_cast<zta::BaseObject*>(op->GetUp());
    const zta::Matrix upMg = up ? up->GetMg() : zta::Matrix();
    g.placed = upMg * op->GetMl();
    for (GatheredObject& p : previous)
      if (p.copy && !p.kept && p.source == op && p.path == path && p.stamp == g.stamp &&
          p.placed == g.placed) {
        // Marked now, moved once the whole evaluation went well.
        p.kept = true;
        g.kept = true;
        g.copy.reset(p.copy.get());
        break;
      }
    if (g.kept) {
      out.push_back(std::move(g));
      continue;
    }
    std::unique_ptr<zta::BaseObject> copy;
    if (volume) {
      copy.reset(static_cast<zta::BaseObject*>(op->GetClone(zta::COPYFLAGS_NO_HIERARCHY).release()));
      if (!copy) throw Failure("out of memory copying " + op->GetName());
    } else {
      zta::ModelingCommandData data;
      data.doc = &doc;
      data.op = op;
      data.objects = {op};
      data.thread = ctx.thread;
      Check(zta::SendModelingCommand(zta::MCOMMAND_CURRENTSTATETOOBJECT, data));
      if (data.result.empty()) continue;
      copy = std::move(data.result.front());
    }
    // The copy stands where the object stood among its parents.
    copy->SetMl(upMg * copy->GetMl());
    g.copy = std::move(copy);
    out.push_back(std::move(g));
  }
}

// What the scene shows at `frame`, once evaluated there.
}  // namespace

bool IsScenePath(const std::string& path) {
  return std::filesystem::path(path).extension() == std::string(".") + zta::kSceneFileSuffix ||
         zta::IsJsonScenePath(path);
}

zta::BaseObject* FindObjectByPath(const zta::BaseDocument& doc, const std::string& path) {
  zta::BaseObject* level = doc.GetFirstObject();
  zta::BaseObject* found = nullptr;
  std::stringstream in(path);
  for (std::string name; std::getline(in, name, '/');) {
    found = nullptr;
    for (zta::BaseObject* op = level; op && !found; op = op->GetNext())
      if (op->GetName() == name) found = op;
    if (!found) return nullptr;
    level = found->GetDown();
  }
  return found;
}

void SelectObjectsByPath(zta::BaseDocument& doc, const std::string& paths) {
  doc.SetActiveObject(nullptr);
  std::stringstream in(paths);
  for (std::string path; std::getline(in, path, ',');) {
    if (path.empty()) continue;
    zta::BaseObject* op = FindObjectByPath(doc, path);
    if (!op) throw Failure("the scene has no object at '" + path + "'");
    doc.SetActiveObject(op, zta::SELECTION_ADD);
  }
}

std::unique_ptr<zta::BaseDocument> LoadScene(const Context& ctx, const std::string& path) {
  Step step(ctx, "read " + std::filesystem::path(path).filename().string());
  if (zta::IsJsonScenePath(path)) return Take(zta::LoadDocumentJson(path, ctx.thread));
  return Take(zta::LoadDocument(path, ctx.thread));
}

std::vector<GatheredObject> EvaluateSceneKeeping(const Context& ctx, zta::BaseDocument& doc, int64_t frame,
                                                 std::vector<GatheredObject>& previous) {
  Step step(ctx, zta::FormatString("evaluate frame @", frame));
  doc.SetTime(zta::BaseTime(frame, doc.GetFps()));
  std::vector<GatheredObject> shown;
  // Until the end the kept copies belong to `previous`: a failure or a
  // break leaves it whole.
  auto unmark = [&] {
    for (GatheredObject& g : shown)
      if (g.kept) (void)g.copy.release();
    for (GatheredObject& p : previous) p.kept = false;
  };
  try {
    const bool done = zta::ExecutePasses(&doc, ctx.thread);
    ctx.CheckInterrupted();
    if (!done) throw Failure("evaluation stopped");
    Gather(ctx, doc, doc.GetFirstObject(), "", previous, shown);
  } catch (...) {
    unmark();
    throw;
  }
  for (GatheredObject& p : previous)
    if (p.kept) (void)p.copy.release();
  // Each copy is now the result's alone, to be kept again next time.
  for (GatheredObject& g : shown) g.kept = false;
  return shown;
}

std::vector<std::unique_ptr<zta::BaseObject>> EvaluateScene(const Context& ctx, zta::BaseDocument& doc, int64_t frame) {
  std::vector<GatheredObject> none;
  std::vector<std::unique_ptr<zta::BaseObject>> objects;
  for (GatheredObject& g : EvaluateSceneKeeping(ctx, doc, frame, none)) objects.push_back(std::move(g.copy));
  return objects;
}

}  // namespace zvol
