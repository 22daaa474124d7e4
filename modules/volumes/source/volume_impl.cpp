#include "modules/volumes/source/volume_impl.h"

#include <openvdb/tools/ChangeBackground.h>
#include <openvdb/tree/LeafManager.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <cmath>

#include "host/core/diagnostics.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

constexpr double kDoubleMax = std::numeric_limits<double>::max();

template <typename T>
double RangeValue(const T& v) {
  if constexpr (std::is_same_v<T, bool>) return v ? 1.0 : 0.0;
  else if constexpr (openvdb::VecTraits<T>::IsVec) return double(v.length());
  else return double(v);
}

// Active values and tiles of a tree reduced to (min, max) in parallel.
template <typename GridT>
std::pair<double, double> ActiveRange(const GridT& grid) {
  using TreeT = typename GridT::TreeType;
  const TreeT& tree = grid.tree();
  std::pair<double, double> init(kDoubleMax, -kDoubleMax);
  auto join = [](std::pair<double, double> a, const std::pair<double, double>& b) {
    a.first = std::min(a.first, b.first);
    a.second = std::max(a.second, b.second);
    return a;
  };
  openvdb::tree::LeafManager<const TreeT> leaves(tree);
  auto range = tbb::parallel_reduce(
      leaves.leafRange(), init,
      [&](const auto& r, std::pair<double, double> acc) {
        for (auto leaf = r.begin(); leaf; ++leaf) {
          for (auto it = leaf->cbeginValueOn(); it; ++it) {
            const double v = RangeValue(*it);
            acc.first = std::min(acc.first, v);
            acc.second = std::max(acc.second, v);
          }
        }
        return acc;
      },
      join);
  auto tiles = tree.cbeginValueOn();
  tiles.setMaxDepth(TreeT::ValueOnCIter::LEAF_DEPTH - 1);
  for (; tiles; ++tiles) {
    const double v = RangeValue(*tiles);
    range.first = std::min(range.first, v);
    range.second = std::max(range.second, v);
  }
  return range;
}

template <typename GridT>
void ScaleValues(GridT& grid, double ratio) {
  using TreeT = typename GridT::TreeType;
  using ValueT = typename TreeT::ValueType;
  TreeT& tree = grid.tree();
  const ValueT r = static_cast<ValueT>(ratio);
  openvdb::tree::LeafManager<TreeT> leaves(tree);
  leaves.foreach ([r](typename TreeT::LeafNodeType& leaf, size_t) {
    ValueT* data = leaf.buffer().data();
    for (openvdb::Index i = 0; i < TreeT::LeafNodeType::SIZE; ++i) data[i] *= r;
  });
  auto tiles = tree.beginValueAll();
  tiles.setMaxDepth(TreeT::ValueAllIter::LEAF_DEPTH - 1);
  for (; tiles; ++tiles) tiles.setValue(*tiles * r);
  openvdb::tools::changeBackground(tree, static_cast<ValueT>(tree.background() * r), /*threaded=*/true, 32);
}

}  // namespace

void ScaleDistanceValues(openvdb::GridBase& grid, double ratio) {
  if (auto* f = dynamic_cast<openvdb::FloatGrid*>(&grid)) ScaleValues(*f, ratio);
  else if (auto* d = dynamic_cast<openvdb::DoubleGrid*>(&grid)) ScaleValues(*d, ratio);
}

VolumeImpl::VolumeImpl(const VolumeImpl& src)
    : grid(src.grid ? src.grid->copyGrid() : nullptr),
      boundingBox(src.boundingBox),
      gridType(src.gridType),
      gridClass(src.gridClass) {}

