// Particles to a level set: spheres, or trails along the velocities.
#include <openvdb/tools/ParticlesToLevelSet.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "host/scene/baseobject.h"
#include "modules/volumes/source/helper/gridtypes.h"
#include "modules/volumes/source/helper/threadinterrupter.h"
#include "modules/volumes/source/volume_impl.h"
#include "zelmar/pointstovolume.h"

namespace zelmar {

class PointsToVolumeListImpl {
 public:
  static constexpr size_t kBlockSize = 1024;
  using Block = std::array<PointsToVolumePoint, kBlockSize>;

  const zta::BaseObject* object = nullptr;
  double scale = 1.0;
  double velicityScale = 1.0;
  std::vector<std::unique_ptr<Block>> blocks;
  size_t count = 0;

  const PointsToVolumePoint& At(size_t i) const { return (*blocks[i / kBlockSize])[i % kBlockSize]; }
};

Result<PointsToVolumeListInterface> PointsToVolumeListInterface::Create(const zta::BaseObject* object, double scale,
                                                                        double velicityScale) {
  PointsToVolumeListInterface list;
  try {
    list.impl_ = std::make_shared<PointsToVolumeListImpl>();
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  }
  list.impl_->object = object;
  list.impl_->scale = scale;
  list.impl_->velicityScale = velicityScale;
  return list;
}

Result<void> PointsToVolumeListInterface::AppendPoint(const Vector& position, double radius, const Vector& velocity) {
  if (!impl_) return zta::IllegalStateError("particle list not initialized");
  PointsToVolumeListImpl& l = *impl_;
  const size_t slot = l.count % PointsToVolumeListImpl::kBlockSize;
  if (slot == 0 && l.count / PointsToVolumeListImpl::kBlockSize == l.blocks.size()) {
    try {
      l.blocks.push_back(std::make_unique<PointsToVolumeListImpl::Block>());
    } catch (const std::bad_alloc&) {
      return zta::OutOfMemoryError();
    }
  }
  (*l.blocks[l.count / PointsToVolumeListImpl::kBlockSize])[slot] = {position, velocity, radius};
  ++l.count;
  return zta::OK();
}

Int PointsToVolumeListInterface::GetCount() const { return impl_ ? Int(impl_->count) : 0; }
const PointsToVolumePoint& PointsToVolumeListInterface::GetPoint(Int index) const { return impl_->At(size_t(index)); }
const zta::BaseObject* PointsToVolumeListInterface::GetObject() const { return impl_ ? impl_->object : nullptr; }
double PointsToVolumeListInterface::GetScale() const { return impl_ ? impl_->scale : 1.0; }
double PointsToVolumeListInterface::GetVelicityScale() const { return impl_ ? impl_->velicityScale : 1.0; }

namespace {

// All points of all lists, one after the other, in the form ParticlesToLevelSet reads.
class ParticleListAdapter {
 public:
  using PosType = openvdb::Vec3R;

  explicit ParticleListAdapter(const std::vector<PointsToVolumeListInterface>& lists) {
    size_t total = 0;
    for (const auto& l : lists) {
      if (!l.GetImpl() || l.GetImpl()->count == 0) continue;
      lists_.push_back(l.GetImpl());
      starts_.push_back(total);
      total += l.GetImpl()->count;
    }
    size_ = total;
  }

  size_t size() const { return size_; }
  void getPos(size_t n, openvdb::Vec3R& xyz) const { xyz = ToVec3d(At(n).position); }
  void getPosRad(size_t n, openvdb::Vec3R& xyz, openvdb::Real& radius) const {
    const PointsToVolumePoint& p = At(n);
    xyz = ToVec3d(p.position);
    radius = p.radius;
  }
  void getPosRadVel(size_t n, openvdb::Vec3R& xyz, openvdb::Real& radius, openvdb::Vec3R& velocity) const {
    const PointsToVolumePoint& p = At(n);
    xyz = ToVec3d(p.position);
    radius = p.radius;
    velocity = ToVec3d(p.velocity);
  }

 private:
  const PointsToVolumePoint& At(size_t n) const {
    // Few lists: a search over their starts is cheap beside a sphere.
    const size_t k = size_t(std::upper_bound(starts_.begin(), starts_.end(), n) - starts_.begin()) - 1;
    return lists_[k]->At(n - starts_[k]);
  }

