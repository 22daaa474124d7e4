#include "picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "host/core/url.h"
#include "host/objects/polygonobject.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "host/scene/parameters.h"
#include "host/ui/basedraw.h"
#include "scenediff.h"
#include "sceneeval.h"
#include "zelmar/volumecommands.h"
#include "zelmar/volumetools.h"

namespace zvol {

namespace {

// Calls `fn(op, mg)` for each object of the trees below `first`, with its
// global matrix; free objects have no parent to ask.
template <typename Fn>
void ForEachObject(zta::BaseObject* first, const zta::Matrix& parent, Fn&& fn) {
  for (zta::BaseObject* op = first; op; op = op->GetNext()) {
    const zta::Matrix mg = parent * op->GetMl();
    fn(op, mg);
    ForEachObject(op->GetDown(), mg, fn);
  }
}

void Widen(zta::Vector& min, zta::Vector& max, const zta::Vector& p) {
  min = {std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)};
  max = {std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z)};
}

}  // namespace

Shown LoadShown(const Context& ctx, const std::string& path, const std::string& grid, std::optional<int64_t> frame) {
  Shown shown;
  if (IsScenePath(path)) {
    if (!grid.empty()) throw CLI::ValidationError("--grid", "--grid picks a grid of a .vdb file, not of a scene");
    shown.doc = LoadScene(ctx, path);
    shown.loaded.reset(static_cast<zta::BaseDocument*>(shown.doc->GetClone().release()));
    if (!shown.loaded) throw Failure("out of memory copying the scene");
    shown.scene = true;
    EvaluateShown(ctx, shown, frame ? *frame : shown.doc->GetTime().GetFrame(shown.doc->GetFps()));
    return shown;
  }
  if (frame) throw CLI::ValidationError("--frame", "--frame needs a scene; a .vdb file has one frame");
  if (zta::IoDetect(zta::Url::FromSystemPath(path)) != zta::IODETECT::FILE)
    throw Failure("File could not be found: " + path);
  shown.doc = zta::BaseDocument::Alloc();
  std::vector<int64_t> indices;
  if (!grid.empty()) {
    indices.push_back(ChooseGrid(path, grid));
  } else {
    const auto names = Take(zelmar::VolumeToolsInterface::GetGridNamesFromFile(zta::Url::FromSystemPath(path)));
    for (size_t i = 0; i < names.size(); ++i)
      if (!names[i].ends_with("~NotSupported")) indices.push_back(int64_t(i));
    if (indices.empty()) throw Failure(path + " holds no grid that can be loaded");
  }
  for (int64_t i : indices) {
    const zelmar::Volume volume = LoadVolume(path, std::to_string(i));
    GatheredObject g;
    g.path = std::to_string(i);
    g.copy = Take(zelmar::CreateVolumeObject(volume));
    shown.objects.push_back(std::move(g));
  }
  return shown;
}

void EvaluateShown(const Context& ctx, Shown& shown, int64_t frame) {
  if (!shown.scene) return;
  std::vector<GatheredObject> objects = EvaluateSceneKeeping(ctx, *shown.doc, frame, shown.objects);
  shown.objects = std::move(objects);
  shown.frame = frame;
}

std::vector<std::string> ReloadShown(const Context& ctx, Shown& shown, const std::string& path,
                                     const std::string& grid) {
  if (!shown.scene) {
    Shown fresh = LoadShown(ctx, path, grid, std::nullopt);
    shown.objects.clear();
    shown = std::move(fresh);
    std::vector<std::string> all;
    for (const GatheredObject& g : shown.objects) all.push_back(g.path);
    return all;
  }
  std::unique_ptr<zta::BaseDocument> fresh = LoadScene(ctx, path);
  std::unique_ptr<zta::BaseDocument> pristine(static_cast<zta::BaseDocument*>(fresh->GetClone().release()));
  if (!pristine) throw Failure("out of memory copying the scene");
  SceneChanges changes;
  // A change of the objects' shape shows the new scene whole, once it has
  // evaluated: one that fails leaves the present one.
  auto afresh = [&] {
    Shown next;
    next.doc = std::move(fresh);
    next.loaded = std::move(pristine);
    next.scene = true;
    EvaluateShown(ctx, next, shown.frame);
    shown.objects.clear();
    shown = std::move(next);
    std::vector<std::string> all;
    for (const GatheredObject& g : shown.objects) all.push_back(g.path);
    return all;
  };
  if (!ApplySceneChanges(*shown.loaded, *fresh, *shown.doc, changes)) return afresh();
  // The document now says what the file says, whether or not it evaluates.
  shown.loaded = std::move(pristine);
  if (!changes.Any()) return {};
  // A replaced object's copy is not taken again, whatever its address.
  for (GatheredObject& g : shown.objects)
    for (const std::string& r : changes.replaced)
      if (g.path == r || g.path.starts_with(r + "/")) g.source = nullptr;
  EvaluateShown(ctx, shown, shown.frame);
  std::vector<std::string> changed = changes.edited;
  changed.insert(changed.end(), changes.replaced.begin(), changes.replaced.end());
  return changed;
}

