#pragma once
// SplineData (custom data 1009060): a curve y(x) through knots, each knot
// saying how the curve leaves it. Evaluated exactly, or through a cache of a
// given resolution that is safe to read from many threads.
#include <memory>
#include <vector>

#include "host/core/math.h"
#include "host/core/result.h"
#include "host/scene/customdata.h"
#include "host/scene/hosttypes.h"

namespace zta {

enum class CURVEINTERPOLATION : Int32 { LINEAR = 0, SMOOTH = 1, STEP = 2 };

struct SplineKnot {
  Vector2d64 pos;
  CURVEINTERPOLATION interpolation = CURVEINTERPOLATION::SMOOTH;
  bool operator==(const SplineKnot&) const = default;
};

// A table of the curve over its x range.
class SplineCache {
 public:
  Float Evaluate(Float x) const;
  Int32 GetResolution() const { return Int32(samples_.size()) - 1; }

 private:
  friend class SplineData;
  Float xmin_ = 0, xmax_ = 1;
  std::vector<Float> samples_;
};

class SplineData : public CustomDataType {
 public:
  static constexpr Int32 kCustomTypeId = CUSTOMDATATYPE_SPLINE;

  // An empty curve over [0, 1] x [0, 1].
  SplineData() = default;
  // The two-knot curve from (0, 0) to (1, 1), linear.
  static std::shared_ptr<SplineData> MakeLinear();

  Int32 GetCustomTypeId() const override { return kCustomTypeId; }
  std::unique_ptr<CustomDataType> Clone() const override { return std::make_unique<SplineData>(*this); }
  bool IsEqual(const CustomDataType& other) const override;

  // The box of the curve: x outside it is clamped, y is clamped into it.
  void SetRange(Float xmin, Float xmax, Float ymin, Float ymax);
  Float GetXMin() const { return xmin_; }
  Float GetXMax() const { return xmax_; }
  Float GetYMin() const { return ymin_; }
  Float GetYMax() const { return ymax_; }

  // Knots stay sorted by x; returns the new knot's index.
  Int32 InsertKnot(Float x, Float y, CURVEINTERPOLATION interpolation = CURVEINTERPOLATION::SMOOTH);
  bool DeleteKnot(Int32 index);
  Int32 GetKnotCount() const { return Int32(knots_.size()); }
  const SplineKnot* GetKnot(Int32 index) const;

  // y at x. No knots: 0; one knot: its y. Smooth spans are monotone cubic
  // Hermite curves, so the curve never overshoots its knots.
  Float GetPoint(Float x) const;
  // A table of resolution + 1 samples; resolution must be at least 1.
  Result<SplineCache> MakeCache(Int32 resolution) const;

 private:
  // Slopes at the knots that keep smooth spans monotone.
  std::vector<Float> Tangents() const;
  Float xmin_ = 0, xmax_ = 1, ymin_ = 0, ymax_ = 1;
  std::vector<SplineKnot> knots_;
};

}  // namespace zta
