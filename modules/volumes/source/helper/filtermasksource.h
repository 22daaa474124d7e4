#pragma once
// The mask of one filter pass. It is built anew for every pass, because a
// field is sampled on the voxels of the volume as the filter has left it.
#include <openvdb/openvdb.h>

#include "modules/volumes/source/helper/threadprogress.h"
#include "zelmar/volumetools.h"

namespace zelmar {

struct FilterMaskSource {
  const FieldSampleData* maskField = nullptr;
  double strength = 1.0;
  // The working volume, whose voxels a field is sampled on.
  const Volume* referenceVolume = nullptr;
  ThreadRef thread;
  // An uninitialised Volume when there is none.
  Volume maskVolume;
};

// The explicit mask volume as it stands; else the field sampled on the
// reference, scaled by the strength; else a constant mask of the strength when
// it is not 1. An uninitialised Volume means no mask.
Result<Volume> BuildFilterMask(const FilterMaskSource& source);

// The float grid of a mask; null for no mask, or one of another value type.
openvdb::FloatGrid::ConstPtr MaskGrid(const Volume& mask);

// `passes` runs of `pass(mask)`, each with a mask built for the volume as the
// passes before left it (`mask` null for none). A mask that cannot be built
// ends the loop and is the result; a stop request ends it quietly, since a
// stopped filter hands back its input. Each pass reports its share of
// [progressFrom, progressTo] on the thread.
template <typename Pass>
Result<void> RunMaskedPasses(const FilterMaskSource& source, int64_t passes, Pass&& pass, double progressFrom = 0.0,
                             double progressTo = 1.0) {
  for (int64_t i = 0; i < passes; ++i) {
    if (source.thread && source.thread->TestBreak()) break;
    Result<Volume> mask = BuildFilterMask(source);
    if (!mask) return mask.GetError();
    const openvdb::FloatGrid::ConstPtr maskGrid = MaskGrid(*mask);
    pass(maskGrid.get());
    ReportThreadProgress(source.thread, progressFrom + (progressTo - progressFrom) * double(i + 1) / double(passes));
  }
  return zta::OK();
}

}  // namespace zelmar
