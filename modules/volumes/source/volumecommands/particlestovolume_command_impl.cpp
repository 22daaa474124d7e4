// net.zelmar.command.volumes.particlestovolume: PointsToVolume of each particle input.
#include "host/objects/particles.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"
#include "zelmar/pointstovolume.h"

namespace zelmar {

namespace {

// The particles into `list`: each with `radius`, or with its own radius times
// `radius`; velocities times `velocityScale`.
Result<void> Fill(PointsToVolumeListInterface& list, const zta::ParticleObject& particles, bool ownRadius,
                  double radius, double velocityScale, const ThreadRef& thread) {
  const auto& positions = particles.GetPositions();
  const auto& radii = particles.GetRadii();
  const auto& velocities = particles.GetVelocities();
  for (size_t i = 0; i < positions.size(); ++i) {
    if ((i & 0xffff) == 0 && IsStopped(thread)) return zta::UnexpectedError("particles to volume was stopped");
    const double r = ownRadius ? radii[i] * radius : radius;
    if (auto added = list.AppendPoint(positions[i], r, velocities[i] * velocityScale); !added) return added;
  }
  return zta::OK();
}

class ParticlesToVolumeCommand final : public PerInputCommand {
 public:
  using PerInputCommand::PerInputCommand;

 protected:
  Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                      const zta::BaseObject* input, Int32 index) const override {
    // An input that is no particle object has no particles: PointsToVolume
    // makes its empty level set of it.
    const auto* particles = dynamic_cast<const zta::ParticleObject*>(input);
    const double radius = settings.GetFloat(PARTICLESTOVOLUME_RADIUS);
    const bool ownRadius = settings.GetInt32(PARTICLESTOVOLUME_MODE) == 1;
    const double velocityScale = settings.GetFloat(PARTICLESTOVOLUME_VELOCITYSCALE);

    // Positions are in world space already, so the list names no object whose
    // matrix would turn the grid.
    auto list = PointsToVolumeListInterface::Create(nullptr, 1.0, velocityScale);
    if (!list) return list.GetError();
    if (particles) {
      if (auto filled = Fill(*list, *particles, ownRadius, radius, velocityScale, thread); !filled)
        return filled;
    }
    const std::optional<Matrix> transform = settings.GetMatrix(PARTICLESTOVOLUME_TRANSFORM);
    auto volume = VolumeToolsInterface::PointsToVolume({*list}, settings.GetFloat(PARTICLESTOVOLUME_GRIDSIZE),
                                                       settings.GetInt32(PARTICLESTOVOLUME_BANDWIDTH), thread,
                                                       transform ? &*transform : nullptr, velocityScale);
    if (!volume) return volume.GetError();
    return AddVolumeResult(data, *volume, {index});
  }
};

}  // namespace

VolumeCommandEntry ParticlesToVolumeCommandEntry() {
  return MakeCommandEntry<ParticlesToVolumeCommand>(
      {kParticlesToVolumeCommand,
       "particlestovolume",
       "particle objects (emitter, particle group, matrix object), positions in world space",
       {
           {PARTICLESTOVOLUME_GRIDSIZE, "gridsize", COMMANDVALUETYPE::FLOAT, 0.1, "voxel size"},
           {PARTICLESTOVOLUME_BANDWIDTH, "bandwidth", COMMANDVALUETYPE::INT32, zta::Int32(3),
            "half width of the narrow band in voxels"},
           {PARTICLESTOVOLUME_RADIUS, "radius", COMMANDVALUETYPE::FLOAT, 1.0,
            "radius of every particle, or the factor on their own radii in mode 1"},
           {PARTICLESTOVOLUME_VELOCITYSCALE, "velocityscale", COMMANDVALUETYPE::FLOAT, 0.0,
            "length of the trails along the velocities; 0 stamps spheres only"},
           {PARTICLESTOVOLUME_MODE, "mode", COMMANDVALUETYPE::INT32, zta::Int32(0),
            "0 every particle takes radius, 1 its own radius times radius"},
           {PARTICLESTOVOLUME_TRANSFORM, "transform", COMMANDVALUETYPE::MATRIX, zta::GeData(),
            "creation transform, whose scale decides the voxel size"},
       }});
}

}  // namespace zelmar
