#pragma once
// BaseTime: a point in scene time as an exact fraction of seconds.
#include <numeric>

#include "host/core/types.h"

namespace zta {

class BaseTime {
 public:
  constexpr BaseTime() = default;
  // A zero denominator is taken as 1: time is never undefined.
  BaseTime(Int64 numerator, Int64 denominator) : num_(numerator), den_(denominator == 0 ? 1 : denominator) {
    Reduce();
  }
  explicit BaseTime(Float seconds) : BaseTime(Int64(seconds * 1000000.0 + (seconds < 0 ? -0.5 : 0.5)), 1000000) {}

  Int64 GetNumerator() const { return num_; }
  Int64 GetDenominator() const { return den_; }
  Float Get() const { return Float(num_) / Float(den_); }
  // The frame at `fps`, rounded down as the host's timeline does.
  Int32 GetFrame(Float fps) const;

  bool operator==(const BaseTime& o) const { return num_ == o.num_ && den_ == o.den_; }
  bool operator<(const BaseTime& o) const { return (__int128)num_ * o.den_ < (__int128)o.num_ * den_; }
  bool operator<=(const BaseTime& o) const { return !(o < *this); }
  BaseTime operator+(const BaseTime& o) const { return BaseTime(num_ * o.den_ + o.num_ * den_, den_ * o.den_); }
  BaseTime operator-(const BaseTime& o) const { return BaseTime(num_ * o.den_ - o.num_ * den_, den_ * o.den_); }

 private:
  void Reduce() {
    if (den_ < 0) { num_ = -num_; den_ = -den_; }
    const Int64 g = std::gcd(num_, den_);
    if (g > 1) { num_ /= g; den_ /= g; }
  }
  Int64 num_ = 0;
  Int64 den_ = 1;
};

}  // namespace zta
