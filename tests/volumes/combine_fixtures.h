#pragma once
// Small grids with chosen voxels, and fingerprints that show an input unchanged,
// for the tests of resampling and combining.
#include <openvdb/openvdb.h>
#include <openvdb/tools/Interpolation.h>

#include <cmath>
#include <initializer_list>
#include <ostream>
#include <sstream>
#include <string>

#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/volumetools.h"

namespace zvtest {

template <typename ValueT>
struct Voxel {
  openvdb::Coord ijk;
  ValueT value;
  bool active = true;
};

// A grid of class `gridClass` on a uniform transform, holding the given voxels.
template <typename GridT>
typename GridT::Ptr MakeGrid(const typename GridT::ValueType& background,
                             std::initializer_list<Voxel<typename GridT::ValueType>> voxels,
                             openvdb::GridClass gridClass = openvdb::GRID_FOG_VOLUME, double voxelSize = 1.0) {
  auto grid = GridT::create(background);
  grid->setTransform(openvdb::math::Transform::createLinearTransform(voxelSize));
  grid->setGridClass(gridClass);
  auto acc = grid->getAccessor();
  for (const auto& v : voxels) {
    if (v.active) acc.setValueOn(v.ijk, v.value);
    else acc.setValueOff(v.ijk, v.value);
  }
  return grid;
}

inline zelmar::Volume Wrap(openvdb::GridBase::Ptr grid) { return *zelmar::MakeVolume(std::move(grid)); }

template <typename GridT>
typename GridT::Ptr Typed(const zelmar::Volume& v) {
  return openvdb::gridPtrCast<GridT>(zelmar::VolumeImpl::GetGrid(v));
}

// Everything of a grid a caller could see change: its address, transform,
// background, active count, and every stored value with its state.
struct Fingerprint {
  const void* grid = nullptr;
  openvdb::math::Mat4d transform;
  std::string background;
  openvdb::Index64 active = 0;
  double valueSum = 0.0;
  double stateSum = 0.0;
  bool operator==(const Fingerprint&) const = default;
  friend std::ostream& operator<<(std::ostream& o, const Fingerprint& f) {
    return o << "{grid " << f.grid << ", transform " << f.transform << ", background " << f.background << ", active "
              << f.active << ", values " << f.valueSum << ", states " << f.stateSum << "}";
  }
};

template <typename T>
double Weigh(const T& v) {
  if constexpr (openvdb::VecTraits<T>::IsVec) {
    return Weigh(v[0]) + 3.0 * Weigh(v[1]) + 7.0 * Weigh(v[2]);
  } else {
    // NaN would make two equal fingerprints differ.
    return std::isnan(double(v)) ? 123456.789 : double(v);
  }
}

inline Fingerprint TakeFingerprint(const zelmar::Volume& volume) {
  Fingerprint f;
  const openvdb::GridBase::Ptr grid = zelmar::VolumeImpl::GetGrid(volume);
  if (!grid) return f;
  f.grid = grid.get();
  f.transform = grid->transform().baseMap()->getAffineMap()->getMat4();
  f.active = grid->activeVoxelCount();
  zelmar::ApplyToGrid(grid, [&](const auto& g) {
    std::ostringstream bg;
    bg << g->background();
    f.background = bg.str();
    double n = 0.0;
    for (auto it = g->cbeginValueAll(); it; ++it) {
      n += 1.0;
      f.valueSum += n * Weigh(*it);
      f.stateSum += it.isValueOn() ? n : 0.0;
    }
  });
  return f;
}

// A world-space sample with trilinear interpolation.
inline float SampleWorld(const openvdb::FloatGrid& g, const openvdb::Vec3d& p) {
  openvdb::tools::GridSampler<openvdb::FloatGrid, openvdb::tools::BoxSampler> s(g);
  return s.wsSample(p);
}

}  // namespace zvtest
