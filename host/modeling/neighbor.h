#pragma once
// The neighbour table of a polygon object: for each edge of each polygon the
// polygon across it. An edge's global id is polygon * 4 + side, with the
// sides a-b (0), b-c (1), c-d (2) and d-a (3); a triangle's third side is c-a,
// which carries id 3 as d-a does (c == d).
#include <vector>

#include "host/core/result.h"
#include "host/objects/polygonobject.h"

namespace zta {

constexpr Int32 NOTOK = -1;

struct OpenEdge {
  Int32 polygon = NOTOK;
  Int32 edge = NOTOK;  // global id
};

class Neighbor {
 public:
  // Builds the table; an object with invalid indices is an error, memory
  // failure an out-of-memory error.
  Result<void> Init(const PolygonObject& op);
  Result<void> Init(Int32 pointCount, const CPolygon* polygons, Int32 polygonCount);

  Int32 GetPolygonCount() const { return Int32(neighbors_.size() / 4); }
  // The polygon across `side` of `polygon`, or NOTOK for an open edge or a
  // side a triangle lacks.
  Int32 GetNeighbor(Int32 polygon, Int32 side) const;
  // The polygon sharing edge (a, b) with `polygon`, or NOTOK.
  Int32 GetNeighbor(Int32 a, Int32 b, Int32 polygon) const;
  // Polygons touching a point.
  const std::vector<Int32>& GetPointPolys(Int32 point) const;
  // How many polygons use the edge between two points.
  Int32 GetEdgeUseCount(Int32 a, Int32 b) const;

  // The first open edge from polygon `startPolygon` on, sides tested a-b,
  // b-c, d-a, then c-d for a true quad.
  OpenEdge FindOpenEdge(Int32 startPolygon = 0) const;
  // The points around the hole whose border holds the open edge `edge`, in
  // the winding a polygon filling the hole needs (against the border
  // polygons' own); empty when the edge is not open or the border does not
  // close.
  std::vector<Int32> GetHoleLoop(Int32 edge) const;

 private:
  std::vector<CPolygon> polys_;
  std::vector<Int32> neighbors_;
  std::vector<std::vector<Int32>> pointPolys_;
  // Open edges by their first point, in polygon winding: (to point, edge id).
  std::vector<std::vector<std::pair<Int32, Int32>>> openFrom_;
  std::vector<Int32> empty_;
};

// Whether `side` of `p` is a real edge: a triangle has sides 0, 1 and 3.
inline bool HasSide(const CPolygon& p, Int32 side) { return side != 2 || p.c != p.d; }
// The two points of a side.
inline void GetSidePoints(const CPolygon& p, Int32 side, Int32& a, Int32& b) {
  switch (side) {
    case 0: a = p.a; b = p.b; break;
    case 1: a = p.b; b = p.c; break;
    case 2: a = p.c; b = p.d; break;
    default: a = p.d; b = p.a; break;
  }
}

}  // namespace zta
