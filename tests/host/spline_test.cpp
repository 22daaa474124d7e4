#include <gtest/gtest.h>

#include <cmath>

#include "host/fields/splinedata.h"
#include "host/objects/splineobject.h"
#include "support/expect.h"

using namespace zta;
using zvtest::ExpectNear;

namespace {
std::unique_ptr<SplineObject> Square(SPLINETYPE type, bool closed) {
  auto s = SplineObject::Alloc(4, type);
  Vector* p = s->GetPointW();
  p[0] = Vector(0, 0, 0);
  p[1] = Vector(10, 0, 0);
  p[2] = Vector(10, 10, 0);
  p[3] = Vector(0, 10, 0);
  s->SetClosed(closed);
  return s;
}

}  // namespace

TEST(SplineObject, EvaluatesByParameterAndLength) {
  auto open = Square(SPLINETYPE::LINEAR, false);
  EXPECT_EQ(open->GetSegmentCount(), 1);
  // Three spans, each a third of the parameter.
  ExpectNear(open->GetSplinePoint(0.0), Vector(0, 0, 0));
  ExpectNear(open->GetSplinePoint(0.5), Vector(10, 5, 0));
  ExpectNear(open->GetSplinePoint(1.0), Vector(0, 10, 0));
  ExpectNear(open->GetSplinePoint(7.0), Vector(0, 10, 0));  // clamped
  EXPECT_NEAR(open->GetLength(), 30.0, 1e-9);
  ExpectNear(open->GetSplinePointByLength(0.25), Vector(7.5, 0, 0), 1e-6);
  ExpectNear(open->GetSplineTangent(0.1), Vector(1, 0, 0), 1e-6);

  auto closed = Square(SPLINETYPE::LINEAR, true);
  EXPECT_NEAR(closed->GetLength(), 40.0, 1e-9);
  ExpectNear(closed->GetSplinePoint(0.875), Vector(0, 5, 0));
  ExpectNear(closed->GetSplinePoint(1.0), Vector(0, 0, 0));

  // Interpolating kinds pass through every point; the B-spline only approaches them.
  auto cubic = Square(SPLINETYPE::CUBIC, true);
  auto akima = Square(SPLINETYPE::AKIMA, true);
  for (int i = 0; i < 4; ++i) {
    ExpectNear(cubic->GetSplinePoint(i / 4.0), cubic->GetPointR()[i]);
    ExpectNear(akima->GetSplinePoint(i / 4.0), akima->GetPointR()[i]);
  }
  // A closed cubic square bulges outward between its corners.
  EXPECT_LT(cubic->GetSplinePoint(0.125).y, 0.0);
  EXPECT_GT(cubic->GetLength(), 40.0);
  auto bspline = Square(SPLINETYPE::BSPLINE, true);
  ExpectNear(bspline->GetSplinePoint(0.0), Vector(5.0 / 3.0, 5.0 / 3.0, 0), 1e-9);
  EXPECT_LT(bspline->GetLength(), 40.0);

  // By length is uniform in distance where the parameter is not: spans of 1
  // and 10 share the parameter equally.
  auto uneven = SplineObject::Alloc(3, SPLINETYPE::LINEAR);
  uneven->GetPointW()[1] = Vector(1, 0, 0);
  uneven->GetPointW()[2] = Vector(11, 0, 0);
  ExpectNear(uneven->GetSplinePoint(0.5), Vector(1, 0, 0));
  ExpectNear(uneven->GetSplinePointByLength(0.5), Vector(5.5, 0, 0), 1e-9);
  ExpectNear(cubic->GetSplinePointByLength(0.0), Vector(0, 0, 0), 1e-9);
  ExpectNear(cubic->GetSplinePointByLength(1.0), Vector(0, 0, 0), 1e-9);
  ExpectNear(cubic->GetSplinePointByLength(0.5), Vector(10, 10, 0), 1e-6);  // symmetric shape
}

