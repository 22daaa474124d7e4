#pragma once
// ScaleOffsetOp: out = in * scale + offset, the pass that prepares each input
// of a mix. Vector members scale component by component.
#include <openvdb/openvdb.h>

#include <cmath>

namespace zelmar {

template <typename ValueT>
struct ScaleOffsetOp {
  ValueT scale = ValueT(1);
  ValueT offset = openvdb::zeroVal<ValueT>();

  // Within 1e-6 of (1, 0), where applying the op would only copy.
  bool IsIdentity() const {
    if constexpr (openvdb::VecTraits<ValueT>::IsVec) {
      for (int i = 0; i < openvdb::VecTraits<ValueT>::Size; ++i)
        if (!Near(double(scale[i]), 1.0) || !Near(double(offset[i]), 0.0)) return false;
      return true;
    } else {
      return Near(double(scale), 1.0) && Near(double(offset), 0.0);
    }
  }

  ValueT operator()(const ValueT& in) const {
    if constexpr (openvdb::VecTraits<ValueT>::IsVec) {
      ValueT out;
      for (int i = 0; i < openvdb::VecTraits<ValueT>::Size; ++i) out[i] = in[i] * scale[i] + offset[i];
      return out;
    } else {
      return ValueT(in * scale + offset);
    }
  }

 private:
  static bool Near(double a, double b) { return std::abs(a - b) <= 1e-6; }
};

}  // namespace zelmar
