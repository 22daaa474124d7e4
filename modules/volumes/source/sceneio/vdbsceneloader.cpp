#include "modules/volumes/source/sceneio/vdbsceneloader.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/checklist.h"
#include "host/scene/parameters.h"
#include "host/scene/unitscale.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumesavehookinterface.h"
#include "modules/volumes/source/objects/volumesequence.h"
#include "modules/volumes/source/objects/volumeset.h"
#include "modules/volumes/source/scenehook/volumesavemanagerhook.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

namespace fs = std::filesystem;

constexpr zta::Int32 kNotSupportedResource = 10092;
// GetGridNamesFromFile marks a grid that cannot be loaded by its type after this.
constexpr char kTypeSeparator = '~';
constexpr const char* kNotSupported = "NotSupported";

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

bool AllDigits(const std::string& s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](unsigned char c) { return c >= '0' && c <= '9'; });
}

std::shared_ptr<const zta::CheckListData> GridList(const zta::BaseContainer* bc) {
  return bc->GetCustomDataTyped<zta::CheckListData>(VDBIMPORT_GRIDS);
}

zta::Int32 CountChecked(const zta::CheckListData* list) {
  zta::Int32 n = 0;
  for (zta::Int32 i = 0; list && i < list->GetCount(); ++i) n += list->IsChecked(i) ? 1 : 0;
  return n;
}

// A name for a new volume file, `base` or `base_1`, `base_2`, ..., that
// finds no file beside the document: an imported grid must not be replaced
// by a file of the same name that happens to lie there, and the file it was
// imported from is never the one the scene writes to.
// Grid names are free text: the name is first made a single safe file name.
std::string FreshFileName(const std::string& gridName, const zta::BaseDocument* doc) {
  std::string base = SafeVolumeFileName(gridName);
  base.resize(base.size() - 4);  // ".vdb"
  std::string name = base;
  for (int n = 1;; ++n) {
    Url probe(name + ".vdb");
    if (!VolumeObjectData::FindVolumeFile(probe, doc)) return name;
    name = zta::FormatString("@_@", base, n);
  }
}

}  // namespace

bool FindVDBSequence(const Url& url, VDBSequenceRecord* record) {
  *record = VDBSequenceRecord();
  if (!url.IsFile()) return false;
  const fs::path path(url.GetSystemPath());
  const SequenceName name = ParseSequenceName(path.filename().string());
  if (!name.valid) return false;
  record->prefix = name.prefix;
  record->suffix = name.suffix;
  record->digits = name.digits;
  const fs::path folder = path.parent_path().empty() ? fs::path(".") : path.parent_path();
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string file = it->path().filename().string();
    if (file.size() <= name.prefix.size() + name.suffix.size()) continue;
    if (file.compare(0, name.prefix.size(), name.prefix) != 0) continue;
    if (file.compare(file.size() - name.suffix.size(), name.suffix.size(), name.suffix) != 0) continue;
    const std::string number = file.substr(name.prefix.size(), file.size() - name.prefix.size() - name.suffix.size());
    // A number too long for a frame is no frame of ours.
    if (!AllDigits(number) || number.size() > 9) continue;
    std::error_code fileError;
    if (!it->is_regular_file(fileError)) continue;
    record->files[std::stoll(number)] = Url::FromSystemPath((folder / file).string());
  }
  if (record->files.empty()) return false;
  record->frameCount = zta::Int32(record->files.size());
  record->firstFrame = zta::Int32(record->files.begin()->first);
  record->lastFrame = zta::Int32(record->files.rbegin()->first);
  return true;
}

std::unique_ptr<zta::NodeData> OpenVDBLoaderData::Alloc() { return std::make_unique<OpenVDBLoaderData>(); }

