#include "host/objects/subdivision.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <vector>

#include "host/scene/execution.h"

namespace zta {

namespace {

struct Edge {
  Int32 a, b;       // a < b
  Int32 faces = 0;  // how many polygons share it
  Vector faceSum;   // the sum of their face points
};

UInt64 EdgeKey(Int32 a, Int32 b) { return (UInt64(UInt32(std::min(a, b))) << 32) | UInt32(std::max(a, b)); }

class SubdivisionData : public ObjectData {
 public:
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    const BaseContainer* bc = op->GetDataInstance();
    const bool render = hh->GetBuildFlags() & (BUILDFLAGS_INTERNALRENDERER | BUILDFLAGS_EXTERNALRENDERER);
    const Int32 levels =
        std::clamp(bc->GetInt32(render ? SDSOBJECT_SUBRAY : SDSOBJECT_SUBEDITOR), 0, kMaxSubdivisionLevel);
    BeginDependenceList(op);
    BaseObject* first = op->GetDown();
    if (!first) return BaseObject::Alloc(HOST_TYPE_NULL).release();
    auto root = GetHierarchyClone(hh, first,
                                  HIERARCHYCLONEFLAGS_ASPOLY | HIERARCHYCLONEFLAGS_ASSPLINE | HIERARCHYCLONEFLAGS_ASVOLUME,
                                  nullptr);
    if (!root) return nullptr;
    for (GeListNode* n = root.get(); n; n = n->GetNextInTree(root.get())) {
      auto* poly = dynamic_cast<PolygonObject*>(n);
      for (Int32 l = 0; poly && l < levels; ++l) {
        if (hh->GetThread() && hh->GetThread()->TestBreak()) return nullptr;
        if (!SubdivideOnce(*poly)) return nullptr;
      }
    }
    return root.release();
  }
};

}  // namespace