Result<void> VolumeImpl::SetGrid(Volume& volume, openvdb::GridBase::Ptr grid) {
  VolumeImpl* impl = volume.GetImpl();
  if (!impl) return zta::IllegalStateError("Volume object is not initialized - cannnot set a grid");
  if (!grid) return zta::OK();
  impl->grid = std::move(grid);
  impl->gridClass = FromVdbGridClass(impl->grid->getGridClass());
  impl->gridType = DetectGridType(*impl->grid);

  // Both corners go through the map and back, so the cache is in index space.
  const openvdb::CoordBBox box = impl->grid->evalActiveVoxelBoundingBox();
  const auto& map = *impl->grid->transform().baseMap();
  auto corner = [&map](const openvdb::Coord& c) {
    return FromVec3d(map.applyInverseMap(map.applyMap(c.asVec3d())));
  };
  impl->boundingBox = {corner(box.min()), corner(box.max())};
  impl->valueRangeValid = false;
  return zta::OK();
}

openvdb::GridBase::Ptr VolumeImpl::GetGrid(const Volume& volume) {
  return volume.GetImpl() ? volume.GetImpl()->grid : nullptr;
}

Result<void> VolumeImpl::MakeUnique() {
  if (!grid) return zta::IllegalStateError("no tree has been set to be made unique");
  grid = grid->deepCopyGrid();
  return zta::OK();
}

Matrix VolumeImpl::GetGridTransform() const {
  if (!grid) return Matrix();
  const auto map = grid->transform().baseMap();
  if (!map || !map->isLinear()) return Matrix();
  return FromMat4d(map->getAffineMap()->getMat4());
}

void VolumeImpl::SetGridTransform(const Matrix& requested) {
  if (!grid) return;
  try {
    Matrix m = requested;
    if (std::abs(m.Det()) < 1e-15) {
      // Singular: rebuild from the rotation and the axis lengths, none below 0.0001.
      Vector scale = m.GetScale();
      const Matrix rot = zta::GetRotation(m);
      for (int i = 0; i < 3; ++i) {
        if (std::abs(scale[i]) < 0.0001) scale[i] = scale[i] < 0.0 ? -0.0001 : 0.0001;
      }
      m.v1 = rot.v1 * scale.x;
      m.v2 = rot.v2 * scale.y;
      m.v3 = rot.v3 * scale.z;
    }
    const openvdb::math::Mat4d mat = ToMat4d(m);
    const auto map = grid->transform().baseMap();
    if (map && map->isLinear() && map->getAffineMap()->getMat4() == mat) return;

    if (gridClass == GRIDCLASS::SDF && (gridType == GRIDTYPE::FLOAT || gridType == GRIDTYPE::DOUBLE)) {
      const Matrix old = GetGridTransform();
      const Vector oldLen = old.GetScale();
      const bool oldUniform = std::abs(oldLen.x - oldLen.y) <= 1e-8 && std::abs(oldLen.x - oldLen.z) <= 1e-8;
      if (map && map->isLinear() && oldUniform) {
        const Vector newLen = m.GetScale();
        double newScale = newLen.x;
        if (std::abs(newLen.x - newLen.y) > 1e-8 || std::abs(newLen.x - newLen.z) > 1e-8)
          newScale = (newLen.x + newLen.y + newLen.z) / 3.0;
        const double oldScale = oldLen.x == 0.0 ? 0.0001 : oldLen.x;
        if (std::abs(newScale - oldScale) >= 1e-8) {
          const double ratio = newScale / oldScale;
          if (ratio != 1.0) {
            // A write: the tree may be shared with copies, which keep their values.
            if (!MakeUnique()) return;
            ScaleDistanceValues(*grid, ratio);
            valueRangeValid = false;
          }
        }
      }
    }

    auto xform = openvdb::math::Transform::createLinearTransform(1.0);
    xform->postMult(mat);
    // A grid object that other volumes hold too (an operator's result may
    // share its input's) gets a shallow copy of its own: the tree stays shared.
    if (grid.use_count() > 1) grid = grid->copyGrid();
    grid->setTransform(xform);
  } catch (...) {
    zta::DiagnosticOutput("too smal transform set");
  }
}