bool OpenVDBLoaderData::InitNode(zta::GeListNode* node) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseList2D*>(node)->GetDataInstance();
  bc->SetCustomData(VDBIMPORT_GRIDS, std::make_shared<zta::CheckListData>());
  bc->SetBool(VDBIMPORT_SEQUENCE, false);
  bc->SetInt32(VDBIMPORT_FIRST, 0);
  bc->SetInt32(VDBIMPORT_LAST, 0);
  bc->SetBool(VDBIMPORT_AS_SET, false);
  bc->SetBool(VDBIMPORT_SELECT_GRIDS, true);
  bc->SetCustomData(VDBIMPORT_UNIT, std::make_shared<zta::UnitScaleData>(1.0, zta::DOCUMENTUNIT::CM));
  return true;
}

bool OpenVDBLoaderData::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (type == zta::MSG_SCENEFILTER_PREPARE && node && data)
    ReadFileInfo(static_cast<zta::BaseList2D*>(node), static_cast<zta::SceneFilterPrepare*>(data)->url);
  return SceneLoaderData::HandleMessage(node, type, data);
}

void OpenVDBLoaderData::ReadFileInfo(zta::BaseList2D* node, const Url& url) {
  zta::BaseContainer* bc = node->GetDataInstance();
  url_ = url;
  sequenceFound_ = FindVDBSequence(url, &sequence_);
  bc->SetBool(VDBIMPORT_SEQUENCE, sequenceFound_);
  bc->SetInt32(VDBIMPORT_FIRST, 0);
  bc->SetInt32(VDBIMPORT_LAST, std::max(sequence_.frameCount - 1, 0));

  auto list = std::make_shared<zta::CheckListData>();
  gridCount_ = 0;
  auto names = VolumeToolsInterface::GetGridNamesFromFile(url);
  if (names && !names->empty()) {
    std::vector<std::string> labels;
    std::vector<bool> supported;
    for (const std::string& listed : *names) {
      std::string name = listed;
      bool ok = true;
      const size_t cut = listed.rfind(kTypeSeparator);
      if (cut != std::string::npos) {
        const std::string typeText = listed.substr(cut + 1);
        if (typeText == kNotSupported) {
          name = zta::FormatString("@ (@)", listed.substr(0, cut), Text(kNotSupportedResource));
          ok = false;
        }
      }
      labels.push_back(name);
      supported.push_back(ok);
    }
    list->SetEntries(labels);
    for (size_t i = 0; i < supported.size(); ++i)
      if (!supported[i]) list->SetChecked(zta::Int32(i), false);
    gridCount_ = Int(labels.size());
  }
  bc->SetCustomData(VDBIMPORT_GRIDS, list);
  bc->SetBool(VDBIMPORT_AS_SET, list->GetCount() > 1);
}

bool OpenVDBLoaderData::DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) {
  if (!node || !description) return false;
  if (!description->LoadDescription(static_cast<zta::BaseList2D*>(node)->GetType())) return false;
  // The frame fields reach as far as the series does.
  if (sequenceFound_) {
    for (zta::Int32 id : {zta::Int32(VDBIMPORT_FIRST), zta::Int32(VDBIMPORT_LAST)}) {
      const zta::BaseContainer* settings = description->GetParameter(zta::DescID(id));
      if (!settings) continue;
      zta::BaseContainer s = *settings;
      s.SetFloat(zta::DESC_MAX, double(sequence_.frameCount - 1));
      description->SetParameter(zta::DescID(id), s);
    }
  }
  flags |= zta::DESCFLAGS_DESC_LOADED;
  return true;
}

