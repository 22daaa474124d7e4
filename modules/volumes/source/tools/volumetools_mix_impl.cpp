// Voxel arithmetic on two volumes: mixing fog and vector volumes, and blending.
//
// Where the library would combine in place (Tree::combineExtended on copies of
// both inputs, the second one consumed), the result tree is built from the two
// read-only inputs with Tree::combine2Extended: the same values and active
// states, without copying either input first.
#include <openvdb/tools/ChangeBackground.h>
#include <openvdb/tools/Composite.h>
#include <openvdb/tree/LeafManager.h>

#include <cmath>
#include <limits>
#include <optional>

#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/scaleoffsetop.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

template <typename GridT>
using ValueOf = typename GridT::ValueType;

// `source` itself for an identity (read-only from here on), else a new grid of
// in * scale + offset. The empty grid that receives the values may fail to be
// made: for vectors that is "could not create a grid", for scalars an error
// with only its location.
template <typename GridT>
Result<typename GridT::ConstPtr> ApplyScaleOffset(const typename GridT::ConstPtr& source,
                                                  const ScaleOffsetOp<ValueOf<GridT>>& op) {
  if (op.IsIdentity()) return source;
  typename GridT::Ptr out;
  try {
    out = source->copyWithNewTree();
  } catch (...) {
    // Copying the metadata and transform is all that can fail here.
  }
  if (!out) {
    if constexpr (openvdb::VecTraits<ValueOf<GridT>>::IsVec) return zta::OutOfMemoryError("could not create a grid");
    else return zta::OutOfMemoryError();
  }
  openvdb::tools::changeBackground(out->tree(), op(source->background()), /*threaded=*/true, 128);
  out->tree().combine2(
      source->tree(), source->tree(),
      [&op](const ValueOf<GridT>& a, const ValueOf<GridT>&, ValueOf<GridT>& result) { result = op(a); },
      /*prune=*/false);
  return typename GridT::ConstPtr(out);
}

// A new grid on a's transform and metadata holding fn(a, b) at every value of
// either tree, active where either input is.
template <typename GridT, typename Fn>
typename GridT::Ptr CombineValues(const GridT& a, const GridT& b, Fn fn) {
  typename GridT::Ptr out = a.copyWithNewTree();
  out->tree().combine2Extended(
      a.tree(), b.tree(),
      [&fn](openvdb::CombineArgs<ValueOf<GridT>>& args) { args.setResult(fn(args.a(), args.b())); },
      /*prune=*/false);
  return out;
}

// Active values of b over a copy of a; the active set is the union.
template <typename GridT>
typename GridT::Ptr ReplaceValues(const GridT& a, const GridT& b) {
  typename GridT::Ptr out = a.deepCopy();
  openvdb::tools::compReplace(*out, b);
  return out;
}

template <typename T>
T IntegerDivide(T a, T b) {
  constexpr T kLargest = std::numeric_limits<T>::max();
  if (b == 0) return a == 0 ? T(0) : (a > 0 ? kLargest : T(-kLargest));
  // Negation by wrap-around: the smallest value divided by -1 would trap.
  if (b == -1) return T(std::make_unsigned_t<T>(0) - std::make_unsigned_t<T>(a));
  return T(a / b);
}

// A division leaves infinities and NaNs; they become 0, active states kept.
template <typename GridT>
void ZeroNonFinite(GridT& grid) {
  using TreeT = typename GridT::TreeType;
  using ValueT = ValueOf<GridT>;
  TreeT& tree = grid.tree();
  if (!std::isfinite(tree.background())) openvdb::tools::changeBackground(tree, ValueT(0), /*threaded=*/true, 32);
  openvdb::tree::LeafManager<TreeT> leaves(tree);
  leaves.foreach ([](typename TreeT::LeafNodeType& leaf, size_t) {
    ValueT* data = leaf.buffer().data();
    for (openvdb::Index i = 0; i < TreeT::LeafNodeType::SIZE; ++i)
      if (!std::isfinite(data[i])) data[i] = ValueT(0);
  });
  auto tiles = tree.beginValueAll();
  tiles.setMaxDepth(TreeT::ValueAllIter::LEAF_DEPTH - 1);
  for (; tiles; ++tiles)
    if (!std::isfinite(*tiles)) tiles.setValue(ValueT(0));
}

