#include "modules/volumes/source/helper/vdbgridtransformer.h"

#include <openvdb/tools/ChangeBackground.h>
#include <openvdb/tools/GridTransformer.h>

#include "modules/volumes/source/helper/gridtypes.h"

namespace zelmar {

openvdb::GridBase::Ptr TransformGrid(const openvdb::GridBase::Ptr& grid, const openvdb::math::Mat4d& matrix) {
  openvdb::GridBase::Ptr result;
  ApplyToGrid(grid, [&](const auto& in) {
    using GridT = typename std::decay_t<decltype(in)>::element_type;
    typename GridT::Ptr out = in->copyWithNewTree();
    openvdb::tools::GridTransformer transformer(matrix);
    transformer.setThreaded(true);
    transformer.setTransformTiles(true);
    openvdb::tools::changeBackground(out->tree(), in->background(), /*threaded=*/true, 32);
    transformer.transformGrid<openvdb::tools::PointSampler>(*in, *out);
    result = out;
  });
  return result;
}

}  // namespace zelmar
