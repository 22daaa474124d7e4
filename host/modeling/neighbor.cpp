#include "host/modeling/neighbor.h"

#include <algorithm>
#include <new>
#include <unordered_map>
#include <unordered_set>

#include "host/core/format.h"

namespace zta {

Result<void> Neighbor::Init(const PolygonObject& op) {
  return Init(op.GetPointCount(), op.GetPolygonR(), op.GetPolygonCount());
}

Result<void> Neighbor::Init(Int32 pointCount, const CPolygon* polygons, Int32 polygonCount) {
  polys_.clear();
  neighbors_.clear();
  pointPolys_.clear();
  openFrom_.clear();
  if (pointCount < 0 || polygonCount < 0) return IllegalArgumentError("negative point or polygon count");
  if (polygonCount > 0 && !polygons) return NullptrError("no polygons");
  for (Int32 i = 0; i < polygonCount; ++i)
    for (int k = 0; k < 4; ++k)
      if (polygons[i][k] < 0 || polygons[i][k] >= pointCount)
        return IllegalArgumentError(FormatString("polygon @ uses point @, which does not exist", i, polygons[i][k]));
  try {
    polys_.assign(polygons, polygons + polygonCount);
    neighbors_.assign(size_t(polygonCount) * 4, NOTOK);
    pointPolys_.assign(size_t(pointCount), {});
    openFrom_.assign(size_t(pointCount), {});
    // Each undirected edge maps to the sides that use it.
    std::unordered_map<UInt64, std::vector<Int32>> edges;
    edges.reserve(size_t(polygonCount) * 2);
    for (Int32 p = 0; p < polygonCount; ++p) {
      const CPolygon& poly = polys_[size_t(p)];
      for (int k = 0; k < 4; ++k)
        if (k < 3 || !poly.IsTriangle()) pointPolys_[size_t(poly[k])].push_back(p);
      for (Int32 side = 0; side < 4; ++side) {
        if (!HasSide(poly, side)) continue;
        Int32 a, b;
        GetSidePoints(poly, side, a, b);
        const UInt64 key = (UInt64(UInt32(std::min(a, b))) << 32) | UInt32(std::max(a, b));
        edges[key].push_back(p * 4 + side);
      }
    }
    for (const auto& [key, sides] : edges) {
      for (Int32 s : sides) {
        for (Int32 o : sides)
          if (o / 4 != s / 4) {
            neighbors_[size_t(s)] = o / 4;
            break;
          }
      }
    }
    for (Int32 p = 0; p < polygonCount; ++p)
      for (Int32 side = 0; side < 4; ++side) {
        if (!HasSide(polys_[size_t(p)], side) || neighbors_[size_t(p * 4 + side)] != NOTOK) continue;
        Int32 a, b;
        GetSidePoints(polys_[size_t(p)], side, a, b);
        openFrom_[size_t(a)].emplace_back(b, p * 4 + side);
      }
  } catch (const std::bad_alloc&) {
    polys_.clear();
    neighbors_.clear();
    pointPolys_.clear();
    openFrom_.clear();
    return OutOfMemoryError("neighbour table");
  }
  return OK();
}

Int32 Neighbor::GetNeighbor(Int32 polygon, Int32 side) const {
  if (polygon < 0 || polygon >= GetPolygonCount() || side < 0 || side > 3) return NOTOK;
  return neighbors_[size_t(polygon * 4 + side)];
}

Int32 Neighbor::GetNeighbor(Int32 a, Int32 b, Int32 polygon) const {
  if (polygon < 0 || polygon >= GetPolygonCount()) return NOTOK;
  const CPolygon& p = polys_[size_t(polygon)];
  for (Int32 side = 0; side < 4; ++side) {
    if (!HasSide(p, side)) continue;
    Int32 x, y;
    GetSidePoints(p, side, x, y);
    if ((x == a && y == b) || (x == b && y == a)) return neighbors_[size_t(polygon * 4 + side)];
  }
  return NOTOK;
}

const std::vector<Int32>& Neighbor::GetPointPolys(Int32 point) const {
  return point >= 0 && point < Int32(pointPolys_.size()) ? pointPolys_[size_t(point)] : empty_;
}

Int32 Neighbor::GetEdgeUseCount(Int32 a, Int32 b) const {
  Int32 count = 0;
  for (Int32 p : GetPointPolys(a)) {
    const CPolygon& poly = polys_[size_t(p)];
    for (Int32 side = 0; side < 4; ++side) {
      if (!HasSide(poly, side)) continue;
      Int32 x, y;
      GetSidePoints(poly, side, x, y);
      if ((x == a && y == b) || (x == b && y == a)) ++count;
    }
  }
  return count;
}

OpenEdge Neighbor::FindOpenEdge(Int32 startPolygon) const {
  static constexpr Int32 order[4] = {0, 1, 3, 2};
  for (Int32 p = std::max(0, startPolygon); p < GetPolygonCount(); ++p) {
    for (Int32 side : order) {
      if (!HasSide(polys_[size_t(p)], side)) continue;
      if (neighbors_[size_t(p * 4 + side)] == NOTOK) return {p, p * 4 + side};
    }
  }
  return {};
}

std::vector<Int32> Neighbor::GetHoleLoop(Int32 edge) const {
  const Int32 polygon = edge / 4, side = edge % 4;
  if (edge < 0 || polygon >= GetPolygonCount() || !HasSide(polys_[size_t(polygon)], side) ||
      neighbors_[size_t(edge)] != NOTOK)
    return {};
  Int32 a, b;
  GetSidePoints(polys_[size_t(polygon)], side, a, b);
  // Walk the border in the polygons' winding, from edge to open edge, until
  // it comes back to where it started.
  std::vector<Int32> loop{a};
  std::unordered_set<Int32> used{edge};
  Int32 at = b;
  const size_t limit = openFrom_.size() + 1;
  while (at != a) {
    if (loop.size() > limit) return {};
    loop.push_back(at);
    Int32 next = NOTOK, nextEdge = NOTOK;
    for (const auto& [to, id] : openFrom_[size_t(at)]) {
      if (!used.count(id)) {
        next = to;
        nextEdge = id;
        break;
      }
    }
    if (next == NOTOK) return {};
    used.insert(nextEdge);
    at = next;
  }
  // A filling polygon runs the border the other way round.
  std::reverse(loop.begin(), loop.end());
  return loop;
}

}  // namespace zta