bool ShownBounds(const Shown& shown, zta::Vector& min, zta::Vector& max) {
  min = zta::Vector(1e300);
  max = zta::Vector(-1e300);
  for (const auto& top : shown.objects)
    ForEachObject(top.copy.get(), zta::Matrix(), [&](zta::BaseObject* op, const zta::Matrix& mg) {
      const zelmar::Volume volume = zelmar::GetObjectVolume(op);
      if (volume.IsInitialized()) {
        if (volume.GetActiveVoxelCount() == 0) return;
        zta::Vector mp, rad;
        if (auto* data = op->GetNodeData<zta::ObjectData>()) data->GetObjectBounds(op, &mp, &rad);
        // The box is in the grid's index space; voxels reach half a voxel beyond their centres.
        for (int c = 0; c < 8; ++c) {
          const zta::Vector corner{c & 1 ? mp.x + rad.x + 0.5 : mp.x - rad.x - 0.5,
                                   c & 2 ? mp.y + rad.y + 0.5 : mp.y - rad.y - 0.5,
                                   c & 4 ? mp.z + rad.z + 0.5 : mp.z - rad.z - 0.5};
          Widen(min, max, ToOutside(mg * corner));
        }
      } else if (const auto* poly = dynamic_cast<const zta::PolygonObject*>(op)) {
        const zta::Vector* p = poly->GetPointR();
        for (zta::Int32 i = 0; i < poly->GetPointCount(); ++i) Widen(min, max, ToOutside(mg * p[i]));
      }
    });
  return max.x >= min.x && max.y >= min.y && max.z >= min.z;
}

Camera FrameBox(const zta::Vector& min, const zta::Vector& max, const zta::Vector& dir, const zta::Vector& up,
                double aspect) {
  Camera cam;
  cam.target = (min + max) * 0.5;
  const double radius = std::max((max - min).GetLength() * 0.5, 1e-6);
  // The sphere around the box fits the narrower of the two fields of view.
  const double half = std::min(cam.fovY * 0.5, std::atan(std::tan(cam.fovY * 0.5) * aspect));
  const double distance = radius / std::sin(half) * 1.02;
  cam.eye = cam.target + dir.GetNormalized() * distance;
  cam.up = up;
  return cam;
}

Camera ParseCamera(const std::string& text, const Shown& shown, double aspect) {
  const auto colon = text.find(':');
  if (colon != std::string::npos) {
    Camera cam;
    cam.eye = ParseVector(text.substr(0, colon), "--camera eye");
    cam.target = ParseVector(text.substr(colon + 1), "--camera target");
    if ((cam.eye - cam.target).GetLength() < 1e-12)
      throw CLI::ValidationError("--camera", "the eye and the target of --camera must differ");
    const zta::Vector f = (cam.target - cam.eye).GetNormalized();
    if (std::abs(f.y) > 0.999) cam.up = {0, 0, f.y > 0 ? 1.0 : -1.0};
    return cam;
  }
  struct Side {
    const char* name;
    zta::Vector dir;
    zta::Vector up;
  };
  static const Side sides[] = {{"auto", {0.6, 0.45, 1.0}, {0, 1, 0}},   {"front", {0, 0, 1}, {0, 1, 0}},
                               {"back", {0, 0, -1}, {0, 1, 0}},         {"left", {-1, 0, 0}, {0, 1, 0}},
                               {"right", {1, 0, 0}, {0, 1, 0}},         {"top", {0, 1, 0}, {0, 0, -1}},
                               {"bottom", {0, -1, 0}, {0, 0, 1}}};
  for (const Side& s : sides) {
    if (text != s.name) continue;
    zta::Vector min, max;
    if (!ShownBounds(shown, min, max)) min = zta::Vector(-1.0), max = zta::Vector(1.0);
    return FrameBox(min, max, s.dir, s.up, aspect);
  }
  throw CLI::ValidationError("--camera", "expected auto, front, back, left, right, top, bottom or EYE:TARGET, got '" +
                                             text + "'");
}

std::vector<std::string> DrawShown(zta::BaseDraw& bd, const Shown& shown, const Camera& camera) {
  zta::Vector min, max;
  double nearClip = 0.01, farClip = 1000.0;
  const double distance = (camera.eye - camera.target).GetLength();
  if (ShownBounds(shown, min, max)) {
    // Clip planes hug what is shown, for the depth buffer's precision.
    const zta::Vector mid = (min + max) * 0.5;
    const double radius = (max - min).GetLength() * 0.5 + 1e-6;
    const double d = (camera.eye - mid).GetLength();
    farClip = d + radius * 1.1;
    nearClip = std::max(d - radius * 1.1, farClip * 1e-4);
  } else {
    farClip = distance * 100.0;
    nearClip = distance * 0.01;
  }
  bd.SetView(ToScene(camera.eye), ToScene(camera.target), ToScene(camera.up), camera.fovY, nearClip, farClip, true);
  bd.Clear();
  zta::BaseDrawHelp bh(&bd, shown.doc.get());
  std::vector<std::string> filled;
  for (const auto& top : shown.objects) {
    const zta::Int64 fills = bd.GetBufferFills();
    ForEachObject(top.copy.get(), zta::Matrix(), [&](zta::BaseObject* op, const zta::Matrix& mg) {
      if (zelmar::GetObjectVolume(op).IsInitialized()) {
        bh.SetMg(mg);
        if (auto* data = op->GetNodeData<zta::ObjectData>())
          data->DrawObject(op, zta::DRAWPASS(zta::DRAWPASS_OBJECT), &bd, &bh);
      } else if (const auto* poly = dynamic_cast<const zta::PolygonObject*>(op)) {
        bd.SetMatrix(mg);
        const zta::BaseContainer* bc = op->GetDataInstance();
        const zta::Int32 mode = bc->GetInt32(zta::ID_BASEOBJECT_USECOLOR, 0);
        bd.SetPen(mode == 1 || mode == 2 ? bc->GetVector(zta::ID_BASEOBJECT_COLOR) : zta::Vector(0.8, 0.8, 0.8));
        bd.DrawPolygonObject(*poly);
      }
    });
    if (bd.GetBufferFills() != fills) filled.push_back(top.path);
  }
  return filled;
}

}  // namespace zvol
