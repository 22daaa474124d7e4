// The command data class of the volume commands and their registration.
#include <new>

#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"
#include "zelmar/volumecommands.h"

namespace zelmar {

namespace {

class VolumeCommandRecordImpl final : public zta::LegacyDataRecord {
 public:
  explicit VolumeCommandRecordImpl(VolumeCommandRecord r) : record(std::move(r)) {}
  VolumeCommandRecord record;
};

// The commands of this build, in table order.
const std::vector<VolumeCommandEntry>& Entries() {
  static const std::vector<VolumeCommandEntry> entries = {
      BooleCommandEntry(),
      CreatePlatonicVolumeCommandEntry(),
      CreateSphereVolumeCommandEntry(),
      FieldToVolumeCommandEntry(),
      FilterCommandEntry(),
      FogToSdfCommandEntry(),
      MeshToVolumeCommandEntry(),
      MixCommandEntry(),
      ParticlesToVolumeCommandEntry(),
      ResampleCommandEntry(),
      SdfFilterCommandEntry(),
      SdfToFogCommandEntry(),
      SplineToVolumeCommandEntry(),
      VolumeToMeshCommandEntry(),
  };
  return entries;
}

}  // namespace

Result<std::unique_ptr<zta::LegacyCommandDataInterface>> VolumeCommandData::Create() {
  std::unique_ptr<zta::LegacyCommandDataInterface> data(new (std::nothrow) VolumeCommandData());
  if (!data) return zta::OutOfMemoryError();
  return data;
}

Result<VolumeCommandRecord> VolumeCommandData::GetLegacyData(zta::Int index) const {
  const auto* r = static_cast<const VolumeCommandRecordImpl*>(GetRecord(index));
  if (!r) return zta::IllegalArgumentError({});
  try {
    return r->record;
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
}

Result<void> VolumeCommandData::SetLegacyData(zta::Int index, const VolumeCommandRecord& record) {
  auto* r = static_cast<VolumeCommandRecordImpl*>(GetRecord(index));
  if (!r) return zta::IllegalArgumentError({});
  r->record.volume = record.volume;
  r->record.outputIndex = record.outputIndex;
  try {
    r->record.inputs = record.inputs;
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  return zta::OK();
}

Result<zta::Int> VolumeCommandData::AppendLegacyData(const VolumeCommandRecord& record) {
  std::unique_ptr<VolumeCommandRecordImpl> r;
  try {
    r = std::make_unique<VolumeCommandRecordImpl>(record);
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  return AppendRecord(std::move(r));
}

std::vector<Volume> VolumeCommandData::GetResultVolumes() const {
  std::vector<Volume> out;
  for (zta::Int i = 0; i < GetLegacyDataCount(); ++i)
    out.push_back(static_cast<const VolumeCommandRecordImpl*>(GetRecord(i))->record.volume);
  return out;
}

const VolumeCommandSetting* VolumeCommandInfo::FindSetting(const std::string& name) const {
  for (const auto& s : settings)
    if (name == s.name) return &s;
  return nullptr;
}

const VolumeCommandSetting* VolumeCommandInfo::FindSetting(Int32 key) const {
  for (const auto& s : settings)
    if (s.key == key) return &s;
  return nullptr;
}

const std::vector<VolumeCommandInfo>& GetVolumeCommandInfos() {
  static const std::vector<VolumeCommandInfo> infos = [] {
    std::vector<VolumeCommandInfo> v;
    for (const auto& e : Entries()) v.push_back(*e.info);
    return v;
  }();
  return infos;
}

const VolumeCommandInfo* FindVolumeCommandInfo(const std::string& idOrShortName) {
  for (const auto& info : GetVolumeCommandInfos())
    if (idOrShortName == info.id || idOrShortName == info.shortName) return &info;
  return nullptr;
}

Result<std::unique_ptr<zta::BaseObject>> CreateVolumeObject(const Volume& volume) {
  std::unique_ptr<zta::BaseObject> op = VolumeObjectData::MakeObject(volume);
  if (!op) return zta::OutOfMemoryError("could not allocate a volume object");
  return op;
}

Volume GetObjectVolume(const zta::BaseObject* op) { return VolumeObjectData::GetVolume(op); }

Result<void> RegisterVolumeCommands() {
  auto& dataClasses = zta::LegacyCommandDataClasses();
  if (!dataClasses.Find(kVolumeCommandDataClass)) {
    if (auto r = dataClasses.Insert(kVolumeCommandDataClass, &VolumeCommandData::Create); !r) return r;
  }
  auto& commands = zta::CommandClasses();
  for (const auto& e : Entries()) {
    if (commands.Find(e.info->id)) continue;
    if (auto r = commands.Insert(e.info->id, e.command); !r) return r;
  }
  return zta::OK();
}

namespace {
// The host registers command classes as the program starts.
const Result<void> g_commandsRegistered = RegisterVolumeCommands();
}  // namespace

}  // namespace zelmar
