// net.zelmar.command.volumes.volumetomesh: VolumeToMesh of each input, as polygon objects.
#include "host/objects/polygonobject.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class VolumeToMeshCommand final : public PerInputCommand {
 public:
  using PerInputCommand::PerInputCommand;

 protected:
  Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                      const zta::BaseObject* input, Int32 index) const override {
    const Volume volume = VolumeObjectData::GetVolume(input);
    auto mesh = VolumeToolsInterface::VolumeToMesh(volume, settings.GetFloat(VOLUMETOMESH_ISO),
                                                   settings.GetFloat(VOLUMETOMESH_ADAPTIVITY));
    if (!mesh) return mesh.GetError();
    if (!*mesh) return zta::IllegalStateError("Polygon object was not created");
    data.AddOutput(std::move(*mesh));
    // The record names the volume that was meshed.
    auto appended = data.AppendLegacyData({volume, data.GetOutputCount() - 1, {index}});
    if (!appended) return appended.GetError();
    return zta::OK();
  }
};

}  // namespace

VolumeCommandEntry VolumeToMeshCommandEntry() {
  return MakeCommandEntry<VolumeToMeshCommand>(
      {kVolumeToMeshCommand,
       "volumetomesh",
       "volume objects holding float volumes",
       {
           {VOLUMETOMESH_ISO, "iso", COMMANDVALUETYPE::FLOAT, 0.0, "the value of the surface"},
           {VOLUMETOMESH_ADAPTIVITY, "adaptivity", COMMANDVALUETYPE::FLOAT, 0.0,
            "0 keeps every polygon, towards 1 flat regions take fewer"},
       }});
}

}  // namespace zelmar
