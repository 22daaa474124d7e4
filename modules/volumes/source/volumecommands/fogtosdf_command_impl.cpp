// net.zelmar.command.volumes.fogtosdf: ConvertFogToSDF on each input.
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class FogToSdfCommand final : public VolumeToVolumeCommand {
 public:
  using VolumeToVolumeCommand::VolumeToVolumeCommand;

 protected:
  Result<Volume> Apply(const Volume& volume, const CommandSettings& settings,
                       const ThreadRef& thread) const override {
    return VolumeToolsInterface::ConvertFogToSDF(volume, settings.GetFloat(FOGTOSDF_ISO), thread);
  }
};

}  // namespace

VolumeCommandEntry FogToSdfCommandEntry() {
  return MakeCommandEntry<FogToSdfCommand>(
      {kFogToSdfCommand,
       "fogtosdf",
       "volume objects holding scalar fog volumes",
       {
           {FOGTOSDF_ISO, "iso", COMMANDVALUETYPE::FLOAT, 0.5, "the density whose surface becomes the zero level"},
       }});
}

}  // namespace zelmar
