#pragma once
// Host primitives: generators whose cache is a polygon object built from
// their parameters. The sphere (5160) and the cube (5159).
#include <memory>

#include "host/objects/polygonobject.h"

namespace zta {

enum : Int32 {
  PRIM_CUBE_LEN = 1100,       // vector, edge lengths
  PRIM_CUBE_SUBX = 1102,      // int32, segments along each axis
  PRIM_CUBE_SUBY = 1103,
  PRIM_CUBE_SUBZ = 1104,
  PRIM_SPHERE_RAD = 1110,     // float
  PRIM_SPHERE_SUB = 1111,     // int32, segments
  PRIM_SPHERE_TYPE = 1112,    // int32, PRIM_SPHERE_TYPE_*
};

enum : Int32 {
  PRIM_SPHERE_TYPE_STANDARD = 0,
  PRIM_SPHERE_TYPE_TETRA = 1,
  PRIM_SPHERE_TYPE_HEXA = 2,
  PRIM_SPHERE_TYPE_OCTA = 3,
  PRIM_SPHERE_TYPE_ICOSA = 4,
  PRIM_SPHERE_TYPE_HEMISPHERE = 5,
};

// Object info of a host generator.
constexpr Int32 kPrimitiveInfo = OBJECT_GENERATOR;

// The polygons of a sphere of `radius` with `segments` (at least 3) around;
// the platonic kinds ignore segments. Null for a radius below 0 or an unknown kind.
std::unique_ptr<PolygonObject> MakeSpherePolygons(Float radius, Int32 segments, Int32 kind);
// An axis-aligned box about the origin, `sub` quads along each edge (at least 1).
std::unique_ptr<PolygonObject> MakeCubePolygons(const Vector& size, Int32 subx, Int32 suby, Int32 subz);

}  // namespace zta
