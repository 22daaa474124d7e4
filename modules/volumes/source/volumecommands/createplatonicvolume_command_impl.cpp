// net.zelmar.command.volumes.createplatonicvolume: one SDF platonic solid, no inputs.
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class CreatePlatonicVolumeCommand final : public VolumeCommand {
 public:
  using VolumeCommand::VolumeCommand;

 protected:
  Result<zta::COMMANDRESULT> Run(VolumeCommandData& data, const CommandSettings& settings,
                                 const ThreadRef& thread) const override {
    const std::optional<Matrix> transform = settings.GetMatrix(CREATEPLATONIC_TRANSFORM);
    auto solid = VolumeToolsInterface::CreatePlatonicVolume(
        settings.GetInt32(CREATEPLATONIC_SIDES), settings.GetFloat(CREATEPLATONIC_SIZE),
        settings.GetVector(CREATEPLATONIC_POSITION), settings.GetFloat(CREATEPLATONIC_GRIDSIZE),
        settings.GetInt32(CREATEPLATONIC_BANDWIDTH), thread, transform ? &*transform : nullptr);
    return FinishWithoutInputs(data, std::move(solid), thread);
  }
};

}  // namespace

VolumeCommandEntry CreatePlatonicVolumeCommandEntry() {
  return MakeCommandEntry<CreatePlatonicVolumeCommand>(
      {kCreatePlatonicVolumeCommand,
       "createplatonicvolume",
       "none",
       {
           {CREATEPLATONIC_SIDES, "sides", COMMANDVALUETYPE::INT32, zta::Int32(6), "faces: 4, 6, 8, 12 or 20"},
           {CREATEPLATONIC_SIZE, "size", COMMANDVALUETYPE::FLOAT, 1.0, "scale of the solid in world units"},
           {CREATEPLATONIC_POSITION, "position", COMMANDVALUETYPE::VECTOR, zta::Vector(0.0), "centre"},
           {CREATEPLATONIC_GRIDSIZE, "gridsize", COMMANDVALUETYPE::FLOAT, 0.1, "voxel size"},
           {CREATEPLATONIC_BANDWIDTH, "bandwidth", COMMANDVALUETYPE::INT32, zta::Int32(3),
            "half width of the narrow band in voxels"},
           {CREATEPLATONIC_TRANSFORM, "transform", COMMANDVALUETYPE::MATRIX, zta::GeData(),
            "creation transform, whose scale decides the voxel size"},
       }});
}

}  // namespace zelmar