template <typename GridT>
typename GridT::Ptr MixScalar(const GridT& a, const GridT& b, MIXTYPE type) {
  using ValueT = ValueOf<GridT>;
  switch (type) {
    // A NaN on either side fails the comparison and keeps a.
    case MIXTYPE::MAXIMUM: return CombineValues(a, b, [](ValueT x, ValueT y) { return y > x ? y : x; });
    case MIXTYPE::MINIMUM: return CombineValues(a, b, [](ValueT x, ValueT y) { return x > y ? y : x; });
    case MIXTYPE::ADD:
    case MIXTYPE::SUBTRACT: return CombineValues(a, b, [](ValueT x, ValueT y) { return ValueT(x + y); });
    case MIXTYPE::MULTIPLY: return CombineValues(a, b, [](ValueT x, ValueT y) { return ValueT(x * y); });
    case MIXTYPE::DIVIDE:
      if constexpr (std::is_integral_v<ValueT>) {
        return CombineValues(a, b, [](ValueT x, ValueT y) { return IntegerDivide(x, y); });
      } else {
        typename GridT::Ptr out = CombineValues(a, b, [](ValueT x, ValueT y) { return ValueT(x / y); });
        ZeroNonFinite(*out);
        return out;
      }
    default: return ReplaceValues(a, b);
  }
}

template <typename GridT>
typename GridT::Ptr MixVector(const GridT& a, const GridT& b, MIXVECTORTYPE type) {
  using ValueT = ValueOf<GridT>;
  switch (type) {
    case MIXVECTORTYPE::ADD:
    case MIXVECTORTYPE::SUBTRACT: return CombineValues(a, b, [](const ValueT& x, const ValueT& y) { return x + y; });
    case MIXVECTORTYPE::CROSS:
      // Where only one field is present the other passes through: a true cross
      // product with a zero vector would erase it.
      return CombineValues(a, b, [](const ValueT& x, const ValueT& y) {
        const ValueT zero = openvdb::zeroVal<ValueT>();
        if (x == zero) return y;
        if (y == zero) return x;
        return x.cross(y);
      });
    default: return ReplaceValues(a, b);
  }
}

struct MixOutcome {
  openvdb::GridBase::Ptr grid;
  std::optional<zta::Error> error;
};

// The frame shared by MixVolumes and MixVectorVolumes: checks, the second volume
// resampled into the first one's frame, the scale pass, then `mix(a, b)` on the
// typed grids. `Accepts` names the grid types that are mixed; others give a
// volume without a grid.
template <typename Accepts, typename Mix>
Result<Volume> MixFrame(const Volume& volumeOne, const Volume& volumeTwo, bool negateSecond, const ThreadRef& thread,
                        Accepts accepts, Mix mix) {
  auto classOk = [](GRIDCLASS c) { return c == GRIDCLASS::FOG || c == GRIDCLASS::UNKNOWN; };
  if (!classOk(volumeOne.GetGridClass()) || !classOk(volumeTwo.GetGridClass()))
    return zta::IllegalArgumentError(
        "passed volumes have the wrong grid class, only GRIDCLASS Fog and Unknown are valid");
  if (!volumeOne.GetImpl() || !volumeTwo.GetImpl()) return zta::IllegalArgumentError("passed volumes were not initialized");
  if (volumeOne.GetGridType() != volumeTwo.GetGridType() || !accepts(volumeOne.GetGridType())) return Volume::Create();

  const openvdb::GridBase::Ptr gridOne = VolumeImpl::GetGrid(volumeOne);
  if (!gridOne) return zta::IllegalStateError("volume one had no grid attached");
  const auto map = gridOne->transform().baseMap();
  const auto affine = map ? map->getAffineMap() : nullptr;
  if (!affine) return zta::IllegalStateError("grid transform not initialized");
  auto resampled = VolumeToolsInterface::ResampleVolume(volumeTwo, FromMat4d(affine->getMat4()),
                                                        RESAMPLEINTERPOLATIONTYPE::QUADRATIC, thread);
  if (!resampled) return resampled.GetError();
  if (!resampled->GetImpl()) return zta::IllegalStateError("target volume was not initialized");
  const openvdb::GridBase::Ptr gridTwo = VolumeImpl::GetGrid(*resampled);
  if (!gridTwo) return zta::IllegalStateError("volume one had no grid attached");

  MixOutcome outcome;
  try {
    ApplyToGrid(gridOne, [&](const auto& typedOne) {
      using GridT = typename std::decay_t<decltype(typedOne)>::element_type;
      using ValueT = ValueOf<GridT>;
      if constexpr (!std::is_same_v<ValueT, bool>) {
        const typename GridT::ConstPtr typedTwo = openvdb::gridConstPtrCast<GridT>(gridTwo);
        if (!typedTwo) return;
        ScaleOffsetOp<ValueT> opTwo;
        if (negateSecond) opTwo.scale = ValueT(-1);
        const auto first = ApplyScaleOffset<GridT>(typedOne, ScaleOffsetOp<ValueT>());
        if (!first) {
          outcome.error = first.GetError();
          return;
        }
        const auto second = ApplyScaleOffset<GridT>(typedTwo, opTwo);
        if (!second) {
          outcome.error = second.GetError();
          return;
        }
        if (!*first || !*second) {
          outcome.error = zta::IllegalStateError("could not prepare two volumes for mixing");
          return;
        }
        outcome.grid = mix(**first, **second);
      }
    });
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("mix on two grids failed");
  }
  if (outcome.error) return *outcome.error;
  if (!outcome.grid) return zta::UnexpectedError("grid could not be combined");
  return MakeVolume(outcome.grid);
}

