// The host's own node types by id.
#include "host/objects/fieldobjects.h"
#include "host/objects/particles.h"
#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/objects/primitives.h"
#include "host/objects/splineobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"

namespace zta {

std::unique_ptr<BaseObject> AllocPrimitive(Int32 type);
std::unique_ptr<BaseObject> AllocCloner();
std::unique_ptr<BaseObject> AllocSubdivision();

std::unique_ptr<BaseObject> AllocHostObject(Int32 type) {
  switch (type) {
    case HOST_TYPE_POLYGON: return PolygonObject::Alloc(0, 0);
    case HOST_TYPE_SPLINE: return SplineObject::Alloc(0, SPLINETYPE::LINEAR);
    case HOST_TYPE_LINE: return LineObject::Alloc(0);
    case HOST_TYPE_NULL: return BaseObject::AllocWithData(HOST_TYPE_NULL, nullptr, 0);
    case HOST_TYPE_EMITTER: return EmitterObject::Alloc();
    case HOST_TYPE_PARTICLE_GROUP: return ParticleGroupObject::Alloc();
    case HOST_TYPE_MATRIX: return MatrixObject::Alloc();
    case HOST_TYPE_SPHERE:
    case HOST_TYPE_CUBE: return AllocPrimitive(type);
    case HOST_TYPE_FIELD_OBJECT:
    case HOST_TYPE_FIELD_CARRIER: return FieldObject::Alloc(type);
    case HOST_TYPE_CLONER: return AllocCloner();
    case HOST_TYPE_SUBDIVISION: return AllocSubdivision();
    default: return nullptr;
  }
}

std::unique_ptr<BaseTag> AllocHostTag(Int32 type) {
  switch (type) {
    case HOST_TAG_POINT: return PointTag::Alloc(0);
    case HOST_TAG_POLYGON: return PolygonTag::Alloc(0);
    case HOST_TAG_UVW: return UVWTag::Alloc(0);
    case HOST_TAG_VERTEXMAP: return VertexMapTag::Alloc(0);
    case HOST_TAG_PHONG: return PhongTag::Alloc();
    default: return nullptr;
  }
}

const char* HostDescriptionName(Int32 type) {
  switch (type) {
    case HOST_TYPE_POLYGON: return "Opolygon";
    case HOST_TYPE_SPLINE: return "Ospline";
    case HOST_TYPE_LINE: return "Oline";
    case HOST_TYPE_NULL: return "Onull";
    case HOST_TYPE_EMITTER: return "Oemitter";
    case HOST_TYPE_PARTICLE_GROUP: return "Oparticlegroup";
    case HOST_TYPE_MATRIX: return "Omatrix";
    case HOST_TYPE_SPHERE: return "Osphere";
    case HOST_TYPE_CUBE: return "Ocube";
    case HOST_TYPE_FIELD_OBJECT: return "Ofield";
    case HOST_TYPE_FIELD_CARRIER: return "Ofieldcarrier";
    case HOST_TYPE_CLONER: return "Ocloner";
    case HOST_TYPE_SUBDIVISION: return "Osds";
    case HOST_TAG_POINT: return "Tpoint";
    case HOST_TAG_POLYGON: return "Tpolygon";
    case HOST_TAG_UVW: return "Tuvw";
    case HOST_TAG_VERTEXMAP: return "Tvertexmap";
    case HOST_TAG_PHONG: return "Tphong";
    default: return nullptr;
  }
}

}  // namespace zta
