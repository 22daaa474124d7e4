#include "host/objects/splineobject.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace zta {

// ---- segments

Int32 SegmentedPoints::GetSegmentCount() const {
  if (!segments_.empty()) return Int32(segments_.size());
  return GetPointCount() > 0 ? 1 : 0;
}

Segment SegmentedPoints::GetSegment(Int32 index) const {
  if (!segments_.empty()) return index >= 0 && index < Int32(segments_.size()) ? segments_[size_t(index)] : Segment();
  return index == 0 ? Segment{GetPointCount(), IsClosed()} : Segment();
}

bool SegmentedPoints::SetSegments(const std::vector<Segment>& segments) {
  Int64 sum = 0;
  for (const Segment& s : segments) {
    if (s.cnt < 0) return false;
    sum += s.cnt;
  }
  if (!segments.empty() && sum != GetPointCount()) return false;
  segments_ = segments;
  SetDirty(DIRTYFLAGS_DATA);
  return true;
}

bool SegmentedPoints::IsClosed() const { return GetDataInstance()->GetBool(SPLINEOBJECT_CLOSED); }

void SegmentedPoints::SetClosed(bool closed) {
  GetDataInstance()->SetBool(SPLINEOBJECT_CLOSED, closed);
  for (Segment& s : segments_) s.closed = closed;
}

Int32 SegmentedPoints::GetSegmentStart(Int32 index) const {
  Int32 start = 0;
  for (Int32 i = 0; i < index && i < Int32(segments_.size()); ++i) start += segments_[size_t(i)].cnt;
  return start;
}

std::vector<Vector> SegmentedPoints::GetSegmentPoints(Int32 index) const {
  const Segment seg = GetSegment(index);
  const Int32 start = GetSegmentStart(index);
  const Vector* p = GetPointR();
  if (seg.cnt <= 0 || !p) return {};
  return std::vector<Vector>(p + start, p + start + seg.cnt);
}

bool SegmentedPoints::ResizeSegmented(Int32 pointCount) {
  if (!ResizePoints(pointCount)) return false;
  Int64 sum = 0;
  for (const Segment& s : segments_) sum += s.cnt;
  if (sum != pointCount) segments_.clear();
  SetDirty(DIRTYFLAGS_DATA);
  return true;
}

bool SegmentedPoints::CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const {
  if (!PointObject::CopyTo(dest, flags, trans)) return false;
  static_cast<SegmentedPoints*>(dest)->segments_ = segments_;
  return true;
}

// ---- spline evaluation

namespace {
Vector Hermite(const Vector& p0, const Vector& p1, const Vector& m0, const Vector& m1, Float u) {
  const Float u2 = u * u, u3 = u2 * u;
  return p0 * (2 * u3 - 3 * u2 + 1) + m0 * (u3 - 2 * u2 + u) + p1 * (-2 * u3 + 3 * u2) + m1 * (u3 - u2);
}

// Spans of a segment: one per gap, one more when closed.
Int32 SpanCount(Int32 n, bool closed) { return n < 2 ? 0 : (closed ? n : n - 1); }

// One segment of a spline with its interpolation: points, closed state, spans.
struct SegmentCurve {
  std::vector<Vector> p;
  bool closed;
  SPLINETYPE type;
  Int32 spans;

  SegmentCurve(const SplineObject& spline, Int32 segment)
      : p(spline.GetSegmentPoints(segment)),
        closed(spline.GetSegment(segment).closed),
        type(spline.GetInterpolationType()),
        spans(SpanCount(Int32(p.size()), closed)) {}