TEST(SplineObject, SegmentsAndLineObject) {
  auto s = SplineObject::Alloc(5, SPLINETYPE::LINEAR);
  Vector* p = s->GetPointW();
  p[0] = Vector(0, 0, 0);
  p[1] = Vector(1, 0, 0);
  p[2] = Vector(0, 5, 0);
  p[3] = Vector(0, 6, 0);
  p[4] = Vector(0, 8, 0);
  EXPECT_FALSE(s->SetSegments({{2, false}, {2, false}}));  // must add up to 5
  ASSERT_TRUE(s->SetSegments({{2, false}, {3, true}}));
  EXPECT_EQ(s->GetSegmentCount(), 2);
  EXPECT_EQ(s->GetSegmentStart(1), 2);
  ExpectNear(s->GetSplinePoint(0.5, 0), Vector(0.5, 0, 0));
  EXPECT_NEAR(s->GetLength(1), 6.0, 1e-9);

  auto line = s->GetLineObject();
  ASSERT_TRUE(line);
  EXPECT_EQ(line->GetType(), HOST_TYPE_LINE);
  EXPECT_EQ(line->GetPointCount(), 5);  // a linear spline keeps its own points
  EXPECT_EQ(line->GetSegmentCount(), 2);
  EXPECT_TRUE(line->GetSegment(1).closed);
  EXPECT_NEAR(line->GetLength(1), 6.0, 1e-9);
  ExpectNear(line->GetPointByLength(0.5, 1), Vector(0, 8, 0));

  s->SetInterpolationType(SPLINETYPE::CUBIC);
  auto smooth = s->GetLineObject(4);
  // Open: 1 span * 4 + 1; closed: 3 spans * 4.
  EXPECT_EQ(smooth->GetSegment(0).cnt, 5);
  EXPECT_EQ(smooth->GetSegment(1).cnt, 12);

  // Resizing to a count the segments no longer fit drops them.
  ASSERT_TRUE(s->ResizeObject(3));
  EXPECT_EQ(s->GetSegmentCount(), 1);
  EXPECT_EQ(s->GetSegment(0).cnt, 3);
  auto empty = SplineObject::Alloc(0, SPLINETYPE::LINEAR);
  EXPECT_EQ(empty->GetLineObject(), nullptr);
  EXPECT_EQ(empty->GetLength(), 0.0);
}

TEST(SplineData, CurveEvaluationAndCache) {
  SplineData empty;
  EXPECT_EQ(empty.GetPoint(0.3), 0.0);

  auto lin = SplineData::MakeLinear();
  EXPECT_NEAR(lin->GetPoint(0.3), 0.3, 1e-12);
  EXPECT_NEAR(lin->GetPoint(-1.0), 0.0, 1e-12);  // x clamped to the range
  EXPECT_NEAR(lin->GetPoint(2.0), 1.0, 1e-12);

  // Smooth knots stay within their neighbours: no overshoot at a plateau.
  SplineData s;
  s.InsertKnot(0.0, 0.0);
  s.InsertKnot(1.0, 1.0);
  s.InsertKnot(0.5, 1.0);  // knots stay sorted
  EXPECT_EQ(s.GetKnot(1)->pos.x, 0.5);
  for (double x = 0.5; x <= 1.0; x += 0.05) EXPECT_NEAR(s.GetPoint(x), 1.0, 1e-12);
  double prev = -1.0;
  for (double x = 0.0; x <= 0.5; x += 0.01) {
    const double y = s.GetPoint(x);
    EXPECT_GE(y, prev - 1e-12);
    EXPECT_LE(y, 1.0);
    prev = y;
  }
  EXPECT_NEAR(s.GetPoint(0.25), 0.5, 0.2);

  SplineData step;
  step.InsertKnot(0.0, 0.2, CURVEINTERPOLATION::STEP);
  step.InsertKnot(0.6, 0.9, CURVEINTERPOLATION::STEP);
  EXPECT_EQ(step.GetPoint(0.59), 0.2);
  EXPECT_EQ(step.GetPoint(0.6), 0.9);
  step.SetRange(0, 1, 0, 0.5);
  EXPECT_EQ(step.GetPoint(0.7), 0.5);  // y clamped to the range

  // The cache matches the curve at its samples and interpolates between.
  auto cache = s.MakeCache(100);
  ASSERT_TRUE(cache.IsOk());
  EXPECT_EQ(cache->GetResolution(), 100);
  for (int i = 0; i <= 100; i += 7) EXPECT_NEAR(cache->Evaluate(i / 100.0), s.GetPoint(i / 100.0), 1e-12);
  EXPECT_NEAR(cache->Evaluate(0.333), s.GetPoint(0.333), 1e-3);
  EXPECT_NEAR(cache->Evaluate(5.0), 1.0, 1e-12);
  EXPECT_TRUE(s.MakeCache(0).IsError());

  EXPECT_TRUE(s.DeleteKnot(1));
  EXPECT_FALSE(s.DeleteKnot(5));
  EXPECT_TRUE(lin->IsEqual(*SplineData::MakeLinear()));
  EXPECT_FALSE(lin->IsEqual(s));
}
