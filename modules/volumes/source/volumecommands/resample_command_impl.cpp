// net.zelmar.command.volumes.resample: ResampleVolume of each input onto a target transform.
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

// `m` with each axis scaled to `length`, its direction and the offset kept.
Matrix WithVoxelSize(Matrix m, double length) {
  for (Vector* axis : {&m.v1, &m.v2, &m.v3}) {
    const double l = axis->GetLength();
    *axis = l > 0.0 ? *axis * (length / l) : *axis;
  }
  return m;
}

class ResampleCommand final : public VolumeToVolumeCommand {
 public:
  using VolumeToVolumeCommand::VolumeToVolumeCommand;

 protected:
  Result<Volume> Apply(const Volume& volume, const CommandSettings& settings,
                       const ThreadRef& thread) const override {
    Matrix target = settings.GetMatrix(RESAMPLE_TRANSFORM).value_or(volume.GetGridTransform());
    const double gridSize = settings.GetFloat(RESAMPLE_GRIDSIZE);
    if (gridSize < 0.0) return zta::IllegalArgumentError("the voxel size of a resample must not be negative");
    if (gridSize > 0.0) target = WithVoxelSize(target, gridSize);
    return VolumeToolsInterface::ResampleVolume(
        volume, target, RESAMPLEINTERPOLATIONTYPE(settings.GetInt32(RESAMPLE_INTERPOLATION)), thread);
  }
};

}  // namespace

VolumeCommandEntry ResampleCommandEntry() {
  return MakeCommandEntry<ResampleCommand>(
      {kResampleCommand,
       "resample",
       "volume objects",
       {
           {RESAMPLE_GRIDSIZE, "gridsize", COMMANDVALUETYPE::FLOAT, 0.0,
            "voxel size of the target: each axis of the transform scaled to it; 0 keeps the transform's own"},
           {RESAMPLE_INTERPOLATION, "interpolation", COMMANDVALUETYPE::INT32, zta::Int32(3),
            "1 nearest, 2 linear, 3 quadratic"},
           {RESAMPLE_TRANSFORM, "transform", COMMANDVALUETYPE::MATRIX, zta::GeData(),
            "the target transform; without one, the input's own"},
       }});
}

}  // namespace zelmar
