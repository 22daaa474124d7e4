#include "modules/volumes/source/objects/volumebuildertag.h"

#include <new>
#include <utility>
#include <vector>

#include "host/fields/splinedata.h"
#include "host/scene/basecontainer.h"
#include "host/scene/basedocument.h"
#include "host/scene/hosttypes.h"
#include "host/scene/messages.h"
#include "host/scene/plugins.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "zelmar/volume.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kTagInfo = 0x30000003;
constexpr zta::Int32 kTagNameResource = 10007;
constexpr zta::Int32 kMsgInitialize = 63;
constexpr zta::Int32 kSphereTypeParameter = 1112;
constexpr zta::Int32 kSphereTypeExcluded = 5;
constexpr zta::Int32 kGeneratorInfo = zta::OBJECT_GENERATOR | zta::OBJECT_INPUT;

std::string Text(zta::Int32 id) { return GetModuleResource().Get(id); }

}  // namespace

std::unique_ptr<zta::NodeData> VolumeBuilderTag::Alloc() {
  return std::unique_ptr<zta::NodeData>(new (std::nothrow) VolumeBuilderTag());
}

bool VolumeBuilderTag::Register() {
  return zta::RegisterTagPlugin(ID_VOLUMEBUILDERTAG, Text(kTagNameResource), kTagInfo, &VolumeBuilderTag::Alloc,
                                "tvolumebuilder", 0);
}

bool VolumeBuilderTag::InitNode(zta::GeListNode* node) {
  if (!node) return false;
  zta::BaseContainer* bc = static_cast<zta::BaseList2D*>(node)->GetDataInstance();
  bc->SetFloat(VOLUMEBUILDERTAG_RADIUS, 15.0);
  bc->SetFloat(VOLUMEBUILDERTAG_VELOCITYSCALE, 0.0);
  bc->SetFloat(VOLUMEBUILDERTAG_SPLINEDENSITY, 0.1);
  bc->SetBool(VOLUMEBUILDERTAG_PARTICLEGROUP, false);
  bc->SetBool(VOLUMEBUILDERTAG_CONFIGURED, false);
  bc->SetInt32(VOLUMEBUILDERTAG_PARTICLEMODE, 0);
  bc->SetInt32(VOLUMEBUILDERTAG_INTERIORBAND, 1);
  bc->SetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE, false);
  bc->SetFloat(VOLUMEBUILDERTAG_FOGTHRESHOLD, 0.5);
  bc->SetVector(VOLUMEBUILDERTAG_BOXSIZE, zta::Vector(200.0, 200.0, 200.0));
  bc->SetVector(VOLUMEBUILDERTAG_BOXROTATION, zta::Vector());
  bc->SetInt32(VOLUMEBUILDERTAG_FIELDSOURCE, 0);
  bc->SetFloat(VOLUMEBUILDERTAG_INTERIORDISTANCE, 15.0);
  bc->SetBool(VOLUMEBUILDERTAG_CLOSEHOLES, false);
  bc->SetBool(VOLUMEBUILDERTAG_FILLINTERIOR, false);
  bc->SetBool(VOLUMEBUILDERTAG_ASPRIMITIVE, false);
  bc->SetInt32(VOLUMEBUILDERTAG_VECTORMODE, 0);
  bc->SetInt32(VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND, 2);
  bc->SetInt32(VOLUMEBUILDERTAG_VECTOR_INTERIORBAND, 2);
  bc->SetInt32(VOLUMEBUILDERTAG_VECTOR_SPLINEBAND, 2);
  bc->SetInt32(VOLUMEBUILDERTAG_VECTOR_PARTICLEBAND, 2);
  bc->SetCustomData(VOLUMEBUILDERTAG_RADIUSCURVE, zta::SplineData::MakeLinear());
  bc->SetBool(VOLUMEBUILDERTAG_USERADIUSCURVE, false);
  bc->SetVector(VOLUMEBUILDERTAG_BOXPOSITION, zta::Vector());
  HandleMessage(node, kMsgInitialize, nullptr);
  return true;
}

bool VolumeBuilderTag::CopyNode(zta::NodeData* dest, const zta::GeListNode*, zta::GeListNode*, zta::Int32,
                                zta::AliasTrans*) const {
  auto* d = dynamic_cast<VolumeBuilderTag*>(dest);
  if (!d) return false;
  d->isChild = isChild;
  d->kindMask = kindMask;
  return true;
}

bool VolumeBuilderTag::HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) {
  if (!node) return false;
  auto* tag = static_cast<zta::BaseTag*>(node);
  // The icon is the builder's, whose type decides it.
  if (type == MSG_GETCUSTOMICON) {
    if (zta::BaseObject* owner = tag->GetObject()) return owner->Message(type, data);
  }
  return true;
}

