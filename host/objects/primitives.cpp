#include "host/objects/primitives.h"

#include <array>
#include <cmath>
#include <map>
#include <vector>

#include "host/objects/phongtag.h"
#include "host/scene/nodedata.h"

namespace zta {

namespace {
using Mesh = std::pair<std::vector<Vector>, std::vector<CPolygon>>;

// Turns every polygon of a shape that is star-shaped about the origin so that
// Cross(b - a, c - a) points away from the origin.
void OrientOutward(Mesh& m) {
  for (CPolygon& p : m.second) {
    const Vector& a = m.first[size_t(p.a)];
    const Vector& b = m.first[size_t(p.b)];
    const Vector& c = m.first[size_t(p.c)];
    const Vector centre = p.IsTriangle() ? (a + b + c) / 3.0 : (a + b + c + m.first[size_t(p.d)]) / 4.0;
    if (Dot(Cross(b - a, c - a), centre) < 0) p = p.IsTriangle() ? CPolygon(p.a, p.c, p.b) : CPolygon(p.a, p.d, p.c, p.b);
  }
}

std::unique_ptr<PolygonObject> ToObject(Mesh m) {
  OrientOutward(m);
  auto op = PolygonObject::Alloc(Int32(m.first.size()), Int32(m.second.size()));
  if (!op) return nullptr;
  std::copy(m.first.begin(), m.first.end(), op->GetPointW());
  std::copy(m.second.begin(), m.second.end(), op->GetPolygonW());
  return op;
}

Mesh UVSphere(Float r, Int32 segments, bool hemisphere) {
  Mesh m;
  const Int32 rings = std::max(2, segments / 2);
  const Int32 last = hemisphere ? rings / 2 : rings - 1;  // last ring of points, the equator for a hemisphere
  m.first.push_back({0, r, 0});
  for (Int32 i = 1; i <= last; ++i) {
    const Float theta = M_PI * i / rings;
    for (Int32 j = 0; j < segments; ++j) {
      const Float phi = 2 * M_PI * j / segments;
      m.first.push_back({r * std::sin(theta) * std::cos(phi), r * std::cos(theta), r * std::sin(theta) * std::sin(phi)});
    }
  }
  auto ring = [&](Int32 i, Int32 j) { return 1 + (i - 1) * segments + (j % segments); };
  for (Int32 j = 0; j < segments; ++j) m.second.emplace_back(0, ring(1, j + 1), ring(1, j));
  for (Int32 i = 1; i < last; ++i)
    for (Int32 j = 0; j < segments; ++j) m.second.emplace_back(ring(i, j), ring(i, j + 1), ring(i + 1, j + 1), ring(i + 1, j));
  if (!hemisphere) {
    const Int32 south = Int32(m.first.size());
    m.first.push_back({0, -r, 0});
    for (Int32 j = 0; j < segments; ++j) m.second.emplace_back(south, ring(last, j), ring(last, j + 1));
  }
  return m;
}

Mesh Platonic(Int32 kind, Float r) {
  Mesh m;
  const Float t = (1.0 + std::sqrt(5.0)) / 2.0;
  switch (kind) {
    case PRIM_SPHERE_TYPE_TETRA:
      m.first = {{1, 1, 1}, {1, -1, -1}, {-1, 1, -1}, {-1, -1, 1}};
      m.second = {{0, 1, 2}, {0, 3, 1}, {0, 2, 3}, {1, 3, 2}};
      break;
    case PRIM_SPHERE_TYPE_HEXA:
      m.first = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1}, {-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}};
      m.second = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {2, 3, 7, 6}, {1, 2, 6, 5}, {0, 4, 7, 3}};
      break;
    case PRIM_SPHERE_TYPE_OCTA:
      m.first = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
      m.second = {{0, 2, 4}, {2, 1, 4}, {1, 3, 4}, {3, 0, 4}, {2, 0, 5}, {1, 2, 5}, {3, 1, 5}, {0, 3, 5}};
      break;
    default:
      m.first = {{-1, t, 0}, {1, t, 0}, {-1, -t, 0}, {1, -t, 0}, {0, -1, t}, {0, 1, t},
                 {0, -1, -t}, {0, 1, -t}, {t, 0, -1}, {t, 0, 1}, {-t, 0, -1}, {-t, 0, 1}};
      m.second = {{0, 11, 5}, {0, 5, 1}, {0, 1, 7}, {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
                  {11, 10, 2}, {10, 7, 6}, {7, 1, 8}, {3, 9, 4}, {3, 4, 2}, {3, 2, 6}, {3, 6, 8},
                  {3, 8, 9}, {4, 9, 5}, {2, 4, 11}, {6, 2, 10}, {8, 6, 7}, {9, 8, 1}};
      break;
  }
  for (Vector& p : m.first) p = p.GetNormalized() * r;
  return m;
}