ValueRange VolumeImpl::GetMinMaxValues(bool includeBackground) const {
  ValueRange r{kDoubleMax, -kDoubleMax};
  if (!grid) return r;
  if (!valueRangeValid) {
    std::pair<double, double> range(0.0, 0.0);
    ApplyToGrid(grid, [&](const auto& g) { range = ActiveRange(*g); });
    valueRangeMinimum = range.first;
    valueRangeMaximum = range.second;
    valueRangeValid = true;
  }
  r = {valueRangeMinimum, valueRangeMaximum};
  if (!(r.max >= r.min)) r = {0.0, 0.0};
  if (includeBackground) {
    ApplyToGrid(grid, [&](const auto& g) {
      using ValueT = typename std::decay_t<decltype(*g)>::ValueType;
      double bg;
      if constexpr (std::is_same_v<ValueT, openvdb::Vec3i>) bg = double(int64_t(g->background().length()));
      else bg = RangeValue(g->background());
      r.min = std::min(r.min, bg);
      r.max = std::max(r.max, bg);
    });
  }
  return r;
}

Data VolumeImpl::GetBackground() const {
  Data out;
  ApplyToGrid(grid, [&](const auto& g) {
    const auto bg = g->background();
    using ValueT = std::decay_t<decltype(bg)>;
    if constexpr (std::is_same_v<ValueT, openvdb::Vec3i>) out = zta::IntVector32(bg.x(), bg.y(), bg.z());
    else if constexpr (std::is_same_v<ValueT, openvdb::Vec3s>) out = zta::Vector32(bg.x(), bg.y(), bg.z());
    else if constexpr (std::is_same_v<ValueT, openvdb::Vec3d>) out = zta::Vector64(bg.x(), bg.y(), bg.z());
    else out = bg;
  });
  return out;
}

Result<Volume> MakeVolume(openvdb::GridBase::Ptr grid) {
  auto volume = Volume::Create();
  if (!volume) return volume.GetError();
  auto set = VolumeImpl::SetGrid(*volume, std::move(grid));
  if (!set) return set.GetError();
  return volume;
}

Result<Volume> ShareGrid(const Volume& source) {
  const VolumeImpl* from = source.GetImpl();
  if (!from) return zta::IllegalStateError("volume was not initialized");
  auto volume = Volume::Create();
  if (!volume) return volume.GetError();
  VolumeImpl* to = volume->GetImpl();
  to->grid = from->grid;
  to->boundingBox = from->boundingBox;
  to->gridType = from->gridType;
  to->gridClass = from->gridClass;
  to->valueRangeValid = from->valueRangeValid;
  to->valueRangeMinimum = from->valueRangeMinimum;
  to->valueRangeMaximum = from->valueRangeMaximum;
  return volume;
}

// ---- Volume: the reference's operations forward to its VolumeImpl. ----