bool VolumeBuilderTag::DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) {
  if (!node || !description) return false;
  auto* tag = static_cast<zta::BaseList2D*>(node);
  if (tag->GetType() != ID_VOLUMEBUILDERTAG) return false;
  if (!description->LoadDescription(ID_VOLUMEBUILDERTAG)) return false;
  const zta::BaseContainer* bc = tag->GetDataInstance();
  const zta::Int32 m = kindMask;
  auto hide = [&](zta::Int32 id) { description->Hide(zta::DescID(id)); };
  if (!(m & INPUTKIND_SPHERE)) hide(VOLUMEBUILDERTAG_ASPRIMITIVE);
  if (!(m & (INPUTKIND_SDF | INPUTKIND_FIELD))) hide(VOLUMEBUILDERTAG_FOGTHRESHOLD);
  const bool field = (m & INPUTKIND_FIELD) != 0;
  if (!field) hide(VOLUMEBUILDERTAG_FIELDSOURCE);
  const zta::Int32 source = bc->GetInt32(VOLUMEBUILDERTAG_FIELDSOURCE);
  if (!field || source == 0) {
    hide(VOLUMEBUILDERTAG_REFERENCEGROUP);
    hide(VOLUMEBUILDERTAG_REFERENCE);
    hide(VOLUMEBUILDERTAG_CREATEREFERENCE);
  }
  if (source == 2) hide(VOLUMEBUILDERTAG_BOXSIZE);
  if (!(m & INPUTKIND_POLYGON)) {
    for (zta::Int32 id : {VOLUMEBUILDERTAG_USEINTERIORDISTANCE, VOLUMEBUILDERTAG_INTERIORDISTANCE,
                          VOLUMEBUILDERTAG_CLOSEHOLES, VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND,
                          VOLUMEBUILDERTAG_VECTOR_INTERIORBAND})
      hide(id);
  }
  if (!(m & INPUTKIND_SPLINE)) {
    for (zta::Int32 id : {VOLUMEBUILDERTAG_SPLINEDENSITY, VOLUMEBUILDERTAG_VECTOR_SPLINEBAND,
                          VOLUMEBUILDERTAG_USERADIUSCURVE, VOLUMEBUILDERTAG_RADIUSCURVE})
      hide(id);
  }
  if (m & INPUTKIND_SPLINEGENERATOR) {
    hide(VOLUMEBUILDERTAG_USERADIUSCURVE);
    hide(VOLUMEBUILDERTAG_RADIUSCURVE);
  }
  if (!(m & INPUTKIND_PARTICLES)) {
    hide(VOLUMEBUILDERTAG_VELOCITYSCALE);
    hide(VOLUMEBUILDERTAG_VECTOR_PARTICLEBAND);
    if (!(m & INPUTKIND_MATRIX)) hide(VOLUMEBUILDERTAG_PARTICLEMODE);
  }
  if (!((m & INPUTKIND_SPLINE) && !(m & INPUTKIND_SPLINEGENERATOR))) {
    if (!(m & (INPUTKIND_PARTICLES | INPUTKIND_MATRIX))) hide(VOLUMEBUILDERTAG_RADIUS);
    if (!(m & INPUTKIND_POLYGON)) {
      hide(VOLUMEBUILDERTAG_FILLINTERIOR);
      hide(VOLUMEBUILDERTAG_VECTORMODE);
      if (!(m & INPUTKIND_SPLINEGENERATOR)) hide(VOLUMEBUILDERTAG_INTERIORBAND);
    }
  }
  flags |= zta::DESCFLAGS_DESC_LOADED;
  return true;
}

bool VolumeBuilderTag::IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data,
                                          zta::Int32 flags, const zta::BaseContainer* itemdesc) {
  auto* tag = static_cast<zta::BaseList2D*>(node);
  if (!tag) return false;
  const zta::BaseContainer* bc = tag->GetDataInstance();
  const bool primitive = bc->GetBool(VOLUMEBUILDERTAG_ASPRIMITIVE);
  switch (id.GetId()) {
    case VOLUMEBUILDERTAG_INTERIORBAND: return !bc->GetBool(VOLUMEBUILDERTAG_FILLINTERIOR);
    case VOLUMEBUILDERTAG_USEINTERIORDISTANCE: return !primitive;
    case VOLUMEBUILDERTAG_BOXROTATION:
    case VOLUMEBUILDERTAG_BOXPOSITION:
    case VOLUMEBUILDERTAG_CREATEREFERENCE:
      return bc->GetLink(VOLUMEBUILDERTAG_REFERENCE, tag->GetDocument()) == nullptr;
    case VOLUMEBUILDERTAG_INTERIORDISTANCE: return bc->GetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE) && !primitive;
    case VOLUMEBUILDERTAG_CLOSEHOLES: return !bc->GetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE) && !primitive;
    default: return TagData::IsParameterEnabled(node, id, t_data, flags, itemdesc);
  }
}

