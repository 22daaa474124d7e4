// net.zelmar.command.volumes.sdftofog: ConvertSDFToFog on each input.
#include <limits>

#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class SdfToFogCommand final : public PerInputCommand {
 public:
  using PerInputCommand::PerInputCommand;

 protected:
  Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                      const zta::BaseObject& input, Int32 index) const override {
    auto volume = InputVolume(&input);
    if (!volume) return volume.GetError();
    auto fog = VolumeToolsInterface::ConvertSDFToFog(*volume, settings.GetFloat(SDFTOFOG_CUTOFF));
    if (!fog) return fog.GetError();
    return AddVolumeResult(data, *fog, {index});
  }
};

}  // namespace

VolumeCommandEntry SdfToFogCommandEntry() {
  return MakeCommandEntry<SdfToFogCommand>(
      {kSdfToFogCommand,
       "sdftofog",
       "volume objects holding level sets",
       {
           {SDFTOFOG_CUTOFF, "cutoff", COMMANDVALUETYPE::FLOAT, std::numeric_limits<double>::max(),
            "inside distance beyond which the density is 1, in world units; the default is no cut-off"},
       }});
}

}  // namespace zelmar
