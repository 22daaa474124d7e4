// net.zelmar.command.volumes.filter: ApplyFilterToVolume on each input.
#include "host/fields/fieldlist.h"
#include "host/fields/splinedata.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"

namespace zelmar {

namespace {

class FilterCommand final : public VolumeToVolumeCommand {
 public:
  using VolumeToVolumeCommand::VolumeToVolumeCommand;

 protected:
  Result<Volume> Apply(const Volume& volume, const CommandSettings& settings,
                       const ThreadRef& thread) const override {
    FilterSettings filter;
    filter.filterType = FILTERTYPE(settings.GetInt32(FILTER_TYPE));
    filter.iterations = settings.GetInt32(FILTER_ITERATIONS);
    filter.radius = settings.GetInt32(FILTER_RADIUS);
    filter.offset = float(settings.GetFloat(FILTER_OFFSET));
    filter.strength = settings.GetFloat(FILTER_STRENGTH);
    filter.remap_oldMin = settings.GetFloat(FILTER_OLDMIN);
    filter.remap_oldMax = settings.GetFloat(FILTER_OLDMAX);
    filter.remap_newMin = settings.GetFloat(FILTER_NEWMIN);
    filter.remap_newMax = settings.GetFloat(FILTER_NEWMAX);
    filter.invertCenter = settings.GetFloat(FILTER_INVERTCENTER);
    filter.remapCurve = settings.GetSplineData(FILTER_CURVE);

    const CommandMask mask = ReadMask(settings, FILTER_MASKVOLUME, FILTER_MASKFIELDS, FILTER_MASKSPACE);
    return VolumeToolsInterface::ApplyFilterToVolume(volume, filter, thread, mask.volume, mask.Fields());
  }
};

}  // namespace

VolumeCommandEntry FilterCommandEntry() {
  return MakeCommandEntry<FilterCommand>(
      {kFilterCommand,
       "filter",
       "volume objects holding float or vec3s volumes",
       {
           {FILTER_TYPE, "type", COMMANDVALUETYPE::INT32, zta::Int32(1),
            "1 gaussian, 2 mean, 3 median, 4 add, 5 remap, 6 curve remap, 7 multiply, 8 abs, 9 invert"},
           {FILTER_ITERATIONS, "iterations", COMMANDVALUETYPE::INT32, zta::Int32(1), "repetitions"},
           {FILTER_RADIUS, "radius", COMMANDVALUETYPE::INT32, zta::Int32(1), "neighbourhood in voxels"},
           {FILTER_OFFSET, "offset", COMMANDVALUETYPE::FLOAT, 0.0, "the value of add and multiply"},
           {FILTER_STRENGTH, "strength", COMMANDVALUETYPE::FLOAT, 1.0, "fade of the filter, 0 to 1"},
           {FILTER_OLDMIN, "oldmin", COMMANDVALUETYPE::FLOAT, 0.0, "remap: lower end of the old range"},
           {FILTER_OLDMAX, "oldmax", COMMANDVALUETYPE::FLOAT, 1.0, "remap: upper end of the old range"},
           {FILTER_NEWMIN, "newmin", COMMANDVALUETYPE::FLOAT, 0.0, "remap: lower end of the new range"},
           {FILTER_NEWMAX, "newmax", COMMANDVALUETYPE::FLOAT, 1.0, "remap: upper end of the new range"},
           {FILTER_INVERTCENTER, "invertcenter", COMMANDVALUETYPE::FLOAT, 0.5, "the centre of invert"},
           {FILTER_CURVE, "curve", COMMANDVALUETYPE::SPLINEDATA, zta::GeData(), "the curve of curve remap"},
           {FILTER_MASKVOLUME, "maskvolume", COMMANDVALUETYPE::LINK, zta::GeData(),
            "a volume object whose float values mask the filter"},
           {FILTER_MASKFIELDS, "maskfields", COMMANDVALUETYPE::FIELDLIST, zta::GeData(),
            "fields sampled as the mask"},
           {FILTER_MASKSPACE, "maskspace", COMMANDVALUETYPE::MATRIX, zta::Matrix(),
            "from the grid's world into the fields' space"},
       }});
}

}  // namespace zelmar
