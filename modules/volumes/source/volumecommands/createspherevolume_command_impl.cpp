// net.zelmar.command.volumes.createspherevolume: one SDF sphere, no inputs.
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class CreateSphereVolumeCommand final : public VolumeCommand {
 public:
  using VolumeCommand::VolumeCommand;

 protected:
  Result<zta::COMMANDRESULT> Run(VolumeCommandData& data, const CommandSettings& settings,
                                 const ThreadRef& thread) const override {
    const std::optional<Matrix> transform = settings.GetMatrix(CREATESPHERE_TRANSFORM);
    auto sphere = VolumeToolsInterface::CreateSphereVolume(
        settings.GetFloat(CREATESPHERE_RADIUS), settings.GetVector(CREATESPHERE_POSITION),
        settings.GetFloat(CREATESPHERE_GRIDSIZE), settings.GetInt32(CREATESPHERE_BANDWIDTH), thread,
        transform ? &*transform : nullptr);
    return FinishWithoutInputs(data, std::move(sphere), thread);
  }
};

}  // namespace

VolumeCommandEntry CreateSphereVolumeCommandEntry() {
  return MakeCommandEntry<CreateSphereVolumeCommand>(
      {kCreateSphereVolumeCommand,
       "createspherevolume",
       "none",
       {
           {CREATESPHERE_RADIUS, "radius", COMMANDVALUETYPE::FLOAT, 1.0, "radius in world units"},
           {CREATESPHERE_POSITION, "position", COMMANDVALUETYPE::VECTOR, zta::Vector(0.0), "centre"},
           {CREATESPHERE_GRIDSIZE, "gridsize", COMMANDVALUETYPE::FLOAT, 0.1, "voxel size"},
           {CREATESPHERE_BANDWIDTH, "bandwidth", COMMANDVALUETYPE::INT32, zta::Int32(3),
            "half width of the narrow band in voxels"},
           {CREATESPHERE_TRANSFORM, "transform", COMMANDVALUETYPE::MATRIX, zta::GeData(),
            "creation transform, whose scale decides the voxel size"},
       }});
}

}  // namespace zelmar
