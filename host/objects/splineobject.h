#pragma once
// SplineObject (5101): points joined into segments by an interpolation.
// LineObject (5137): the straight-line form of a spline, as its cache holds it.
#include <memory>
#include <vector>

#include "host/objects/pointobject.h"

namespace zta {

enum class SPLINETYPE : Int32 { LINEAR = 0, CUBIC = 1, AKIMA = 2, BSPLINE = 3 };

// Parameters of a spline object.
enum : Int32 {
  SPLINEOBJECT_TYPE = 1000,           // int32, SPLINETYPE
  SPLINEOBJECT_CLOSED = 1002,         // bool
  SPLINEOBJECT_SUB = 1004,            // int32, line points per span
};

struct Segment {
  Int32 cnt = 0;
  bool closed = false;
  bool operator==(const Segment&) const = default;
};

class LineObject;

// Segments of points shared by splines and lines. Without segments all points
// form one segment whose closed state is the object's.
class SegmentedPoints : public PointObject {
 public:
  Int32 GetSegmentCount() const;
  // The segment's record; the whole object's for index 0 when there are none.
  Segment GetSegment(Int32 index) const;
  // Counts must add up to the point count; false (and unchanged) otherwise.
  bool SetSegments(const std::vector<Segment>& segments);
  // Whether segments were set; without them all points form one segment.
  bool HasOwnSegments() const { return !segments_.empty(); }
  bool IsClosed() const;
  void SetClosed(bool closed);
  // Index of the segment's first point.
  Int32 GetSegmentStart(Int32 index) const;
  // The points of one segment as a copy.
  std::vector<Vector> GetSegmentPoints(Int32 index) const;

 protected:
  SegmentedPoints(Int32 type, Int32 pointCount) : PointObject(type, pointCount) {}
  bool CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const override;
  // Points changed in count: segments that no longer add up are dropped.
  bool ResizeSegmented(Int32 pointCount);
  std::vector<Segment> segments_;
};

class SplineObject : public SegmentedPoints {
 public:
  static std::unique_ptr<SplineObject> Alloc(Int32 pointCount, SPLINETYPE type);
  Int32 GetInfo() const override { return OBJECT_POINTOBJECT | OBJECT_ISSPLINE; }

  SPLINETYPE GetInterpolationType() const;
  void SetInterpolationType(SPLINETYPE type);
  bool ResizeObject(Int32 pointCount);

  // Position at parameter t in [0, 1] along one segment; t is clamped. Each
  // span between two points takes an equal share of the parameter.
  Vector GetSplinePoint(Float t, Int32 segment = 0) const;
  // Unit tangent at t (zero for a segment of one point).
  Vector GetSplineTangent(Float t, Int32 segment = 0) const;
  // Length of a segment, measured over `samplesPerSpan` chords per span.
  Float GetLength(Int32 segment = 0, Int32 samplesPerSpan = 64) const;
  // Position at a fraction in [0, 1] of the segment's length.
  Vector GetSplinePointByLength(Float fraction, Int32 segment = 0, Int32 samplesPerSpan = 64) const;
  // The straight-line form with `sub` points per span (the object's own
  // SPLINEOBJECT_SUB when sub is 0); null when there are no points.
  std::unique_ptr<LineObject> GetLineObject(Int32 sub = 0) const;

 protected:
  explicit SplineObject(Int32 pointCount);
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0, SPLINETYPE::LINEAR); }
};

class LineObject : public SegmentedPoints {
 public:
  static std::unique_ptr<LineObject> Alloc(Int32 pointCount);
  Int32 GetInfo() const override { return OBJECT_POINTOBJECT | OBJECT_ISSPLINE; }
  bool ResizeObject(Int32 pointCount);
  // Length of a segment along its chords.
  Float GetLength(Int32 segment = 0) const;
  // Position at a fraction in [0, 1] of the segment's length.
  Vector GetPointByLength(Float fraction, Int32 segment = 0) const;

 protected:
  explicit LineObject(Int32 pointCount) : SegmentedPoints(HOST_TYPE_LINE, pointCount) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(0); }
};

}  // namespace zta