Result<Volume> Volume::Create() {
  try {
    return Volume(std::make_shared<VolumeImpl>());
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
}

bool Volume::HasGrid() const { return impl_ && impl_->grid; }
GRIDTYPE Volume::GetGridType() const { return impl_ ? impl_->gridType : GRIDTYPE::NONE; }
GRIDCLASS Volume::GetGridClass() const { return impl_ ? impl_->gridClass : GRIDCLASS::NONE; }

void Volume::SetGridClass(GRIDCLASS gridClass) {
  if (!impl_) return;
  impl_->gridClass = gridClass;
  if (impl_->grid) impl_->grid->setGridClass(ToVdbGridClass(gridClass));
}

void Volume::SetGridTransform(const Matrix& m) {
  if (impl_) impl_->SetGridTransform(m);
}
Matrix Volume::GetGridTransform() const { return impl_ ? impl_->GetGridTransform() : Matrix(); }

void Volume::SetGridName(const std::string& name) {
  if (HasGrid()) impl_->grid->setName(name);
}
std::string Volume::GetGridName() const { return HasGrid() ? impl_->grid->getName() : std::string(); }

const BoundingBox& Volume::GetWorldBoundingBox() const {
  static const VolumeImpl empty;
  return impl_ ? impl_->boundingBox : empty.boundingBox;
}

zta::IntVector32 Volume::GetActiveVoxelDim() const {
  if (!HasGrid()) return {0, 0, 0};
  const openvdb::Coord d = impl_->grid->evalActiveVoxelDim();
  return {d.x(), d.y(), d.z()};
}

Int Volume::GetActiveVoxelCount() const { return HasGrid() ? Int(impl_->grid->activeVoxelCount()) : 0; }
Data Volume::GetBackground() const { return impl_ ? impl_->GetBackground() : Data(); }
Int Volume::GetMemUsage() const { return HasGrid() ? Int(impl_->grid->memUsage()) : -1; }

ValueRange Volume::GetMinMaxValues(bool includeBackground) const {
  if (!impl_) return {kDoubleMax, -kDoubleMax};
  return impl_->GetMinMaxValues(includeBackground);
}

Result<Volume> Volume::Clone() const {
  if (!impl_) return zta::IllegalStateError("volume was not initialized");
  try {
    return Volume(std::make_shared<VolumeImpl>(*impl_));
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
}

Result<void> Volume::MakeUnique() {
  if (!impl_) return zta::IllegalStateError("no tree has been set to be made unique");
  return impl_->MakeUnique();
}

namespace {
Result<void> CheckExistingFile(const Url& url) {
  if (url.IsEmpty() || zta::IoDetect(url) != zta::IODETECT::FILE)
    return zta::IllegalArgumentError("File could not be found");
  return zta::OK();
}
}  // namespace

Result<Volume> Volume::CreateFromFile(const Url& url, double scale, Int gridIndex) {
  if (auto ok = CheckExistingFile(url); !ok) return ok.GetError();
  auto volume = Create();
  if (!volume) return volume;
  auto loaded = VolumeToolsInterface::LoadGridIntoVolume(url, scale, gridIndex, *volume, nullptr);
  if (!loaded) return loaded.GetError();
  return volume;
}

Result<void> Volume::LoadFromFile(const Url& url, double scale, Int gridIndex) {
  if (auto ok = CheckExistingFile(url); !ok) return ok;
  return VolumeToolsInterface::LoadGridIntoVolume(url, scale, gridIndex, *this, nullptr);
}

Result<void> Volume::WriteToFile(const Url& url, double scale, const DataDictionary& metaData) const {
  // The target need not exist yet; its folder must.
  if (url.IsEmpty()) return zta::IllegalArgumentError("File could not be found");
  if (url.IsFile()) {
    const auto slash = url.GetPath().find_last_of('/');
    if (slash != std::string::npos && slash > 0 &&
        zta::IoDetect(Url::FromSystemPath(url.GetPath().substr(0, slash))) != zta::IODETECT::DIRECTORY)
      return zta::IllegalArgumentError("File could not be found");
  }
  return VolumeToolsInterface::SaveVDBFile(url, scale, {*this}, metaData);
}

const char* GridTypeName(GRIDTYPE type) {
  switch (type) {
    case GRIDTYPE::NONE: return "none";
    case GRIDTYPE::FLOAT: return "float";
    case GRIDTYPE::DOUBLE: return "double";
    case GRIDTYPE::INT32: return "int32";
    case GRIDTYPE::INT64: return "int64";
    case GRIDTYPE::VEC3I: return "vec3i";
    case GRIDTYPE::VEC3S: return "vec3s";
    case GRIDTYPE::VEC3D: return "vec3d";
    case GRIDTYPE::STRING: return "string";
    case GRIDTYPE::BOOL: return "bool";
  }
  return "none";
}

const char* GridClassName(GRIDCLASS c) {
  switch (c) {
    case GRIDCLASS::NONE: return "none";
    case GRIDCLASS::SDF: return "level set";
    case GRIDCLASS::FOG: return "fog volume";
    case GRIDCLASS::STAGGERED: return "staggered";
    case GRIDCLASS::UNKNOWN: return "unknown";
  }
  return "unknown";
}

}  // namespace zelmar
