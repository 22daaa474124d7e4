#include "host/objects/particles.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "host/scene/basetime.h"

namespace zta {

bool ParticleObject::Store(std::vector<Vector> positions, std::vector<Float> radii, std::vector<Vector> velocities) {
  if (radii.size() != positions.size() || velocities.size() != positions.size()) return false;
  positions_ = std::move(positions);
  radii_ = std::move(radii);
  velocities_ = std::move(velocities);
  SetDirty(DIRTYFLAGS_DATA);
  return true;
}

bool ParticleObject::CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const {
  if (!BaseObject::CopyTo(dest, flags, trans)) return false;
  auto* d = static_cast<ParticleObject*>(dest);
  d->positions_ = positions_;
  d->radii_ = radii_;
  d->velocities_ = velocities_;
  return true;
}

bool ParticleObject::GetOwnBounds(Vector& mp, Vector& rad) const {
  if (positions_.empty()) return false;
  // Particles are in world space; the box is in the object's.
  const Matrix inv = GetMg().GetInverse();
  Vector mn(1e300), mx(-1e300);
  for (size_t i = 0; i < positions_.size(); ++i) {
    const Vector p = inv.TransformPoint(positions_[i]);
    const Float r = radii_[i];
    for (int k = 0; k < 3; ++k) {
      mn[k] = std::min(mn[k], p[k] - r);
      mx[k] = std::max(mx[k], p[k] + r);
    }
  }
  mp = (mn + mx) * 0.5;
  rad = (mx - mn) * 0.5;
  return true;
}

// ---- emitter

namespace {
// A hash of (seed, index, channel) mapped to [0, 1).
Float Random01(Int32 seed, Int64 index, Int32 channel) {
  UInt64 h = UInt64(index) * 0x9E3779B97F4A7C15ull ^ (UInt64(UInt32(seed)) << 32) ^ UInt64(channel) * 0xC2B2AE3D27D4EB4Full;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ull;
  h ^= h >> 33;
  return Float(h >> 11) / Float(1ull << 53);
}
}  // namespace

EmitterObject::EmitterObject() : ParticleObject(HOST_TYPE_EMITTER) {
  BaseContainer* bc = GetDataInstance();
  bc->SetFloat(EMITTER_BIRTHRATE, 10.0);
  bc->SetFloat(EMITTER_LIFETIME, 5.0);
  bc->SetFloat(EMITTER_SPEED, 150.0);
  bc->SetFloat(EMITTER_RADIUS, 5.0);
  bc->SetFloat(EMITTER_SIZEX, 100.0);
  bc->SetFloat(EMITTER_SIZEY, 100.0);
  bc->SetInt32(EMITTER_SEED, 0);
}

std::unique_ptr<EmitterObject> EmitterObject::Alloc() {
  struct Make : EmitterObject {};
  return std::unique_ptr<EmitterObject>(new (std::nothrow) Make());
}

void EmitterObject::Simulate(const BaseTime& time) {
  const BaseContainer* bc = GetDataInstance();
  const Float rate = std::max(0.0, bc->GetFloat(EMITTER_BIRTHRATE));
  const Float life = std::max(0.0, bc->GetFloat(EMITTER_LIFETIME));
  const Float speed = bc->GetFloat(EMITTER_SPEED);
  const Float radius = std::max(0.0, bc->GetFloat(EMITTER_RADIUS));
  const Float sx = bc->GetFloat(EMITTER_SIZEX), sy = bc->GetFloat(EMITTER_SIZEY);
  const Int32 seed = bc->GetInt32(EMITTER_SEED);
  const Float t = time.Get();
  std::vector<Vector> pos, vel;
  std::vector<Float> rad;
  if (rate > 0 && t >= 0) {
    // Particle i is born at i / rate and lives while its age is below the lifetime.
    const Int64 last = Int64(std::floor(t * rate + 1e-9));
    const Int64 first = std::max<Int64>(0, Int64(std::floor((t - life) * rate)) + 1);
    const Matrix mg = GetMg();
    const Vector v = mg.TransformVector({0, 0, speed});
    for (Int64 i = first; i <= last; ++i) {
      const Float age = t - Float(i) / rate;
      if (age < 0 || age >= life) continue;
      const Vector local((Random01(seed, i, 0) - 0.5) * sx, (Random01(seed, i, 1) - 0.5) * sy, speed * age);
      pos.push_back(mg.TransformPoint(local));
      vel.push_back(v);
      rad.push_back(radius);
    }
  }
  Store(std::move(pos), std::move(rad), std::move(vel));
}

// ---- particle group

std::unique_ptr<ParticleGroupObject> ParticleGroupObject::Alloc() {
  struct Make : ParticleGroupObject {};
  return std::unique_ptr<ParticleGroupObject>(new (std::nothrow) Make());
}

// ---- matrix object

MatrixObject::MatrixObject() : ParticleObject(HOST_TYPE_MATRIX) {
  BaseContainer* bc = GetDataInstance();
  bc->SetVector(MATRIXOBJECT_COUNT, Vector(3, 1, 3));
  bc->SetVector(MATRIXOBJECT_SPACING, Vector(100.0));
  bc->SetFloat(MATRIXOBJECT_SIZE, 10.0);
}

std::unique_ptr<MatrixObject> MatrixObject::Alloc() {
  struct Make : MatrixObject {};
  return std::unique_ptr<MatrixObject>(new (std::nothrow) Make());
}

void MatrixObject::Update() {
  const BaseContainer* bc = GetDataInstance();
  const Vector count = bc->GetVector(MATRIXOBJECT_COUNT);
  const Vector spacing = bc->GetVector(MATRIXOBJECT_SPACING);
  const Float size = std::max(0.0, bc->GetFloat(MATRIXOBJECT_SIZE));
  const Int32 nx = std::max(0, Int32(count.x)), ny = std::max(0, Int32(count.y)), nz = std::max(0, Int32(count.z));
  const Matrix mg = GetMg();
  const Vector scale = mg.GetScale();
  const Float radius = size * std::max({scale.x, scale.y, scale.z});
  std::vector<Matrix> mats;
  std::vector<Vector> pos, vel;
  std::vector<Float> rad;
  for (Int32 i = 0; i < nx; ++i)
    for (Int32 j = 0; j < ny; ++j)
      for (Int32 k = 0; k < nz; ++k) {
        // The array is centred on the object.
        const Vector local((i - (nx - 1) * 0.5) * spacing.x, (j - (ny - 1) * 0.5) * spacing.y,
                           (k - (nz - 1) * 0.5) * spacing.z);
        const Matrix m = mg * MatrixMove(local);
        mats.push_back(m);
        pos.push_back(m.off);
        vel.push_back(Vector());
        rad.push_back(radius);
      }
  matrices_ = std::move(mats);
  Store(std::move(pos), std::move(rad), std::move(vel));
}

bool MatrixObject::CopyTo(BaseList2D* dest, Int32 flags, AliasTrans* trans) const {
  if (!ParticleObject::CopyTo(dest, flags, trans)) return false;
  static_cast<MatrixObject*>(dest)->matrices_ = matrices_;
  return true;
}

}  // namespace zta
