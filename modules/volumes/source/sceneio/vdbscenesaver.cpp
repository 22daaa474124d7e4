#include "modules/volumes/source/sceneio/vdbscenesaver.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <new>
#include <system_error>

#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/execution.h"
#include "host/scene/unitscale.h"
#include "host/ui/hostmode.h"
#include "host/ui/statusbar.h"
#include "modules/volumes/source/main.h"
#include "host/scene/plugins.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/sceneio/vdbsceneloader.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

namespace fs = std::filesystem;

constexpr zta::Int32 kDisplayNameResource = 10004;
constexpr zta::Int32 kSavedResource = 10049;
constexpr zta::Int32 kNotSavedResource = 10050;
// Without a last frame the range ends here.
constexpr zta::Int32 kFallbackLastFrame = 90;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

struct NamingForm {
  const char* separator;
  int digits;
};
constexpr NamingForm kNamingForms[] = {{"", 4}, {"", 3}, {"_", 4}, {"_", 3}, {".", 4}, {".", 3}};

bool Stopped(const zta::SceneFilterRun& run, zta::ZTAThread* thread) {
  return run.TestBreak() || (thread && thread->TestBreak());
}

// The volume objects in `objects`, their children and their caches, in the
// order of a depth-first walk. The given objects' siblings are not walked:
// the list says which top-level objects count.
std::vector<zta::BaseObject*> FindVolumeObjects(const std::vector<zta::BaseObject*>& objects) {
  std::vector<zta::BaseObject*> found;
  std::vector<std::pair<zta::BaseObject*, bool>> stack;
  for (auto it = objects.rbegin(); it != objects.rend(); ++it) stack.push_back({*it, true});
  while (!stack.empty()) {
    auto [op, given] = stack.back();
    stack.pop_back();
    if (op->GetType() == ID_VOLUMEOBJECT) found.push_back(op);
    // Pushed in reverse so that the walk meets the cache, the children and then the next sibling.
    if (!given && op->GetNext()) stack.push_back({op->GetNext(), false});
    if (op->GetDown()) stack.push_back({op->GetDown(), false});
    if (zta::BaseObject* cache = op->GetDeformCache() ? op->GetDeformCache() : op->GetCache())
      stack.push_back({cache, false});
  }
  return found;
}

// Writes `volumes` to `url` whole or not at all: to a file beside it first, renamed over it once complete.
zta::Result<void> WriteWhole(const Url& url, double scale, const std::vector<Volume>& volumes) {
  const fs::path target(url.GetSystemPath());
  const fs::path temp = target.parent_path() / zta::FormatString(".@.@.partial", target.filename().string(), getpid());
  auto saved = VolumeToolsInterface::SaveVDBFile(Url::FromSystemPath(temp.string()), scale, volumes, DataDictionary());
  std::error_code ec;
  if (!saved) {
    fs::remove(temp, ec);
    return saved.GetError();
  }
  fs::rename(temp, target, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove(temp, ignored);
    return zta::IoError(zta::FormatString("@ could not be written: @", target.string(), ec.message()));
  }
  return zta::OK();
}

// The volumes of `objects` at the document's present state, each placed where
// its object stands and named after it, written to the frame's file. A frame
// without volume objects writes nothing.
zta::Result<bool> ExportFrame(const SaverSettings& settings, const std::vector<zta::BaseObject*>& objects,
                              const Url& url, zta::Int32 frame) {
  std::vector<Volume> volumes;
  std::vector<std::string> names;
  for (zta::BaseObject* op : FindVolumeObjects(objects)) {
    const Volume own = VolumeObjectData::GetVolume(op);
    if (!own.HasGrid()) continue;
    // The scene's volumes stay as they are: the file gets copies that share their voxels.
    auto copy = own.Clone();
    if (!copy) return copy.GetError();
    copy->SetGridTransform(op->GetMg());
    copy->SetGridName(MakeUniqueGridName(op->GetName(), names));
    volumes.push_back(*copy);
  }
  if (volumes.empty()) return false;
  if (auto ok = WriteWhole(ExportFrameUrl(url, frame, settings.naming, settings.animation), settings.scale, volumes);
      !ok)
    return ok.GetError();
  return true;
}

}  // namespace

Url ExportFrameUrl(const Url& url, zta::Int32 frame, zta::Int32 naming, bool animation) {
  if (!animation) return url;
  const NamingForm& form = kNamingForms[std::clamp(naming, 0, zta::Int32(std::size(kNamingForms)) - 1)];
  const fs::path path(url.GetSystemPath());
  std::string base = path.stem().string();
  while (!base.empty() && base.back() >= '0' && base.back() <= '9') base.pop_back();
  char number[32];
  std::snprintf(number, sizeof(number), "%0*d", form.digits, frame);
  const std::string name = zta::FormatString("@.@", base + form.separator + number, "vdb");
  return Url::FromSystemPath((path.parent_path() / name).string());
}