template <typename T>
T TruncateToInteger(double v) {
  if (std::isnan(v)) return T(0);
  if (v >= double(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
  if (v <= double(std::numeric_limits<T>::lowest())) return std::numeric_limits<T>::lowest();
  return T(v);
}

template <typename ValueT>
ValueT BlendValue(const ValueT& a, const ValueT& b, double t) {
  if constexpr (std::is_same_v<ValueT, float>) {
    return float(double(a) * t + double(b) * (1.0 - t));
  } else if constexpr (std::is_floating_point_v<ValueT>) {
    return a * t + b * (1.0 - t);
  } else if constexpr (std::is_integral_v<ValueT>) {
    return TruncateToInteger<ValueT>(double(a) * t + double(b) * (1.0 - t));
  } else {
    using ElemT = typename ValueT::value_type;
    ValueT out;
    for (int i = 0; i < 3; ++i) {
      if constexpr (std::is_integral_v<ElemT>) {
        // An integer vector has no fraction to weigh with; it goes as an integer scalar does.
        out[i] = TruncateToInteger<ElemT>(double(a[i]) * t + double(b[i]) * (1.0 - t));
      } else {
        const ElemT w = ElemT(t);
        out[i] = a[i] * w + b[i] * (ElemT(1) - w);
      }
    }
    return out;
  }
}

}  // namespace

Result<Volume> VolumeToolsInterface::MixVolumes(const Volume& volumeOne, const Volume& volumeTwo, MIXTYPE type,
                                                const ThreadRef& thread) {
  auto scalar = [](GRIDTYPE t) {
    return t == GRIDTYPE::FLOAT || t == GRIDTYPE::DOUBLE || t == GRIDTYPE::INT32 || t == GRIDTYPE::INT64;
  };
  return MixFrame(volumeOne, volumeTwo, type == MIXTYPE::SUBTRACT, thread, scalar,
                  [type](const auto& a, const auto& b) -> openvdb::GridBase::Ptr {
                    using ValueT = ValueOf<std::decay_t<decltype(a)>>;
                    if constexpr (openvdb::VecTraits<ValueT>::IsVec) return nullptr;
                    else return MixScalar(a, b, type);
                  });
}

Result<Volume> VolumeToolsInterface::MixVectorVolumes(const Volume& volumeOne, const Volume& volumeTwo,
                                                      MIXVECTORTYPE type, const ThreadRef& thread) {
  auto vector = [](GRIDTYPE t) { return t == GRIDTYPE::VEC3I || t == GRIDTYPE::VEC3S || t == GRIDTYPE::VEC3D; };
  return MixFrame(volumeOne, volumeTwo, type == MIXVECTORTYPE::SUBTRACT, thread, vector,
                  [type](const auto& a, const auto& b) -> openvdb::GridBase::Ptr {
                    using ValueT = ValueOf<std::decay_t<decltype(a)>>;
                    if constexpr (!openvdb::VecTraits<ValueT>::IsVec) return nullptr;
                    else return MixVector(a, b, type);
                  });
}

Result<Volume> VolumeToolsInterface::BlendVolumes(const Volume& volumeA, const Volume& volumeB, double blendValue,
                                                  const ThreadRef& thread) {
  if (!volumeA.GetImpl() || !volumeB.GetImpl()) return zta::IllegalArgumentError("one of the input volumes is not initialized");
  if (!volumeA.HasGrid() || !volumeB.HasGrid())
    return zta::IllegalArgumentError("one of the input volumes has no grid attached");
  if (volumeA.GetGridType() != volumeB.GetGridType())
    return zta::IllegalArgumentError("the passed volumes do not have the same grid type");

  const openvdb::GridBase::Ptr gridA = VolumeImpl::GetGrid(volumeA);
  const openvdb::GridBase::Ptr gridB = VolumeImpl::GetGrid(volumeB);
  openvdb::GridBase::Ptr result;
  try {
    // Index by index: transforms are not matched, the result keeps volumeA's.
    ApplyToGrid(gridA, [&](const auto& typedA) {
      using GridT = typename std::decay_t<decltype(typedA)>::element_type;
      using ValueT = ValueOf<GridT>;
      if constexpr (!std::is_same_v<ValueT, bool>) {
        const auto typedB = openvdb::gridConstPtrCast<GridT>(gridB);
        if (!typedB) return;
        result = CombineValues(*typedA, *typedB,
                               [blendValue](const ValueT& a, const ValueT& b) { return BlendValue(a, b, blendValue); });
      }
    });
    // Types that are not blended: volumeA as it is.
    if (!result) result = gridA->deepCopyGrid();
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    return zta::UnexpectedError("blend on two grids failed");
  }
  if (!result) return zta::OutOfMemoryError();
  return MakeVolume(result);
}

}  // namespace zelmar
