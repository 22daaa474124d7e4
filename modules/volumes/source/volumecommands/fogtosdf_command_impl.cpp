// net.zelmar.command.volumes.fogtosdf: ConvertFogToSDF on each input.
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class FogToSdfCommand final : public PerInputCommand {
 public:
  using PerInputCommand::PerInputCommand;

 protected:
  Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                      const zta::BaseObject& input, Int32 index) const override {
    auto volume = InputVolume(&input);
    if (!volume) return volume.GetError();
    auto sdf = VolumeToolsInterface::ConvertFogToSDF(*volume, settings.GetFloat(FOGTOSDF_ISO), thread);
    if (!sdf) return sdf.GetError();
    return AddVolumeResult(data, *sdf, {index});
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