std::string MakeUniqueGridName(const std::string& name, std::vector<std::string>& taken) {
  std::string unique = name;
  for (int n = 1; std::find(taken.begin(), taken.end(), unique) != taken.end(); ++n)
    unique = zta::FormatString("@_@", name, n);
  taken.push_back(unique);
  return unique;
}

zta::Result<void> ExportFrames(const SaverSettings& settings, zta::BaseDocument* doc, const Url& url,
                               zta::SceneFilterRun& run, zta::ProgressDialog* dialog, zta::ZTAThread* thread,
                               zta::Int32* done) {
  if (done) *done = 0;
  if (!doc) return zta::IllegalArgumentError("no document to export");
  std::vector<zta::Int32> frames;
  try {
    for (zta::Int64 f = settings.firstFrame; f <= settings.lastFrame; ++f) frames.push_back(zta::Int32(f));
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }

  std::vector<zta::BaseObject*> objects;
  if (settings.selectionOnly) {
    objects = doc->GetActiveObjects();
  } else {
    for (zta::BaseObject* op = doc->GetFirstObject(); op; op = op->GetNext()) objects.push_back(op);
  }
  if (objects.empty())
    return zta::IllegalArgumentError(settings.selectionOnly ? "no object is selected" : "the scene holds no objects");

  const zta::BaseTime saved = doc->GetTime();
  zta::Result<void> result = zta::OK();
  bool anyVolume = false;
  for (size_t i = 0; i < frames.size(); ++i) {
    if (Stopped(run, thread)) {
      result = zta::UnexpectedError("interrupted");
      break;
    }
    doc->SetTime(zta::BaseTime(zta::Int64(frames[i]), doc->GetFps()));
    // A pass stopped on the way leaves caches of another frame: nothing of it is written.
    if (!zta::ExecutePasses(doc, run.thread) || Stopped(run, thread)) {
      result = zta::UnexpectedError("interrupted");
      break;
    }
    auto wrote = ExportFrame(settings, objects, url, frames[i]);
    if (!wrote) {
      result = wrote.GetError();
      break;
    }
    anyVolume = anyVolume || *wrote;
    if (*wrote) {
      ++run.filesWritten;
      if (done) ++*done;
    }
    const double fraction = double(i + 1) / double(frames.size());
    if (dialog) dialog->SetPercent(fraction);
    run.SetProgress(fraction);
  }
  doc->SetTime(saved);
  zta::ExecutePasses(doc, nullptr);
  if (result && !anyVolume) return zta::IllegalArgumentError("the objects hold no volume to export");
  return result;
}

OpenVDBExportProgressDialog::OpenVDBExportProgressDialog(const SaverSettings& settings, zta::BaseDocument* doc,
                                                         const Url& url, zta::SceneFilterRun& run)
    : settings_(settings), doc_(doc), url_(url), run_(run) {
  SetTitle("Exporting VDB...");
}

void OpenVDBExportProgressDialog::Main(zta::ZTAThread* thread) {
  auto done = ExportFrames(settings_, doc_, url_, run_, this, thread);
  succeeded_ = bool(done);
  if (!done) SetError(done.GetError());
}

bool RegisterVDBSceneHandlers() {
  const std::string name = Text(kDisplayNameResource);
  if (!zta::RegisterSceneLoaderPlugin(ID_VDBSCENELOADER, name, 0, &OpenVDBLoaderData::Alloc, "fvdbimport"))
    return false;
  return zta::RegisterSceneSaverPlugin(ID_VDBSCENESAVER, name, 0, &OpenVDBSaverData::Alloc, "fvdbexport", "vdb");
}

std::unique_ptr<zta::NodeData> OpenVDBSaverData::Alloc() { return std::make_unique<OpenVDBSaverData>(); }

bool OpenVDBSaverData::InitNode(zta::GeListNode* node) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseList2D*>(node)->GetDataInstance();
  bc->SetBool(VDBEXPORT_ANIMATION, false);
  bc->SetBool(VDBEXPORT_SELECTION, false);
  bc->SetInt32(VDBEXPORT_NAMING, 4);
  bc->SetCustomData(VDBEXPORT_UNIT, std::make_shared<zta::UnitScaleData>(1.0, zta::DOCUMENTUNIT::CM));
  return true;
}

