// net.zelmar.command.volumes.mix: MixVolumes folded over all inputs.
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class MixCommand final : public VolumeCommand {
 public:
  using VolumeCommand::VolumeCommand;

 protected:
  Result<zta::COMMANDRESULT> Run(VolumeCommandData& data, const CommandSettings& settings,
                                 const ThreadRef& thread) const override {
    // Every value goes to MixVolumes, which replaces for those it does not name.
    const MIXTYPE type = MIXTYPE(settings.GetInt32(MIX_TYPE));
    return FoldInputs(data, settings.GetInt32(MIX_BASE), thread, [&](const Volume& a, const Volume& b) {
      return VolumeToolsInterface::MixVolumes(a, b, type, thread);
    });
  }
};

}  // namespace

VolumeCommandEntry MixCommandEntry() {
  return MakeCommandEntry<MixCommand>(
      {kMixCommand,
       "mix",
       "volume objects holding scalar volumes; the base first",
       {
           {MIX_TYPE, "type", COMMANDVALUETYPE::INT32, zta::Int32(1),
            "1 normal, 2 maximum, 3 minimum, 4 add, 5 subtract, 6 multiply, 7 divide"},
           {MIX_BASE, "base", COMMANDVALUETYPE::INT32, zta::Int32(0), "index of the input the others join"},
       }});
}

}  // namespace zelmar
