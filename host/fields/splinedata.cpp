#include "host/fields/splinedata.h"

#include <algorithm>
#include <cmath>

namespace zta {

std::shared_ptr<SplineData> SplineData::MakeLinear() {
  auto s = std::make_shared<SplineData>();
  s->InsertKnot(0.0, 0.0, CURVEINTERPOLATION::LINEAR);
  s->InsertKnot(1.0, 1.0, CURVEINTERPOLATION::LINEAR);
  return s;
}

bool SplineData::IsEqual(const CustomDataType& other) const {
  const auto* o = dynamic_cast<const SplineData*>(&other);
  return o && xmin_ == o->xmin_ && xmax_ == o->xmax_ && ymin_ == o->ymin_ && ymax_ == o->ymax_ && knots_ == o->knots_;
}

void SplineData::SetRange(Float xmin, Float xmax, Float ymin, Float ymax) {
  xmin_ = std::min(xmin, xmax);
  xmax_ = std::max(xmin, xmax);
  ymin_ = std::min(ymin, ymax);
  ymax_ = std::max(ymin, ymax);
}

Int32 SplineData::InsertKnot(Float x, Float y, CURVEINTERPOLATION interpolation) {
  auto it = std::upper_bound(knots_.begin(), knots_.end(), x, [](Float v, const SplineKnot& k) { return v < k.pos.x; });
  it = knots_.insert(it, SplineKnot{{x, y}, interpolation});
  return Int32(it - knots_.begin());
}

bool SplineData::DeleteKnot(Int32 index) {
  if (index < 0 || index >= GetKnotCount()) return false;
  knots_.erase(knots_.begin() + index);
  return true;
}

const SplineKnot* SplineData::GetKnot(Int32 index) const {
  return index >= 0 && index < GetKnotCount() ? &knots_[size_t(index)] : nullptr;
}

std::vector<Float> SplineData::Tangents() const {
  // Fritsch-Carlson: secant averages, flattened at extrema and limited so
  // that no smooth span leaves the range of its two knots.
  const size_t n = knots_.size();
  std::vector<Float> m(n, 0.0);
  if (n < 2) return m;
  std::vector<Float> delta(n - 1);
  for (size_t k = 0; k + 1 < n; ++k) {
    const Float dx = knots_[k + 1].pos.x - knots_[k].pos.x;
    delta[k] = dx > 0 ? (knots_[k + 1].pos.y - knots_[k].pos.y) / dx : 0.0;
  }
  m[0] = delta[0];
  m[n - 1] = delta[n - 2];
  for (size_t k = 1; k + 1 < n; ++k) m[k] = delta[k - 1] * delta[k] <= 0 ? 0.0 : (delta[k - 1] + delta[k]) / 2;
  for (size_t k = 0; k + 1 < n; ++k) {
    if (delta[k] == 0.0) {
      m[k] = m[k + 1] = 0.0;
      continue;
    }
    const Float a = m[k] / delta[k], b = m[k + 1] / delta[k];
    const Float h = a * a + b * b;
    if (h > 9.0) {
      const Float t = 3.0 / std::sqrt(h);
      m[k] = t * a * delta[k];
      m[k + 1] = t * b * delta[k];
    }
  }
  return m;
}

Float SplineData::GetPoint(Float x) const {
  if (knots_.empty()) return 0.0;
  x = std::clamp(x, xmin_, xmax_);
  Float y;
  if (knots_.size() == 1 || x <= knots_.front().pos.x) {
    y = knots_.front().pos.y;
  } else if (x >= knots_.back().pos.x) {
    y = knots_.back().pos.y;
  } else {
    auto it = std::upper_bound(knots_.begin(), knots_.end(), x, [](Float v, const SplineKnot& k) { return v < k.pos.x; });
    const size_t k = size_t(it - knots_.begin()) - 1;
    const SplineKnot& a = knots_[k];
    const SplineKnot& b = knots_[k + 1];
    const Float h = b.pos.x - a.pos.x;
    const Float t = h > 0 ? (x - a.pos.x) / h : 0.0;
    switch (a.interpolation) {
      case CURVEINTERPOLATION::STEP: y = a.pos.y; break;
      case CURVEINTERPOLATION::LINEAR: y = a.pos.y + (b.pos.y - a.pos.y) * t; break;
      default: {
        const std::vector<Float> m = Tangents();
        const Float t2 = t * t, t3 = t2 * t;
        y = a.pos.y * (2 * t3 - 3 * t2 + 1) + m[k] * h * (t3 - 2 * t2 + t) + b.pos.y * (-2 * t3 + 3 * t2) +
            m[k + 1] * h * (t3 - t2);
        break;
      }
    }
  }
  return std::clamp(y, ymin_, ymax_);
}

Result<SplineCache> SplineData::MakeCache(Int32 resolution) const {
  if (resolution < 1) return IllegalArgumentError("a spline cache needs a resolution of at least 1");
  SplineCache cache;
  cache.xmin_ = xmin_;
  cache.xmax_ = xmax_;
  cache.samples_.resize(size_t(resolution) + 1);
  for (Int32 i = 0; i <= resolution; ++i)
    cache.samples_[size_t(i)] = GetPoint(xmin_ + (xmax_ - xmin_) * Float(i) / resolution);
  return cache;
}

Float SplineCache::Evaluate(Float x) const {
  if (samples_.empty()) return 0.0;
  if (samples_.size() == 1 || xmax_ <= xmin_) return samples_.front();
  const Float f = std::clamp((x - xmin_) / (xmax_ - xmin_), 0.0, 1.0) * Float(samples_.size() - 1);
  const size_t i = std::min(size_t(f), samples_.size() - 2);
  const Float t = f - Float(i);
  return samples_[i] + (samples_[i + 1] - samples_[i]) * t;
}

}  // namespace zta