bool OpenVDBLoaderData::SetParameterValue(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                          zta::Int32& flags) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseList2D*>(node)->GetDataInstance();
  switch (id.GetId()) {
    case VDBIMPORT_LAST: {
      zta::Int32 value = t_data.GetInt32();
      if (value >= sequence_.frameCount) value = sequence_.frameCount - 1;
      bc->SetInt32(VDBIMPORT_LAST, std::max(value, 0));
      // A first frame past the new last one follows it down.
      if (bc->GetInt32(VDBIMPORT_FIRST) > bc->GetInt32(VDBIMPORT_LAST))
        bc->SetInt32(VDBIMPORT_FIRST, bc->GetInt32(VDBIMPORT_LAST));
      flags |= zta::DESCFLAGS_SET_PARAM_SET;
      return true;
    }
    case VDBIMPORT_FIRST: {
      const zta::Int32 value = std::min(t_data.GetInt32(), bc->GetInt32(VDBIMPORT_LAST));
      bc->SetInt32(VDBIMPORT_FIRST, std::max(value, 0));
      flags |= zta::DESCFLAGS_SET_PARAM_SET;
      return true;
    }
    default: return SceneLoaderData::SetParameterValue(node, id, t_data, flags);
  }
}

bool OpenVDBLoaderData::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                           zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  if (!node) return false;
  const zta::BaseContainer* bc = static_cast<zta::BaseList2D*>(node)->GetDataInstance();
  const auto list = GridList(bc);
  const bool sequence = bc->GetBool(VDBIMPORT_SEQUENCE);
  const bool select = bc->GetBool(VDBIMPORT_SELECT_GRIDS);
  switch (id.GetId()) {
    case VDBIMPORT_GRIDS: return list && list->GetCount() > 0 && (select || sequence);
    case VDBIMPORT_SEQUENCE: return sequenceFound_;
    case VDBIMPORT_FIRST:
    case VDBIMPORT_LAST: return sequence;
    case VDBIMPORT_AS_SET: return !sequence && CountChecked(list.get()) >= 2 && select;
    case VDBIMPORT_SELECT_GRIDS: return !sequence;
    default: return SceneLoaderData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

bool OpenVDBLoaderData::IdentifyFile(zta::BaseList2D* node, const zta::String& name, const unsigned char* probe,
                                     zta::Int32 size) {
  url_ = Url::FromSystemPath(name);
  if (url_.GetSuffix() != "vdb") return false;
  return probe && size >= 4 && probe[1] == 'B' && probe[2] == 'D' && probe[3] == 'V';
}

zta::Result<zta::BaseObject*> OpenVDBLoaderData::CreateVolumeObject(zta::BaseDocument* doc, const Url& url,
                                                                    double scale, Int gridIndex) const {
  auto created = Volume::Create();
  if (!created) return created.GetError();
  Volume volume = *created;
  if (auto loaded = volume.LoadFromFile(url, scale, gridIndex); !loaded) return loaded.GetError();
  if (!volume.HasGrid()) return static_cast<zta::BaseObject*>(nullptr);
  std::unique_ptr<zta::BaseObject> made = VolumeObjectData::MakeObject(volume);
  if (!made) return zta::OutOfMemoryError("a volume object could not be made");
  const std::string gridName = volume.GetGridName();
  made->SetName(gridName);
  zta::BaseObject* op = made.release();
  op->InsertUnderLast(doc->GetObjectListHead());
  // Inside the document the save hook gives the new file a name that no
  // other object holds; the object adds the suffix.
  zta::SetParameter(op, zta::DescID(VOLUMEOBJECT_FILE), zta::GeData(FreshFileName(gridName, doc)));
  // Should the hook's name find a file after all, the grid read here stays.
  if (!(VolumeObjectData::GetVolume(op) == volume))
    if (auto* data = op->GetNodeData<VolumeObjectData>()) data->SetVolume(op, volume);
  return op;
}

zta::Int32 OpenVDBLoaderData::LoadScene(zta::BaseList2D* node, zta::BaseDocument* doc, const Url& url,
                                        zta::Int32 flags, zta::SceneFilterRun& run) {
  if (!node || !doc) return zta::FILEERROR_NODOCUMENT;
  const zta::BaseContainer* bc = node->GetDataInstance();
  const auto list = GridList(bc);
  const bool sequence = bc->GetBool(VDBIMPORT_SEQUENCE);
  const bool select = bc->GetBool(VDBIMPORT_SELECT_GRIDS);
  const auto unit = bc->GetCustomDataTyped<zta::UnitScaleData>(VDBIMPORT_UNIT);
  if (!unit || !unit->IsValid()) {
    run.error = "unit scale could not be read";
    return zta::FILEERROR_WRONG_VALUE;
  }
  auto scale = zta::CalculateTranslationScale(*unit, zta::GetDocumentUnit(doc));
  if (!scale) {
    run.error = scale.GetError().GetMessage();
    return zta::FILEERROR_WRONG_VALUE;
  }

  bool asSet = false;
  if (select && CountChecked(list.get()) > 1 && !sequence) asSet = bc->GetBool(VDBIMPORT_AS_SET);

  if (sequence) {
    if (!sequenceFound_ || url != url_) FindVDBSequence(url, &sequence_);
    std::unique_ptr<zta::BaseObject> made = zta::AllocObject(ID_VOLUMESEQUENCE);
    auto* data = made ? made->GetNodeData<VolumeSequence>() : nullptr;
    if (!data) {
      run.error = "a Volume Sequence could not be made";
      return zta::FILEERROR_OUTOFMEMORY;
    }
    made->SetName(sequence_.prefix.empty() ? fs::path(url.GetPath()).stem().string()
                                           : fs::path(sequence_.prefix).stem().string());
    zta::BaseContainer* sbc = made->GetDataInstance();
    sbc->SetString(SEQUENCE_FILE, url.ToString());
    sbc->SetInt32(SEQUENCE_FIRST, bc->GetInt32(VDBIMPORT_FIRST));
    sbc->SetInt32(SEQUENCE_LAST, bc->GetInt32(VDBIMPORT_LAST));
    sbc->SetCustomData(SEQUENCE_UNIT, std::make_shared<zta::UnitScaleData>(*unit));
    std::vector<std::string> names;
    std::vector<bool> on;
    for (zta::Int32 i = 0; list && i < list->GetCount(); ++i) {
      names.push_back(list->GetName(i));
      on.push_back(list->IsChecked(i));
    }
    data->InitSequenceFromLoader(made.get(), names, on);
    made.release()->InsertUnderLast(doc->GetObjectListHead());
  } else if (asSet) {
    std::unique_ptr<zta::BaseObject> made = zta::AllocObject(ID_VOLUMESET);
    if (!made) {
      run.error = "a Volume Set could not be made";
      return zta::FILEERROR_OUTOFMEMORY;
    }
    const std::string name = fs::path(url.GetPath()).stem().string();
    made->SetName(name);
    if (!zta::SetParameter(made.get(), zta::DescID(VOLUMESET_FILE), zta::GeData(url.ToString())) ||
        !zta::PressButton(made.get(), zta::DescID(VOLUMESET_RELOAD))) {
      run.error = zta::FormatString("the grids of @ could not be read", url.ToString());
      return zta::FILEERROR_READ;
    }
    zta::BaseObject* set = made.release();
    set->InsertUnderLast(doc->GetObjectListHead());
    // The set keeps its grids in a file of its own beside the scene: a save
    // never writes into the file that was imported.
    zta::SetParameter(set, zta::DescID(VOLUMESET_FILE), zta::GeData(FreshFileName(name, doc)));
  } else {
    std::vector<Int> indices;
    if (select) {
      for (zta::Int32 i = 0; list && i < list->GetCount(); ++i)
        if (list->IsChecked(i)) indices.push_back(i);
    } else {
      indices.push_back(0);
    }
    for (size_t k = 0; k < indices.size(); ++k) {
      if (run.TestBreak()) {
        run.error = "interrupted";
        return zta::FILEERROR_USERBREAK;
      }
      auto made = CreateVolumeObject(doc, url, *scale, indices[k]);
      // What was inserted so far stays.
      if (!made) {
        run.error = made.GetError().GetMessage();
        return zta::FILEERROR_READ;
      }
      run.SetProgress(double(k + 1) / double(indices.size()));
    }
  }
  doc->EventAdd();
  return zta::FILEERROR_NONE;
}

}  // namespace zelmar
