#pragma once
// Particle sources: the emitter (5109), the particle group (1001381) and the
// matrix object (1018545). Each holds positions, radii and velocities in
// world space; the emitter computes them from its parameters and the time.
#include <memory>
#include <vector>

#include "host/scene/baseobject.h"

namespace zta {

class BaseTime;

enum : Int32 {
  EMITTER_BIRTHRATE = 1000,     // float, particles per second
  EMITTER_LIFETIME = 1001,      // float, seconds
  EMITTER_SPEED = 1002,         // float, units per second along the emitter's z axis
  EMITTER_RADIUS = 1003,        // float, radius of each particle
  EMITTER_SIZEX = 1004,         // float, width of the emitting rectangle
  EMITTER_SIZEY = 1005,         // float, height of the emitting rectangle
  EMITTER_SEED = 1006,          // int32
  MATRIXOBJECT_COUNT = 1000,    // vector, items along each axis of the grid array
  MATRIXOBJECT_SPACING = 1001,  // vector, distance between items
  MATRIXOBJECT_SIZE = 1002,     // float, radius of each item
};

// What all particle sources share: the particles they currently hold.
class ParticleObject : public BaseObject {
 public:
  Int32 GetParticleCount() const { return Int32(positions_.size()); }
  const std::vector<Vector>& GetPositions() const { return positions_; }
  const std::vector<Float>& GetRadii() const { return radii_; }
  const std::vector<Vector>& GetVelocities() const { return velocities_; }
  // Particles are data, not a cache: no generator bits.
  Int32 GetInfo() const override { return 0; }

 protected:
  explicit ParticleObject(Int32 type) : BaseObject(type) {}
  bool CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const override;
  bool GetOwnBounds(Vector& mp, Vector& rad) const override;
  // Radii and velocities must match the positions in count; false otherwise.
  bool Store(std::vector<Vector> positions, std::vector<Float> radii, std::vector<Vector> velocities);

  std::vector<Vector> positions_;
  std::vector<Float> radii_;
  std::vector<Vector> velocities_;
};

// Emits particles from a rectangle in its xy plane along its z axis. Which
// particles are alive at a time follows from the parameters alone, so any
// time can be computed without replaying the frames before it.
class EmitterObject : public ParticleObject {
 public:
  static std::unique_ptr<EmitterObject> Alloc();
  // Fills the particles for `time` with the emitter's present global matrix.
  void Simulate(const BaseTime& time);

 protected:
  EmitterObject();
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(); }
};

// Particles that another system has placed.
class ParticleGroupObject : public ParticleObject {
 public:
  static std::unique_ptr<ParticleGroupObject> Alloc();
  bool SetParticles(std::vector<Vector> positions, std::vector<Float> radii, std::vector<Vector> velocities) {
    return Store(std::move(positions), std::move(radii), std::move(velocities));
  }

 protected:
  ParticleGroupObject() : ParticleObject(HOST_TYPE_PARTICLE_GROUP) {}
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(); }
};

// A grid array of matrices; each item is a particle whose radius is the size
// times the largest scale of its matrix.
class MatrixObject : public ParticleObject {
 public:
  static std::unique_ptr<MatrixObject> Alloc();
  // Rebuilds the items from the parameters and the object's global matrix.
  void Update();
  const std::vector<Matrix>& GetMatrices() const { return matrices_; }

 protected:
  MatrixObject();
  std::unique_ptr<BaseList2D> AllocSame() const override { return Alloc(); }
  bool CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const override;

 private:
  std::vector<Matrix> matrices_;
};

}  // namespace zta