void ApplyVoxelSize(zta::BaseTag* tag, double voxelSize) {
  if (!tag) return;
  zta::BaseContainer* bc = tag->GetDataInstance();
  const double box = voxelSize * 20.0;
  bc->SetVector(VOLUMEBUILDERTAG_BOXSIZE, zta::Vector(box, box, box));
  bc->SetFloat(VOLUMEBUILDERTAG_RADIUS, voxelSize * 1.5);
  bc->SetFloat(VOLUMEBUILDERTAG_INTERIORDISTANCE, voxelSize * 1.5);
  if (voxelSize != 0.0) bc->SetFloat(VOLUMEBUILDERTAG_SPLINEDENSITY, (10.0 / voxelSize) * 0.1);
}

zta::BaseTag* CreateTag(zta::BaseObject* builder, zta::BaseObject* input, zta::Int32 kindMask) {
  if (!builder || !input) return nullptr;
  std::unique_ptr<zta::BaseTag> made = zta::BaseTag::Alloc(ID_VOLUMEBUILDERTAG);
  if (!made) return nullptr;
  zta::BaseContainer* bc = made->GetDataInstance();
  bc->SetInt32(VOLUMEBUILDERTAG_KINDMASK, kindMask);
  bc->SetLink(VOLUMEBUILDERTAG_INPUT, input);
  bc->SetBool(VOLUMEBUILDERTAG_PARTICLEGROUP, input->GetType() == zta::HOST_TYPE_PARTICLE_GROUP);
  bc->SetBool(VOLUMEBUILDERTAG_CONFIGURED, true);
  ApplyVoxelSize(made.get(), builder->GetDataInstance()->GetFloat(6000, 10.0));
  if (auto* data = made->GetNodeData<VolumeBuilderTag>()) data->kindMask = kindMask;
  made->SetName(input->GetName() + " settings");
  zta::BaseTag* last = builder->GetFirstTag();
  while (last && last->GetNext()) last = last->GetNext();
  zta::BaseTag* tag = made.release();
  builder->InsertTag(tag, last);
  return tag;
}

zta::BaseTag* FindTag(const zta::BaseObject* builder, const zta::BaseObject* input) {
  if (!builder || !input) return nullptr;
  for (zta::BaseTag* tag = builder->GetFirstTag(); tag; tag = tag->GetNext()) {
    if (tag->GetType() != ID_VOLUMEBUILDERTAG) continue;
    const zta::GeData* link = tag->GetDataInstance()->GetDataPointer(VOLUMEBUILDERTAG_INPUT);
    if (link && link->GetBaseLink().GetMarker() == input->GetMarker()) return tag;
  }
  return nullptr;
}

InputSettings ReadInputSettings(const zta::BaseTag* tag) {
  InputSettings s;
  if (!tag) return s;
  const zta::BaseContainer* bc = tag->GetDataInstance();
  s.radius = bc->GetFloat(VOLUMEBUILDERTAG_RADIUS, 15.0);
  s.interiorDistance = bc->GetFloat(VOLUMEBUILDERTAG_INTERIORDISTANCE, 15.0);
  s.velocityScale = bc->GetFloat(VOLUMEBUILDERTAG_VELOCITYSCALE, 0.0);
  s.splineDensity = bc->GetFloat(VOLUMEBUILDERTAG_SPLINEDENSITY, 0.1);
  s.particleMode = bc->GetInt32(VOLUMEBUILDERTAG_PARTICLEMODE, 0);
  s.fillInterior = bc->GetBool(VOLUMEBUILDERTAG_FILLINTERIOR);
  s.storedBand = bc->GetInt32(VOLUMEBUILDERTAG_INTERIORBAND, 2);
  s.interiorBand = s.fillInterior ? 2147483647 : s.storedBand;
  s.useInteriorDistance = bc->GetBool(VOLUMEBUILDERTAG_USEINTERIORDISTANCE);
  s.boxPosition = bc->GetVector(VOLUMEBUILDERTAG_BOXPOSITION);
  s.boxSize = bc->GetVector(VOLUMEBUILDERTAG_BOXSIZE, zta::Vector(200.0, 200.0, 200.0));
  s.boxRotation = bc->GetVector(VOLUMEBUILDERTAG_BOXROTATION);
  s.referenceObject =
      static_cast<zta::BaseObject*>(bc->GetLink(VOLUMEBUILDERTAG_REFERENCE, tag->GetDocument(), zta::HOST_TYPE_OBJECT));
  s.fogThreshold = bc->GetFloat(VOLUMEBUILDERTAG_FOGTHRESHOLD, 0.5);
  s.fieldSource = bc->GetInt32(VOLUMEBUILDERTAG_FIELDSOURCE, 0);
  s.closeHoles = bc->GetBool(VOLUMEBUILDERTAG_CLOSEHOLES);
  s.asPrimitive = bc->GetBool(VOLUMEBUILDERTAG_ASPRIMITIVE);
  if (auto* data = tag->GetNodeData<VolumeBuilderTag>()) s.kindMask = data->kindMask;
  switch (bc->GetInt32(VOLUMEBUILDERTAG_VECTORMODE, 0)) {
    case 1: s.vectorMode = 2; break;
    case 2: s.vectorMode = 3; break;
    default: s.vectorMode = 1; break;
  }
  s.vectorExteriorBand = bc->GetInt32(VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND, 2);
  s.vectorInteriorBand = bc->GetInt32(VOLUMEBUILDERTAG_VECTOR_INTERIORBAND, 2);
  s.vectorSplineBand = bc->GetInt32(VOLUMEBUILDERTAG_VECTOR_SPLINEBAND, 2);
  s.vectorParticleBand = bc->GetInt32(VOLUMEBUILDERTAG_VECTOR_PARTICLEBAND, 2);
  s.radiusCurve = bc->GetCustomDataTyped<zta::SplineData>(VOLUMEBUILDERTAG_RADIUSCURVE);
  s.useRadiusCurve = bc->GetBool(VOLUMEBUILDERTAG_USERADIUSCURVE);
  return s;
}