  Int32 n() const { return Int32(p.size()); }
  // Point i, wrapped for a closed segment, clamped for an open one.
  const Vector& At(Int32 i) const {
    if (closed) return p[size_t(((i % n()) + n()) % n())];
    return p[size_t(std::clamp(i, 0, n() - 1))];
  }
  Vector Tangent(Int32 i) const {
    if (type == SPLINETYPE::AKIMA) {
      // Akima weights the neighbouring chords by how much the chords beside
      // them differ, which keeps the curve from swinging out at sharp turns.
      const Vector m2 = At(i - 1) - At(i - 2), m1 = At(i) - At(i - 1), m0 = At(i + 1) - At(i),
                   m3 = At(i + 2) - At(i + 1);
      const Float w1 = (m3 - m0).GetLength(), w2 = (m1 - m2).GetLength();
      if (w1 + w2 < 1e-12) return (m1 + m0) * 0.5;
      return (m1 * w1 + m0 * w2) / (w1 + w2);
    }
    return (At(i + 1) - At(i - 1)) * 0.5;
  }
  Vector Eval(Float t) const {
    if (n() == 0) return Vector();
    if (n() == 1) return p[0];
    const Float x = std::clamp(t, 0.0, 1.0) * spans;
    const Int32 s = std::min(Int32(std::floor(x)), spans - 1);
    const Float u = x - s;
    switch (type) {
      case SPLINETYPE::LINEAR:
        return At(s) * (1 - u) + At(s + 1) * u;
      case SPLINETYPE::BSPLINE: {
        const Float u2 = u * u, u3 = u2 * u;
        const Float b0 = (1 - u) * (1 - u) * (1 - u) / 6, b1 = (3 * u3 - 6 * u2 + 4) / 6,
                    b2 = (-3 * u3 + 3 * u2 + 3 * u + 1) / 6, b3 = u3 / 6;
        return At(s - 1) * b0 + At(s) * b1 + At(s + 1) * b2 + At(s + 2) * b3;
      }
      default:
        return Hermite(At(s), At(s + 1), Tangent(s), Tangent(s + 1), u);
    }
  }
};
}  // namespace

SplineObject::SplineObject(Int32 pointCount) : SegmentedPoints(HOST_TYPE_SPLINE, pointCount) {
  BaseContainer* bc = GetDataInstance();
  bc->SetInt32(SPLINEOBJECT_TYPE, Int32(SPLINETYPE::LINEAR));
  bc->SetBool(SPLINEOBJECT_CLOSED, false);
  bc->SetInt32(SPLINEOBJECT_SUB, 8);
}