bool OpenVDBSaverData::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (type == zta::MSG_SCENEFILTER_PREPARE && node && data) {
    const zta::BaseDocument* doc = static_cast<zta::SceneFilterPrepare*>(data)->doc;
    zta::BaseContainer* bc = static_cast<zta::BaseList2D*>(node)->GetDataInstance();
    if (doc && !bc->GetBool(VDBEXPORT_SELECTION) && !rangeSet_) {
      const double fps = double(doc->GetFps());
      bc->SetInt32(VDBEXPORT_FIRST, zta::Int32(std::floor(doc->GetMinTime().Get() * fps)));
      bc->SetInt32(VDBEXPORT_LAST, zta::Int32(std::floor(doc->GetMaxTime().Get() * fps)));
    }
  }
  return SceneSaverData::HandleMessage(node, type, data);
}

bool OpenVDBSaverData::DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) {
  if (!node || !description) return false;
  if (!description->LoadDescription(static_cast<zta::BaseList2D*>(node)->GetType())) return false;
  flags |= zta::DESCFLAGS_DESC_LOADED;
  return true;
}

bool OpenVDBSaverData::SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                         zta::Int32& flags) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseList2D*>(node)->GetDataInstance();
  const zta::Int32 value = t_data.GetInt32();
  switch (id.GetId()) {
    case VDBEXPORT_FIRST:
      bc->SetInt32(VDBEXPORT_FIRST, value);
      if (value > bc->GetInt32(VDBEXPORT_LAST, kFallbackLastFrame)) bc->SetInt32(VDBEXPORT_LAST, value);
      rangeSet_ = true;
      flags |= zta::DESCFLAGS_SET_PARAM_SET;
      return true;
    case VDBEXPORT_LAST:
      bc->SetInt32(VDBEXPORT_LAST, value);
      if (value < bc->GetInt32(VDBEXPORT_FIRST)) bc->SetInt32(VDBEXPORT_FIRST, value);
      rangeSet_ = true;
      flags |= zta::DESCFLAGS_SET_PARAM_SET;
      return true;
    default: return SceneSaverData::SetParameterValue(node, id, t_data, flags);
  }
}

bool OpenVDBSaverData::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                          zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  if (!node) return false;
  switch (id.GetId()) {
    case VDBEXPORT_FIRST:
    case VDBEXPORT_LAST:
    case VDBEXPORT_NAMING: return static_cast<zta::BaseList2D*>(node)->GetDataInstance()->GetBool(VDBEXPORT_ANIMATION);
    default: return SceneSaverData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

zta::Int32 OpenVDBSaverData::SaveScene(zta::BaseList2D* node, zta::BaseDocument* doc, const Url& url,
                                       zta::Int32 flags, zta::SceneFilterRun& run) {
  if (!doc) return zta::FILEERROR_NODOCUMENT;
  if (!node) return zta::FILEERROR_WRONG_VALUE;
  const zta::BaseContainer* bc = node->GetDataInstance();
  SaverSettings settings;
  settings.animation = bc->GetBool(VDBEXPORT_ANIMATION);
  settings.selectionOnly = bc->GetBool(VDBEXPORT_SELECTION);
  settings.naming = bc->GetInt32(VDBEXPORT_NAMING);
  if (settings.animation) {
    settings.firstFrame = bc->GetInt32(VDBEXPORT_FIRST);
    settings.lastFrame = bc->GetInt32(VDBEXPORT_LAST, kFallbackLastFrame);
  } else {
    settings.firstFrame = settings.lastFrame = doc->GetTime().GetFrame(double(doc->GetFps()));
  }
  const auto unit = bc->GetCustomDataTyped<zta::UnitScaleData>(VDBEXPORT_UNIT);
  auto scale = unit && unit->IsValid() ? zta::CalculateTranslationScale(zta::GetDocumentUnit(doc), *unit)
                                       : zta::Result<zta::Float>(zta::IllegalArgumentError(""));
  if (!scale) {
    run.error = "unit scale could not be read";
    return zta::FILEERROR_WRONG_VALUE;
  }
  settings.scale = *scale;

  bool ok = false;
  if (!zta::IsInteractive() || !(flags & zta::SCENEFILTER_DIALOGSALLOWED)) {
    auto done = ExportFrames(settings, doc, url, run, nullptr);
    ok = bool(done);
    if (!done) run.error = done.GetError().GetMessage();
  } else {
    OpenVDBExportProgressDialog dialog(settings, doc, url, run);
    ok = dialog.Open(run.thread) && dialog.Succeeded();
    if (!ok) run.error = dialog.GetError() ? dialog.GetError()->GetMessage() : std::string("interrupted");
  }
  zta::StatusSetText(Text(ok ? kSavedResource : kNotSavedResource));
  doc->EventAdd();
  return ok ? zta::FILEERROR_NONE : zta::FILEERROR_WRITE;
}

}  // namespace zelmar