Result<void> SubdivideOnce(PolygonObject& op) {
  if (!op.IsValid()) return IllegalArgumentError("object has polygons with points that do not exist");
  const Int32 n = op.GetPointCount(), m = op.GetPolygonCount();
  const Vector* pts = op.GetPointR();
  const CPolygon* polys = op.GetPolygonR();

  // Face points, and the edges with the faces on each side.
  std::vector<Vector> facePoint(static_cast<size_t>(m));
  std::unordered_map<UInt64, Int32> edgeIndex;
  edgeIndex.reserve(size_t(m) * 2);
  std::vector<Edge> edges;
  std::vector<std::array<Int32, 4>> faceEdges(static_cast<size_t>(m));
  for (Int32 f = 0; f < m; ++f) {
    const CPolygon& p = polys[f];
    const Int32 k = p.IsTriangle() ? 3 : 4;
    Vector c;
    for (Int32 j = 0; j < k; ++j) c += pts[p[j]];
    facePoint[size_t(f)] = c / double(k);
    for (Int32 j = 0; j < k; ++j) {
      const Int32 a = p[j], b = p[(j + 1) % k];
      auto [it, fresh] = edgeIndex.emplace(EdgeKey(a, b), Int32(edges.size()));
      if (fresh) edges.push_back({std::min(a, b), std::max(a, b), 0, Vector()});
      Edge& e = edges[size_t(it->second)];
      ++e.faces;
      e.faceSum += facePoint[size_t(f)];
      faceEdges[size_t(f)][size_t(j)] = it->second;
    }
  }

  // Edge points: the middle of a border edge, else the mean of its ends and
  // of the face points on both sides.
  std::vector<Vector> edgePoint(edges.size());
  std::vector<Int32> valence(static_cast<size_t>(n), 0), borderEdges(static_cast<size_t>(n), 0);
  const size_t np = static_cast<size_t>(n);
  std::vector<Vector> midSum(np), borderMidSum(np), faceSum(np);
  std::vector<Int32> faceCount(static_cast<size_t>(n), 0);
  for (size_t i = 0; i < edges.size(); ++i) {
    const Edge& e = edges[i];
    const Vector mid = (pts[e.a] + pts[e.b]) * 0.5;
    const bool border = e.faces != 2;
    edgePoint[i] = border ? mid : (pts[e.a] + pts[e.b] + e.faceSum) / 4.0;
    for (Int32 v : {e.a, e.b}) {
      ++valence[size_t(v)];
      midSum[size_t(v)] += mid;
      if (border) {
        ++borderEdges[size_t(v)];
        borderMidSum[size_t(v)] += mid;
      }
    }
  }
  for (Int32 f = 0; f < m; ++f) {
    const CPolygon& p = polys[f];
    for (Int32 j = 0; j < (p.IsTriangle() ? 3 : 4); ++j) {
      faceSum[size_t(p[j])] += facePoint[size_t(f)];
      ++faceCount[size_t(p[j])];
    }
  }

  // Moved points: (Q + 2R + (n - 3)P) / n inside, (M1 + M2 + 6P) / 8 on a
  // border, fixed at a corner or where no polygon reaches.
  std::vector<Vector> out(size_t(n) + size_t(m) + edges.size());
  for (Int32 v = 0; v < n; ++v) {
    const Vector p = pts[v];
    const Int32 k = valence[size_t(v)];
    if (borderEdges[size_t(v)] == 2) {
      out[size_t(v)] = (borderMidSum[size_t(v)] + p * 6.0) / 8.0;
    } else if (borderEdges[size_t(v)] == 0 && k >= 3 && faceCount[size_t(v)] > 0) {
      const Vector q = faceSum[size_t(v)] / double(faceCount[size_t(v)]);
      const Vector r = midSum[size_t(v)] / double(k);
      out[size_t(v)] = (q + r * 2.0 + p * double(k - 3)) / double(k);
    } else {
      out[size_t(v)] = p;
    }
  }
  for (Int32 f = 0; f < m; ++f) out[size_t(n + f)] = facePoint[size_t(f)];
  for (size_t i = 0; i < edges.size(); ++i) out[size_t(n + m) + i] = edgePoint[i];

  // Each corner of a polygon gives one quad: corner, edge after, face, edge before.
  std::vector<CPolygon> quads;
  quads.reserve(size_t(m) * 4);
  for (Int32 f = 0; f < m; ++f) {
    const CPolygon& p = polys[f];
    const Int32 k = p.IsTriangle() ? 3 : 4;
    for (Int32 j = 0; j < k; ++j) {
      const Int32 after = n + m + faceEdges[size_t(f)][size_t(j)];
      const Int32 before = n + m + faceEdges[size_t(f)][size_t((j + k - 1) % k)];
      quads.emplace_back(p[j], after, n + f, before);
    }
  }
  if (out.size() > size_t(INT32_MAX) || quads.size() > size_t(INT32_MAX))
    return IllegalArgumentError("subdivision would exceed the largest object");

  // Records per point or polygon of other tags no longer fit.
  std::vector<BaseTag*> stale;
  for (BaseTag* t = op.GetFirstTag(); t; t = t->GetNext())
    if (dynamic_cast<VariableTag*>(t) && t->GetType() != HOST_TAG_POINT && t->GetType() != HOST_TAG_POLYGON) stale.push_back(t);
  if (!op.ResizeObject(Int32(out.size()), Int32(quads.size()))) return OutOfMemoryError("subdivided object");
  std::copy(out.begin(), out.end(), op.GetPointW());
  std::copy(quads.begin(), quads.end(), op.GetPolygonW());
  for (BaseTag* t : stale) GeListNode::Free(t);
  op.SetDirty(DIRTYFLAGS_DATA);
  return OK();
}

std::unique_ptr<BaseObject> AllocSubdivision() {
  return BaseObject::AllocWithData(HOST_TYPE_SUBDIVISION, std::make_unique<SubdivisionData>(), OBJECT_GENERATOR | OBJECT_INPUT);
}

}  // namespace zta
