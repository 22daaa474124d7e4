#include "modules/volumes/source/objects/volumeobject.h"

#include <iterator>
#include <new>

#include "host/core/format.h"
#include "host/scene/plugins.h"
#include "modules/volumes/source/main.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kInfoFlags = 0x20008000;
constexpr zta::Int32 kDiskLevel = 1;
constexpr zta::Int32 kNameResource = 10001;
constexpr zta::Int32 kVoxelsLabelResource = 10060;
constexpr zta::Int32 kMemoryLabelResource = 10061;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

zta::Int32 TypeResource(GRIDTYPE type) {
  switch (type) {
    case GRIDTYPE::FLOAT: return 10033;
    case GRIDTYPE::DOUBLE: return 10034;
    case GRIDTYPE::INT32: return 10035;
    case GRIDTYPE::INT64: return 10036;
    case GRIDTYPE::VEC3I: return 10040;
    case GRIDTYPE::VEC3S: return 10039;
    case GRIDTYPE::VEC3D: return 10038;
    case GRIDTYPE::STRING: return 10041;
    case GRIDTYPE::BOOL: return 10037;
    case GRIDTYPE::NONE: break;
  }
  return 0;
}

zta::Int32 ClassResource(GRIDCLASS gridClass) {
  switch (gridClass) {
    case GRIDCLASS::SDF: return 10042;
    case GRIDCLASS::FOG: return 10043;
    case GRIDCLASS::STAGGERED: return 10044;
    case GRIDCLASS::UNKNOWN: return 10045;
    case GRIDCLASS::NONE: break;
  }
  return 0;
}

// 1234567 as "1,234,567".
std::string Grouped(Int value) {
  const std::string digits = std::to_string(value < 0 ? -value : value);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return value < 0 ? "-" + out : out;
}

}  // namespace

std::unique_ptr<zta::NodeData> VolumeObjectData::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeObjectData());
}

bool VolumeObjectData::Register() {
  return zta::RegisterObjectPlugin(ID_VOLUMEOBJECT, Text(kNameResource), kInfoFlags, &VolumeObjectData::Alloc,
                                   "ovolume", kDiskLevel);
}

bool VolumeObjectData::InitNode(zta::GeListNode* node) {
  auto* op = static_cast<zta::BaseList2D*>(node);
  if (zta::BaseContainer* flags = op->GetDataInstance()->GetContainerInstance(VOLUMEOBJECT_HOSTFLAGS))
    flags->SetBool(1, true);
  return true;
}

bool VolumeObjectData::CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode,
                                zta::Int32 flags, zta::AliasTrans* trans) const {
  auto* target = dynamic_cast<VolumeObjectData*>(dest);
  if (!target) return false;
  if (!ObjectData::CopyNode(dest, snode, dnode, flags, trans)) return false;
  // The copy shares the grid until a change makes one of them unique.
  target->volume_ = volume_;
  target->boundsMin_ = boundsMin_;
  target->boundsMax_ = boundsMax_;
  target->lastMatrix_ = lastMatrix_;
  target->displayDirty_ = true;
  return true;
}

void VolumeObjectData::GetObjectBounds(zta::BaseObject* op, zta::Vector* mp, zta::Vector* rad) {
  if (mp) *mp = (boundsMin_ + boundsMax_) * 0.5;
  if (!rad) return;
  const bool empty = boundsMax_.x < boundsMin_.x || boundsMax_.y < boundsMin_.y || boundsMax_.z < boundsMin_.z;
  *rad = empty ? zta::Vector(0.0) : (boundsMax_ - boundsMin_) * 0.5;
}

void VolumeObjectData::SetVolume(zta::BaseObject* op, const Volume& volume) {
  volume_ = volume;
  if (op) {
    SyncMatrixFromGrid(op);
    zta::BaseContainer* bc = op->GetDataInstance();
    bc->SetString(VOLUMEOBJECT_INFO_TYPE, InfoTypeText(volume_));
    bc->SetString(VOLUMEOBJECT_INFO_SIZE, InfoSizeText(volume_));
    lastMatrix_ = op->GetMg();
  }
  // The box is in index space, which is the object's own space once the
  // object stands where the grid's transform puts it.
  const BoundingBox& box = volume_.GetWorldBoundingBox();
  boundsMin_ = box.min;
  boundsMax_ = box.max;
  displayDirty_ = true;
}

void VolumeObjectData::SyncMatrixFromGrid(zta::BaseObject* op) const {
  // SetMl takes the frozen matrix out with its inverse.
  op->SetMl(volume_.HasGrid() ? volume_.GetGridTransform() : zta::Matrix());
}

Volume VolumeObjectData::GetVolume(const zta::BaseObject* op) {
  if (!op || op->GetType() != ID_VOLUMEOBJECT) return Volume();
  const auto* data = op->GetNodeData<VolumeObjectData>();
  return data ? data->volume_ : Volume();
}

std::unique_ptr<zta::BaseObject> VolumeObjectData::MakeObject(const Volume& volume) {
  std::unique_ptr<zta::BaseObject> op = zta::BaseObject::Alloc(ID_VOLUMEOBJECT);
  if (!op) return nullptr;
  auto* data = op->GetNodeData<VolumeObjectData>();
  if (!data) return nullptr;
  data->SetVolume(op.get(), volume);
  return op;
}

std::string VolumeObjectData::InfoTypeText(const Volume& volume) {
  return Text(TypeResource(volume.GetGridType())) + " " + Text(ClassResource(volume.GetGridClass()));
}

std::string VolumeObjectData::InfoSizeText(const Volume& volume) {
  static const char* const kUnits[] = {"kb", "mb", "gb"};
  Int size = volume.HasGrid() ? volume.GetMemUsage() / 1024 : 0;
  size_t unit = 0;
  while (size > 2048 && unit + 1 < std::size(kUnits)) {
    size /= 1024;
    ++unit;
  }
  return zta::FormatString("@: @   @: ~@ @ ", Text(kVoxelsLabelResource), Grouped(volume.GetActiveVoxelCount()),
                           Text(kMemoryLabelResource), size, kUnits[unit]);
}

}  // namespace zelmar
