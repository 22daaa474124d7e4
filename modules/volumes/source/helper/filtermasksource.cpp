#include "modules/volumes/source/helper/filtermasksource.h"

#include <openvdb/tools/ValueTransformer.h>

#include "host/fields/fieldlist.h"
#include "modules/volumes/source/volume_impl.h"

namespace zelmar {

Result<Volume> BuildFilterMask(const FilterMaskSource& source) {
  if (source.maskVolume.IsInitialized()) return source.maskVolume;
  const FieldSampleData* field = source.maskField;
  if (field && field->fields && field->fields->HasContent() && source.referenceVolume) {
    Result<Volume> mask =
        VolumeToolsInterface::CreateMaskFromField(*field, *source.referenceVolume, source.strength, source.thread);
    if (!mask) return mask;
    if (source.strength != 1.0) {
      if (auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(*mask))) {
        const float s = float(source.strength);
        openvdb::tools::foreach(grid->beginValueOn(), [s](const openvdb::FloatGrid::ValueOnIter& it) {
          it.setValue(*it * s);
        });
      }
    }
    return mask;
  }
  if (source.strength != 1.0) {
    // An empty grid samples as its background everywhere: a constant fade.
    return VolumeToolsInterface::CreateNewFloat32Volume(float(source.strength));
  }
  return Volume();
}

openvdb::FloatGrid::ConstPtr MaskGrid(const Volume& mask) {
  return openvdb::gridConstPtrCast<openvdb::FloatGrid>(VolumeImpl::GetGrid(mask));
}

}  // namespace zelmar
