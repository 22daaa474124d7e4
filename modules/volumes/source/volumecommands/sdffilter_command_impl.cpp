// net.zelmar.command.volumes.sdffilter: ApplySDFFilterToVolume on each input.
#include "host/fields/fieldlist.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class SdfFilterCommand final : public VolumeToVolumeCommand {
 public:
  using VolumeToVolumeCommand::VolumeToVolumeCommand;

 protected:
  Result<Volume> Apply(const Volume& volume, const CommandSettings& settings,
                       const ThreadRef& thread) const override {
    SDFFilterSettings filter;
    filter.filterType = SDFFILTERTYPE(settings.GetInt32(SDFFILTER_TYPE));
    filter.iterations = settings.GetInt32(SDFFILTER_ITERATIONS);
    filter.stencilWidth = settings.GetInt32(SDFFILTER_STENCILWIDTH);
    filter.offset = float(settings.GetFloat(SDFFILTER_OFFSET));
    filter.halfWidth = settings.GetInt32(SDFFILTER_HALFWIDTH);
    filter.accuracy = FILTERACCURACY(settings.GetInt32(SDFFILTER_ACCURACY));
    filter.strength = settings.GetFloat(SDFFILTER_STRENGTH);

    const CommandMask mask = ReadMask(settings, SDFFILTER_MASKVOLUME, SDFFILTER_MASKFIELDS, SDFFILTER_MASKSPACE);
    return VolumeToolsInterface::ApplySDFFilterToVolume(volume, filter, thread, mask.volume, mask.Fields());
  }
};

}  // namespace

VolumeCommandEntry SdfFilterCommandEntry() {
  return MakeCommandEntry<SdfFilterCommand>(
      {kSdfFilterCommand,
       "sdffilter",
       "volume objects holding float level sets",
       {
           {SDFFILTER_TYPE, "type", COMMANDVALUETYPE::INT32, zta::Int32(1),
            "1 gaussian, 2 dilate, 3 erode, 4 mean, 5 median, 6 mean curvature, 7 laplacian flow, 8 renormalize, "
            "9 open, 10 close, 11 track, 12 resize"},
           {SDFFILTER_ITERATIONS, "iterations", COMMANDVALUETYPE::INT32, zta::Int32(1), "repetitions"},
           {SDFFILTER_STENCILWIDTH, "stencilwidth", COMMANDVALUETYPE::INT32, zta::Int32(1),
            "stencil of gaussian, mean and median, in voxels"},
           {SDFFILTER_OFFSET, "offset", COMMANDVALUETYPE::FLOAT, 0.1,
            "distance of dilate, erode, open and close, in world units"},
           {SDFFILTER_ACCURACY, "accuracy", COMMANDVALUETYPE::INT32, zta::Int32(1),
            "spatial scheme: 1 first, 2 second, 3 third, 4 weno5, 5 hjweno5"},
           {SDFFILTER_HALFWIDTH, "halfwidth", COMMANDVALUETYPE::INT32, zta::Int32(3), "band of resize, in voxels"},
           {SDFFILTER_STRENGTH, "strength", COMMANDVALUETYPE::FLOAT, 1.0, "fade of the filter, 0 to 1"},
           {SDFFILTER_MASKVOLUME, "maskvolume", COMMANDVALUETYPE::LINK, zta::GeData(),
            "a volume object whose float values mask the filter"},
           {SDFFILTER_MASKFIELDS, "maskfields", COMMANDVALUETYPE::FIELDLIST, zta::GeData(),
            "fields sampled as the mask"},
           {SDFFILTER_MASKSPACE, "maskspace", COMMANDVALUETYPE::MATRIX, zta::Matrix(),
            "from the grid's world into the fields' space"},
       }});
}

}  // namespace zelmar