std::unique_ptr<SplineObject> SplineObject::Alloc(Int32 pointCount, SPLINETYPE type) {
  if (pointCount < 0) return nullptr;
  struct Make : SplineObject {
    explicit Make(Int32 n) : SplineObject(n) {}
  };
  try {
    std::unique_ptr<SplineObject> op(new Make(pointCount));
    op->SetInterpolationType(type);
    return op;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

SPLINETYPE SplineObject::GetInterpolationType() const {
  return SPLINETYPE(std::clamp(GetDataInstance()->GetInt32(SPLINEOBJECT_TYPE), 0, 3));
}

void SplineObject::SetInterpolationType(SPLINETYPE type) { GetDataInstance()->SetInt32(SPLINEOBJECT_TYPE, Int32(type)); }

bool SplineObject::ResizeObject(Int32 pointCount) { return ResizeSegmented(pointCount); }

Vector SplineObject::GetSplinePoint(Float t, Int32 segment) const { return SegmentCurve(*this, segment).Eval(t); }

Vector SplineObject::GetSplineTangent(Float t, Int32 segment) const {
  const SegmentCurve c(*this, segment);
  if (c.spans == 0) return Vector();
  const Float h = 1e-4 / c.spans;
  const Float a = std::max(0.0, t - h), b = std::min(1.0, t + h);
  return (c.Eval(b) - c.Eval(a)).GetNormalized();
}

namespace {
// Cumulative chord lengths at `samples` + 1 even parameter steps.
std::vector<Float> LengthTable(const SegmentCurve& c, Int32 samples) {
  std::vector<Float> table(size_t(samples) + 1, 0.0);
  Vector prev = c.Eval(0.0);
  for (Int32 i = 1; i <= samples; ++i) {
    const Vector p = c.Eval(Float(i) / samples);
    table[size_t(i)] = table[size_t(i - 1)] + (p - prev).GetLength();
    prev = p;
  }
  return table;
}
}  // namespace

Float SplineObject::GetLength(Int32 segment, Int32 samplesPerSpan) const {
  const SegmentCurve c(*this, segment);
  if (c.spans == 0) return 0.0;
  return LengthTable(c, c.spans * std::max(1, samplesPerSpan)).back();
}

Vector SplineObject::GetSplinePointByLength(Float fraction, Int32 segment, Int32 samplesPerSpan) const {
  const SegmentCurve c(*this, segment);
  if (c.spans == 0) return c.Eval(0.0);
  const Int32 samples = c.spans * std::max(1, samplesPerSpan);
  const std::vector<Float> table = LengthTable(c, samples);
  const Float target = std::clamp(fraction, 0.0, 1.0) * table.back();
  const auto it = std::lower_bound(table.begin(), table.end(), target);
  const Int32 i = std::max<Int32>(1, Int32(it - table.begin()));
  if (i > samples) return c.Eval(1.0);
  const Float len = table[size_t(i)] - table[size_t(i - 1)];
  const Float u = len > 0 ? (target - table[size_t(i - 1)]) / len : 0.0;
  return c.Eval((i - 1 + u) / samples);
}

std::unique_ptr<LineObject> SplineObject::GetLineObject(Int32 sub) const {
  if (GetPointCount() == 0) return nullptr;
  if (sub <= 0) sub = std::max(1, GetDataInstance()->GetInt32(SPLINEOBJECT_SUB, 8));
  // Linear splines need no points between their own.
  if (GetInterpolationType() == SPLINETYPE::LINEAR) sub = 1;
  std::vector<Vector> points;
  std::vector<Segment> segments;
  for (Int32 s = 0; s < GetSegmentCount(); ++s) {
    const SegmentCurve c(*this, s);
    const Int32 count = c.spans == 0 ? c.n() : c.spans * sub + (c.closed ? 0 : 1);
    for (Int32 i = 0; i < count; ++i)
      points.push_back(c.spans == 0 ? c.p[size_t(i)] : c.Eval(Float(i) / (c.spans * sub)));
    segments.push_back({count, c.closed});
  }
  auto line = LineObject::Alloc(Int32(points.size()));
  if (!line) return nullptr;
  std::copy(points.begin(), points.end(), line->GetPointW());
  line->SetSegments(segments);
  line->GetDataInstance()->SetBool(SPLINEOBJECT_CLOSED, IsClosed());
  line->SetMl(GetMl());
  line->SetName(GetName());
  return line;
}

// ---- LineObject

std::unique_ptr<LineObject> LineObject::Alloc(Int32 pointCount) {
  if (pointCount < 0) return nullptr;
  struct Make : LineObject {
    explicit Make(Int32 n) : LineObject(n) {}
  };
  try {
    return std::unique_ptr<LineObject>(new Make(pointCount));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool LineObject::ResizeObject(Int32 pointCount) { return ResizeSegmented(pointCount); }


namespace {
// The points of a segment, the first once more at the end of a closed one.
std::vector<Vector> ChordPoints(const LineObject& line, Int32 segment) {
  std::vector<Vector> pts = line.GetSegmentPoints(segment);
  if (line.GetSegment(segment).closed && pts.size() > 1) pts.push_back(pts.front());
  return pts;
}

Float ChordLength(const std::vector<Vector>& pts) {
  Float len = 0;
  for (size_t i = 1; i < pts.size(); ++i) len += (pts[i] - pts[i - 1]).GetLength();
  return len;
}
}  // namespace

Float LineObject::GetLength(Int32 segment) const { return ChordLength(ChordPoints(*this, segment)); }

Vector LineObject::GetPointByLength(Float fraction, Int32 segment) const {
  const std::vector<Vector> pts = ChordPoints(*this, segment);
  if (pts.empty()) return Vector();
  Float target = std::clamp(fraction, 0.0, 1.0) * ChordLength(pts);
  for (size_t i = 1; i < pts.size(); ++i) {
    const Float len = (pts[i] - pts[i - 1]).GetLength();
    if (target <= len && len > 0) return pts[i - 1] + (pts[i] - pts[i - 1]) * (target / len);
    target -= len;
  }
  return pts.back();
}

}  // namespace zta
