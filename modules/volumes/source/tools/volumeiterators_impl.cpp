// Grid iterators: OpenVDB's tree value iterators (value-on, value-off,
// value-all) behind one interface per value type.
#include <new>
#include <variant>

#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumeiterators.h"

namespace zelmar {

namespace {

constexpr const char* kWrongType = "Passed grid does not have the correct type";
constexpr const char* kCreationFailed = "iterator creation failed";

template <typename GridT>
constexpr GRIDTYPE GridTypeOfGrid() {
  using V = typename GridT::ValueType;
  if constexpr (std::is_same_v<V, bool>) return GRIDTYPE::BOOL;
  else if constexpr (std::is_same_v<V, float>) return GRIDTYPE::FLOAT;
  else if constexpr (std::is_same_v<V, double>) return GRIDTYPE::DOUBLE;
  else if constexpr (std::is_same_v<V, int32_t>) return GRIDTYPE::INT32;
  else if constexpr (std::is_same_v<V, int64_t>) return GRIDTYPE::INT64;
  else if constexpr (std::is_same_v<V, openvdb::Vec3i>) return GRIDTYPE::VEC3I;
  else if constexpr (std::is_same_v<V, openvdb::Vec3s>) return GRIDTYPE::VEC3S;
  else if constexpr (std::is_same_v<V, openvdb::Vec3d>) return GRIDTYPE::VEC3D;
  else return GRIDTYPE::NONE;
}

template <typename T, typename V>
T ConvertValue(const V& v) {
  if constexpr (openvdb::VecTraits<V>::IsVec) {
    using E = decltype(T{}.x);
    return T(E(v.x()), E(v.y()), E(v.z()));
  } else {
    return T(v);
  }
}

// The grids an iterator of value type T walks: its own, and the other
// precision of the same kind for floating-point values.
template <typename T> struct Walkable;
template <> struct Walkable<bool> { using List = std::tuple<openvdb::BoolGrid>; };
template <> struct Walkable<float> { using List = std::tuple<openvdb::FloatGrid, openvdb::DoubleGrid>; };
template <> struct Walkable<double> { using List = std::tuple<openvdb::DoubleGrid, openvdb::FloatGrid>; };
template <> struct Walkable<int32_t> { using List = std::tuple<openvdb::Int32Grid>; };
template <> struct Walkable<int64_t> { using List = std::tuple<openvdb::Int64Grid>; };
template <> struct Walkable<zta::IntVector32> { using List = std::tuple<openvdb::Vec3IGrid>; };
template <> struct Walkable<zta::Vector32> { using List = std::tuple<openvdb::Vec3SGrid, openvdb::Vec3DGrid>; };
template <> struct Walkable<zta::Vector64> { using List = std::tuple<openvdb::Vec3DGrid, openvdb::Vec3SGrid>; };

// One running walk over a grid of type GridT.
template <typename GridT, int WALK>
struct Walk {
  using TreeT = typename GridT::TreeType;
  using IterT = std::conditional_t<WALK == 1, typename TreeT::ValueOnCIter,
                                   std::conditional_t<WALK == 2, typename TreeT::ValueOffCIter,
                                                      typename TreeT::ValueAllCIter>>;
  explicit Walk(typename GridT::ConstPtr g) : grid(std::move(g)), iter(grid->tree()) {}
  typename GridT::ConstPtr grid;
  IterT iter;
};

template <typename T, int WALK, typename List = typename Walkable<T>::List>
class GridIteratorImpl;

template <typename T, int WALK, typename... GridTs>
class GridIteratorImpl<T, WALK, std::tuple<GridTs...>> final : public GridIteratorInterface<T> {
  using State = std::variant<std::monostate, Walk<GridTs, WALK>...>;

 public:
  GRIDTYPE GetDataType() const override { return kGridTypeOf<T>; }
  GRIDTYPE GetGridType() const override { return gridType_; }

  Result<void> SetGridType(GRIDTYPE gridType) override {
    if (!((GridTypeOfGrid<GridTs>() == gridType) || ...)) return zta::IllegalArgumentError(kWrongType);
    gridType_ = gridType;
    return zta::OK();
  }

  Result<void> Init(const Volume& volume) override {
    state_ = std::monostate{};
    volume_ = Volume();
    grid_.reset();
    if (!volume.IsInitialized()) return zta::OK();
    volume_ = volume;
    grid_ = VolumeImpl::GetGrid(volume);
    if (gridType_ == GRIDTYPE::NONE) gridType_ = kGridTypeOf<T>;

    Result<void> result = zta::OK();
    ApplyToGrid(grid_, [&](auto g) {
      using G = typename decltype(g)::element_type;
      if (GridTypeOfGrid<G>() != gridType_) {
        result = zta::IllegalArgumentError(kWrongType);
        return;
      }
      if constexpr ((std::is_same_v<G, GridTs> || ...)) {
        try {
          state_.template emplace<Walk<G, WALK>>(g);
        } catch (const std::bad_alloc&) {
          result = zta::OutOfMemoryError(kCreationFailed);
        }
      }
    });
    if (!result) state_ = std::monostate{};
    return result;
  }