// The generator behind both primitives: rebuilds when its parameters change.
// Its defaults come from its description (Osphere, Ocube).
class PrimitiveData : public ObjectData {
 public:
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    const UInt32 dirty = op->GetDirty(DIRTYFLAGS_DATA);
    if (op->GetCache() && dirty == built_) return op->GetCache();
    const BaseContainer* bc = op->GetDataInstance();
    std::unique_ptr<PolygonObject> poly =
        op->GetType() == HOST_TYPE_SPHERE
            ? MakeSpherePolygons(bc->GetFloat(PRIM_SPHERE_RAD), bc->GetInt32(PRIM_SPHERE_SUB), bc->GetInt32(PRIM_SPHERE_TYPE))
            : MakeCubePolygons(bc->GetVector(PRIM_CUBE_LEN), bc->GetInt32(PRIM_CUBE_SUBX), bc->GetInt32(PRIM_CUBE_SUBY),
                               bc->GetInt32(PRIM_CUBE_SUBZ));
    if (!poly) return nullptr;
    if (auto phong = PhongTag::Alloc()) poly->InsertTag(phong.release(), poly->GetTag(HOST_TAG_POLYGON));
    poly->SetName(op->GetName());
    built_ = dirty;
    return poly.release();
  }

  bool CopyNode(NodeData* dest, const GeListNode*, GeListNode*, Int32, AliasTrans*) const override {
    // A copy has no cache yet, so it must build.
    static_cast<PrimitiveData*>(dest)->built_ = ~0u;
    return true;
  }

 private:
  UInt32 built_ = ~0u;
};
}  // namespace

std::unique_ptr<PolygonObject> MakeSpherePolygons(Float radius, Int32 segments, Int32 kind) {
  if (radius < 0 || kind < PRIM_SPHERE_TYPE_STANDARD || kind > PRIM_SPHERE_TYPE_HEMISPHERE) return nullptr;
  segments = std::max(3, segments);
  if (kind == PRIM_SPHERE_TYPE_STANDARD || kind == PRIM_SPHERE_TYPE_HEMISPHERE)
    return ToObject(UVSphere(radius, segments, kind == PRIM_SPHERE_TYPE_HEMISPHERE));
  return ToObject(Platonic(kind, radius));
}

std::unique_ptr<PolygonObject> MakeCubePolygons(const Vector& size, Int32 subx, Int32 suby, Int32 subz) {
  const std::array<Int32, 3> sub{std::max(1, subx), std::max(1, suby), std::max(1, subz)};
  Mesh m;
  // Points on the surface lattice, each made once so that faces share edges.
  std::map<std::array<Int32, 3>, Int32> index;
  auto point = [&](const std::array<Int32, 3>& g) {
    auto it = index.find(g);
    if (it != index.end()) return it->second;
    const Int32 i = Int32(m.first.size());
    m.first.push_back({size.x * (Float(g[0]) / sub[0] - 0.5), size.y * (Float(g[1]) / sub[1] - 0.5),
                       size.z * (Float(g[2]) / sub[2] - 0.5)});
    index.emplace(g, i);
    return i;
  };
  for (int axis = 0; axis < 3; ++axis) {
    const int u = (axis + 1) % 3, v = (axis + 2) % 3;
    for (Int32 side : {0, sub[size_t(axis)]}) {
      for (Int32 i = 0; i < sub[size_t(u)]; ++i) {
        for (Int32 j = 0; j < sub[size_t(v)]; ++j) {
          auto at = [&](Int32 di, Int32 dj) {
            std::array<Int32, 3> g{};
            g[size_t(axis)] = side;
            g[size_t(u)] = i + di;
            g[size_t(v)] = j + dj;
            return point(g);
          };
          m.second.emplace_back(at(0, 0), at(1, 0), at(1, 1), at(0, 1));
        }
      }
    }
  }
  return ToObject(std::move(m));
}

std::unique_ptr<BaseObject> AllocPrimitive(Int32 type) {
  return BaseObject::AllocWithData(type, std::make_unique<PrimitiveData>(), kPrimitiveInfo);
}

}  // namespace zta