  std::vector<const PointsToVolumeListImpl*> lists_;
  std::vector<size_t> starts_;
  size_t size_ = 0;
};

// The creation transform itself when its axes have one length (to 1e-10);
// otherwise its rotation and offset with the largest of its axis lengths.
Matrix UniformCreationMatrix(const Matrix& m) {
  const Vector len = m.GetScale();
  if (std::abs(len.x - len.y) <= 1e-10 && std::abs(len.x - len.z) <= 1e-10 && std::abs(len.y - len.z) <= 1e-10)
    return m;
  const double s = std::max({len.x, len.y, len.z});
  Matrix u = zta::GetRotation(m);
  u.v1 *= s;
  u.v2 *= s;
  u.v3 *= s;
  u.off = m.off;
  return u;
}

// The grid's frame. ParticlesToLevelSet needs uniform voxels, so a non-uniform
// creation transform gives way to one with its rotation and offset and the
// largest of its axis lengths.
//
// No residual matrix (the inverse of that uniform matrix times the creation
// transform) is applied to the positions. ParticlesToLevelSet takes positions
// in world space and maps them through the grid's own transform, so the
// residual would move every particle: it scales positions about the world
// origin by the ratio of each axis to the largest, and a particle at (1, 0, 0)
// under axis lengths (0.02, 0.02, 0.04) would be stamped at (0.5, 0, 0). The
// particles keep their world positions only when they go in as they are.
openvdb::math::Transform::Ptr GridTransform(const std::vector<PointsToVolumeListInterface>& lists, double gridSize,
                                            const Matrix* creationTransform) {
  if (!creationTransform) {
    auto xform = openvdb::math::Transform::createLinearTransform(gridSize);
    if (!lists.empty() && lists.front().GetCount() > 0 && lists.front().GetObject())
      xform->postMult(ToMat4d(lists.front().GetObject()->GetMg()));
    return xform;
  }
  return openvdb::math::Transform::createLinearTransform(ToMat4d(UniformCreationMatrix(*creationTransform)));
}

}  // namespace

Result<Volume> VolumeToolsInterface::PointsToVolume(const std::vector<PointsToVolumeListInterface>& pointObjects,
                                                    double gridSize, int32_t bandWidth, const ThreadRef& thread,
                                                    const Matrix* creationTransform, double velocityScale) {
  // A band of 0 is a level set of background 0; a negative one has no meaning.
  if (bandWidth < 0) return zta::IllegalArgumentError("the band of a level set must not be negative");

  openvdb::math::Transform::Ptr xform;
  try {
    xform = GridTransform(pointObjects, gridSize, creationTransform);
  } catch (const std::bad_alloc&) {
    return zta::OutOfMemoryError();
  } catch (...) {
    // OpenVDB refuses singular matrices and voxel sizes of 0.
  }
  if (!xform) return zta::IllegalArgumentError("could not create transformation");

  openvdb::FloatGrid::Ptr grid;
  try {
    grid = openvdb::FloatGrid::create(float(gridSize * double(bandWidth)));
  } catch (const std::bad_alloc&) {
  }
  if (!grid) return zta::OutOfMemoryError("could not create grid");
  grid->setGridClass(openvdb::GRID_LEVEL_SET);
  grid->setTransform(xform);

  const ParticleListAdapter particles(pointObjects);
  if (particles.size() > 0) {
    try {
      ThreadInterrupter interrupter(thread);
      openvdb::tools::ParticlesToLevelSet<openvdb::FloatGrid, void, ThreadInterrupter> raster(*grid, &interrupter);
      // The rasteriser joins its threads' grids by a level-set union, which
      // refuses a background of 0 (a band of no voxels, or no voxel size
      // beside a creation transform): such a grid is filled on one thread,
      // so that it succeeds every time instead of when only one thread ran.
      if (!(grid->background() > 0.0f)) raster.setGrainSize(0);
      // Radii in voxels: finer than the library's 1.5 and 100, so that small
      // and large particles both appear.
      if (velocityScale == 0.0) {
        raster.setRmin(1.0);
        raster.setRmax(5000.0);
        raster.rasterizeSpheres(particles);
      } else {
        raster.setRmin(1.5);
        raster.setRmax(5000.0);
        raster.rasterizeTrails(particles, 0.75);
      }
      raster.finalize();
    } catch (const std::bad_alloc&) {
      return zta::OutOfMemoryError();
    } catch (...) {
      return zta::IllegalArgumentError("Only uniform voxels and sdf target grids are supported");
    }
  }
  return MakeVolume(grid);
}

}  // namespace zelmar