  bool IsValid() const override {
    return std::visit(
        [](const auto& w) {
          if constexpr (std::is_same_v<std::decay_t<decltype(w)>, std::monostate>) return false;
          else return w.iter.test();
        },
        state_);
  }

  void MoveNext() override {
    std::visit(
        [](auto& w) {
          if constexpr (!std::is_same_v<std::decay_t<decltype(w)>, std::monostate>) {
            if (w.iter.test()) ++w.iter;
          }
        },
        state_);
  }

  T GetValue() const override {
    return std::visit(
        [](const auto& w) -> T {
          if constexpr (std::is_same_v<std::decay_t<decltype(w)>, std::monostate>) return T{};
          else return w.iter.test() ? ConvertValue<T>(w.iter.getValue()) : T{};
        },
        state_);
  }

  IntVector32 GetCoords() const override {
    return std::visit(
        [](const auto& w) -> IntVector32 {
          if constexpr (std::is_same_v<std::decay_t<decltype(w)>, std::monostate>) return {0, 0, 0};
          else {
            if (!w.iter.test()) return {0, 0, 0};
            const openvdb::Coord c = w.iter.getCoord();
            return {c.x(), c.y(), c.z()};
          }
        },
        state_);
  }

  int32_t GetDepth() const override {
    return std::visit(
        [](const auto& w) -> int32_t {
          if constexpr (std::is_same_v<std::decay_t<decltype(w)>, std::monostate>) return 3;
          else return w.iter.test() ? int32_t(w.iter.getDepth()) : 3;
        },
        state_);
  }

 private:
  GRIDTYPE gridType_ = GRIDTYPE::NONE;
  // Held so that the grid outlives the walk.
  Volume volume_;
  openvdb::GridBase::Ptr grid_;
  State state_;
};

// OpenVDB 10 has no string-valued tree: no grid is ever of this type, so Init
// refuses every grid and a walk never starts.
class StringGridIterator final : public GridIteratorInterface<std::string> {
 public:
  GRIDTYPE GetDataType() const override { return GRIDTYPE::STRING; }
  GRIDTYPE GetGridType() const override { return gridType_; }
  Result<void> SetGridType(GRIDTYPE gridType) override {
    if (gridType != GRIDTYPE::STRING) return zta::IllegalArgumentError(kWrongType);
    gridType_ = gridType;
    return zta::OK();
  }
  Result<void> Init(const Volume& volume) override {
    gridType_ = GRIDTYPE::STRING;
    openvdb::GridBase::Ptr grid = VolumeImpl::GetGrid(volume);
    bool inCascade = false;
    ApplyToGrid(grid, [&inCascade](auto) { inCascade = true; });
    return inCascade ? zta::Result<void>(zta::IllegalArgumentError(kWrongType)) : zta::OK();
  }
  bool IsValid() const override { return false; }
  void MoveNext() override {}
  std::string GetValue() const override { return {}; }
  IntVector32 GetCoords() const override { return {0, 0, 0}; }
  int32_t GetDepth() const override { return 3; }

 private:
  GRIDTYPE gridType_ = GRIDTYPE::NONE;
};

template <typename I>
Result<GridIteratorBaseRef> Make() {
  try {
    return GridIteratorBaseRef(std::make_shared<I>());
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError(kCreationFailed);
  }
}

// One family of classes per walk, one class per value type.
template <int WALK>
Result<GridIteratorBaseRef> CreateInFamily(GRIDTYPE dataType) {
  switch (dataType) {
    case GRIDTYPE::BOOL: return Make<GridIteratorImpl<bool, WALK>>();
    case GRIDTYPE::FLOAT: return Make<GridIteratorImpl<float, WALK>>();
    case GRIDTYPE::DOUBLE: return Make<GridIteratorImpl<double, WALK>>();
    case GRIDTYPE::INT32: return Make<GridIteratorImpl<int32_t, WALK>>();
    case GRIDTYPE::INT64: return Make<GridIteratorImpl<int64_t, WALK>>();
    case GRIDTYPE::VEC3I: return Make<GridIteratorImpl<zta::IntVector32, WALK>>();
    case GRIDTYPE::VEC3S: return Make<GridIteratorImpl<zta::Vector32, WALK>>();
    case GRIDTYPE::VEC3D: return Make<GridIteratorImpl<zta::Vector64, WALK>>();
    case GRIDTYPE::STRING: return Make<StringGridIterator>();
    case GRIDTYPE::NONE: break;
  }
  return zta::IllegalArgumentError(kCreationFailed);
}

}  // namespace

Result<GridIteratorBaseRef> GridIteratorCreationImpl::Create(GRIDTYPE dataType, int32_t iteratorType) {
  if (iteratorType == 1) return CreateInFamily<1>(dataType);
  if (iteratorType == 2) return CreateInFamily<2>(dataType);
  return CreateInFamily<3>(dataType);
}

}  // namespace zelmar
