#pragma once
// VolumeBuilderTag (1039860): the conversion settings of one input of a
// Volume Builder. The tag sits on the builder, one per input, and names its
// input by the link in VOLUMEBUILDERTAG_INPUT, which is all that finds it
// again after a reload. InputSettings is one read of it for a rebuild.
#include <memory>

#include "host/core/math.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"

namespace zta {
class SplineData;
}

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMEBUILDERTAG = 1039860,

  VOLUMEBUILDERTAG_INPUT = 7000,
  VOLUMEBUILDERTAG_KINDMASK = 7001,
  VOLUMEBUILDERTAG_RADIUS = 7002,
  VOLUMEBUILDERTAG_VELOCITYSCALE = 7003,
  VOLUMEBUILDERTAG_GROUPSTART = 7004,
  VOLUMEBUILDERTAG_SPLINEDENSITY = 7005,
  VOLUMEBUILDERTAG_PARTICLEGROUP = 7006,
  VOLUMEBUILDERTAG_CONFIGURED = 7008,
  VOLUMEBUILDERTAG_PARTICLEMODE = 7009,
  VOLUMEBUILDERTAG_INTERIORBAND = 7011,
  VOLUMEBUILDERTAG_USEINTERIORDISTANCE = 7014,
  VOLUMEBUILDERTAG_FOGTHRESHOLD = 7015,
  VOLUMEBUILDERTAG_BOXSIZE = 7017,
  VOLUMEBUILDERTAG_BOXROTATION = 7018,
  VOLUMEBUILDERTAG_REFERENCE = 7019,
  VOLUMEBUILDERTAG_FIELDSOURCE = 7020,
  VOLUMEBUILDERTAG_INTERIORDISTANCE = 7021,
  VOLUMEBUILDERTAG_CLOSEHOLES = 7022,
  VOLUMEBUILDERTAG_FILLINTERIOR = 7023,
  VOLUMEBUILDERTAG_ASPRIMITIVE = 7024,
  VOLUMEBUILDERTAG_VECTORMODE = 7025,
  VOLUMEBUILDERTAG_VECTOR_EXTERIORBAND = 7026,
  VOLUMEBUILDERTAG_VECTOR_INTERIORBAND = 7027,
  VOLUMEBUILDERTAG_VECTOR_SPLINEBAND = 7028,
  VOLUMEBUILDERTAG_VECTOR_PARTICLEBAND = 7029,
  VOLUMEBUILDERTAG_RADIUSCURVE = 7030,
  VOLUMEBUILDERTAG_USERADIUSCURVE = 7031,
  VOLUMEBUILDERTAG_BOXPOSITION = 7032,
  VOLUMEBUILDERTAG_REFERENCEGROUP = 7033,
  VOLUMEBUILDERTAG_CREATEREFERENCE = 7034,
};

// Bits of the input kind mask: what an input's hierarchy holds.
enum : zta::Int32 {
  INPUTKIND_POLYGON = 1,
  INPUTKIND_SPLINE = 2,
  INPUTKIND_PARTICLES = 4,
  INPUTKIND_FOG = 8,
  INPUTKIND_SDF = 16,
  INPUTKIND_FIELD = 32,
  INPUTKIND_MATRIX = 64,
  INPUTKIND_SPHERE = 128,
  INPUTKIND_SPLINEGENERATOR = 256,
  INPUTKIND_VECTOR = 512,
};

// One read of an input's tag, with the tag's defaults; an input without a tag
// reads as defaults.
struct InputSettings {
  double radius = 15.0;
  double interiorDistance = 15.0;
  double velocityScale = 0.0;
  double splineDensity = 1.0;
  zta::Int32 particleMode = 0;
  zta::Int32 interiorBand = 2;
  // VOLUMEBUILDERTAG_INTERIORBAND as stored, also when the interior is filled:
  // the outward band of a fog mesh, which must stay finite.
  zta::Int32 storedBand = 2;
  bool useInteriorDistance = false;
  zta::Vector boxPosition;
  zta::Vector boxSize{200.0, 200.0, 200.0};
  zta::Vector boxRotation;
  zta::BaseObject* referenceObject = nullptr;
  double fogThreshold = 0.001;
  zta::Int32 fieldSource = 0;
  bool closeHoles = false;
  bool fillInterior = false;
  bool asPrimitive = false;
  zta::Int32 kindMask = 0;
  // 1 SDF, 2 fog, 3 direct.
  zta::Int32 vectorMode = 1;
  zta::Int32 vectorExteriorBand = 2;
  zta::Int32 vectorInteriorBand = 2;
  zta::Int32 vectorSplineBand = 2;
  zta::Int32 vectorParticleBand = 2;
  std::shared_ptr<const zta::SplineData> radiusCurve;
  bool useRadiusCurve = false;
};

class VolumeBuilderTag : public zta::TagData {
 public:
  static std::unique_ptr<zta::NodeData> Alloc();
  static bool Register();

  bool InitNode(zta::GeListNode* node) override;
  bool CopyNode(zta::NodeData* dest, const zta::GeListNode* snode, zta::GeListNode* dnode, zta::Int32 flags,
                zta::AliasTrans* trans) const override;
  bool HandleMessage(zta::GeListNode* node, zta::Int32 type, void* data) override;
  bool DescribeParameters(zta::GeListNode* node, zta::Description* description, zta::Int32& flags) override;
  bool IsParameterEnabled(zta::GeListNode* node, const zta::DescID& id, const zta::GeData& t_data, zta::Int32 flags,
                          const zta::BaseContainer* itemdesc) override;

  bool isChild = false;
  zta::Int32 kindMask = 0;
};

// Scales a new tag's defaults to the builder's voxel size.
void ApplyVoxelSize(zta::BaseTag* tag, double voxelSize);
// Makes the settings tag of `input` on `builder` (last of its tags); null when
// it cannot be made.
zta::BaseTag* CreateTag(zta::BaseObject* builder, zta::BaseObject* input, zta::Int32 kindMask);
// The settings tag of `input` on `builder`, or null.
zta::BaseTag* FindTag(const zta::BaseObject* builder, const zta::BaseObject* input);
// Reads a tag; null reads as the defaults of an input without a tag.
InputSettings ReadInputSettings(const zta::BaseTag* tag);

// What an input's hierarchy holds (children and the caches of generators), as
// INPUTKIND_* bits.
zta::Int32 ComputeKindMask(const zta::BaseObject* op);
// Particle sources: particle groups, and emitters without children.
bool IsParticleSource(const zta::BaseObject* op);
// Objects that carry a field list.
bool IsFieldCarrier(const zta::BaseObject* op);
// An enabled generator that consumes its children.
bool IsActiveGenerator(const zta::BaseObject* op);

}  // namespace zelmar
