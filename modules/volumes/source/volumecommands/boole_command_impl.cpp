// net.zelmar.command.volumes.boole: BoolVolumes folded over all inputs.
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class BooleCommand final : public VolumeCommand {
 public:
  using VolumeCommand::VolumeCommand;

 protected:
  Result<zta::COMMANDRESULT> Run(VolumeCommandData& data, const CommandSettings& settings,
                                 const ThreadRef& thread) const override {
    // The command's 0, 1, 2 are BoolVolumes' 1, 2, 3; anything else does nothing.
    BOOLTYPE type;
    switch (settings.GetInt32(BOOLE_TYPE)) {
      case 0: type = BOOLTYPE::UNION; break;
      case 1: type = BOOLTYPE::DIFFERENCE; break;
      case 2: type = BOOLTYPE::INTERSECTION; break;
      default: return zta::COMMANDRESULT::SKIP;
    }
    return FoldInputs(data, settings.GetInt32(BOOLE_BASE), thread, [&](const Volume& a, const Volume& b) {
      return VolumeToolsInterface::BoolVolumes(a, b, type, thread);
    });
  }
};

}  // namespace

VolumeCommandEntry BooleCommandEntry() {
  return MakeCommandEntry<BooleCommand>(
      {kBooleCommand,
       "boole",
       "volume objects holding level sets; the base first",
       {
           {BOOLE_TYPE, "type", COMMANDVALUETYPE::INT32, zta::Int32(1), "0 union, 1 subtract, 2 intersect"},
           {BOOLE_BASE, "base", COMMANDVALUETYPE::INT32, zta::Int32(0), "index of the input the others join"},
       }});
}

}  // namespace zelmar