bool IsParticleSource(const zta::BaseObject* op) {
  if (!op) return false;
  return op->GetType() == zta::HOST_TYPE_PARTICLE_GROUP || (op->GetType() == zta::HOST_TYPE_EMITTER && !op->GetDown());
}

bool IsFieldCarrier(const zta::BaseObject* op) {
  return op && (op->GetType() == zta::HOST_TYPE_FIELD_CARRIER || (op->GetInfo() & zta::OBJECT_FIELDCARRIER) != 0);
}

bool IsActiveGenerator(const zta::BaseObject* op) {
  return op && (op->GetInfo() & kGeneratorInfo) == kGeneratorInfo && op->GetDeformMode();
}

zta::Int32 ComputeKindMask(const zta::BaseObject* object) {
  if (!object) return 0;
  zta::Int32 mask = 0;
  // (object, depth): a cache is pushed with a negative depth so that nothing
  // inside it counts as top level.
  std::vector<std::pair<const zta::BaseObject*, zta::Int32>> stack{{object, 0}};
  while (!stack.empty()) {
    auto [op, depth] = stack.back();
    stack.pop_back();
    if (!op) continue;
    if (depth != 0 && op->GetNext()) stack.emplace_back(op->GetNext(), depth);
    const zta::Int32 type = op->GetType();
    if (IsFieldCarrier(op) && depth == 0) {
      mask |= INPUTKIND_FIELD;
      break;
    }
    switch (type) {
      case zta::HOST_TYPE_POLYGON: mask |= INPUTKIND_POLYGON; break;
      case zta::HOST_TYPE_SPLINE:
      case zta::HOST_TYPE_LINE: mask |= INPUTKIND_SPLINE; break;
      case zta::HOST_TYPE_SPLINE_GENERATOR:
        mask |= INPUTKIND_SPLINE;
        if (depth == 0) mask |= INPUTKIND_SPLINEGENERATOR;
        break;
      case zta::HOST_TYPE_MATRIX: mask |= INPUTKIND_MATRIX; break;
      case zta::HOST_TYPE_SPHERE:
        if (depth == 0 && op->GetDataInstance()->GetInt32(kSphereTypeParameter) != kSphereTypeExcluded)
          mask |= INPUTKIND_SPHERE;
        break;
      case ID_VOLUMEOBJECT: {
        const Volume v = VolumeObjectData::GetVolume(op);
        if (!v.HasGrid()) break;
        const GRIDTYPE t = v.GetGridType();
        if (t == GRIDTYPE::VEC3I || t == GRIDTYPE::VEC3S || t == GRIDTYPE::VEC3D)
          mask |= INPUTKIND_VECTOR;
        else if (v.GetGridClass() == GRIDCLASS::SDF)
          mask |= INPUTKIND_SDF;
        else if (t == GRIDTYPE::FLOAT)
          mask |= INPUTKIND_FOG;
        break;
      }
      default: break;
    }
    if (IsParticleSource(op)) mask |= INPUTKIND_PARTICLES;
    if (op->GetDown() && !IsActiveGenerator(op)) stack.emplace_back(op->GetDown(), depth >= 0 ? depth + 1 : depth);
    if (op->GetCache() && type != zta::HOST_TYPE_MATRIX && type != zta::HOST_TYPE_SPLINE_GENERATOR)
      stack.emplace_back(op->GetCache(), -1);
  }
  return mask;
}

}  // namespace zelmar
