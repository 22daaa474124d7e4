// net.zelmar.command.volumes.sdftofog: ConvertSDFToFog on each input.
#include <limits>

#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class SdfToFogCommand final : public VolumeToVolumeCommand {
 public:
  using VolumeToVolumeCommand::VolumeToVolumeCommand;

 protected:
  Result<Volume> Apply(const Volume& volume, const CommandSettings& settings,
                       const ThreadRef& /*thread*/) const override {
    return VolumeToolsInterface::ConvertSDFToFog(volume, settings.GetFloat(SDFTOFOG_CUTOFF));
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
