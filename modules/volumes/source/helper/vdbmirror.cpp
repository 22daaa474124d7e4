#include "modules/volumes/source/helper/vdbmirror.h"

#include <openvdb/tools/Prune.h>
#include <openvdb/tree/LeafManager.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <vector>

#include "modules/volumes/source/helper/gridtypes.h"

namespace zelmar {

namespace {

template <typename GridT>
typename GridT::Ptr Mirror(const GridT& in) {
  using TreeT = typename GridT::TreeType;
  using LeafT = typename TreeT::LeafNodeType;
  constexpr int DIM = int(LeafT::DIM);
  const TreeT& src = in.tree();
  typename GridT::Ptr out = in.copyWithNewTree();
  TreeT& dst = out->tree();

  // Tiles first: their mirrored boxes need not be leaf-aligned, and the leaves
  // added below replace any partial leaf that a fill created.
  {
    auto tile = src.cbeginValueAll();
    tile.setMaxDepth(TreeT::ValueAllCIter::LEAF_DEPTH - 1);
    for (; tile; ++tile) {
      if (!tile.isValueOn() && *tile == src.background()) continue;
      openvdb::CoordBBox box;
      tile.getBoundingBox(box);
      const openvdb::CoordBBox mirrored(openvdb::Coord(box.min().x(), box.min().y(), -box.max().z()),
                                        openvdb::Coord(box.max().x(), box.max().y(), -box.min().z()));
      dst.fill(mirrored, *tile, tile.isValueOn());
    }
  }

  // Each source leaf with origin z0 lands in the leaves at -z0-DIM (its slices
  // 1..DIM-1) and -z0 (its slice 0).
  std::vector<openvdb::Coord> origins;
  origins.reserve(src.leafCount() * 2);
  for (auto leaf = src.cbeginLeaf(); leaf; ++leaf) {
    const openvdb::Coord o = leaf->origin();
    origins.emplace_back(o.x(), o.y(), -o.z() - DIM);
    origins.emplace_back(o.x(), o.y(), -o.z());
  }
  std::sort(origins.begin(), origins.end());
  origins.erase(std::unique(origins.begin(), origins.end()), origins.end());

  std::vector<LeafT*> leaves(origins.size(), nullptr);
  tbb::parallel_for(tbb::blocked_range<size_t>(0, origins.size(), 64), [&](const tbb::blocked_range<size_t>& r) {
    openvdb::tree::ValueAccessor<const TreeT> acc(src);
    for (size_t n = r.begin(); n != r.end(); ++n) {
      const openvdb::Coord d = origins[n];
      auto* leaf = new LeafT(d, src.background());
      // Source leaves holding -d.z-DIM+1 .. -d.z (slices DIM-1 .. 0 of the new leaf).
      const LeafT* below = acc.probeConstLeaf(openvdb::Coord(d.x(), d.y(), -d.z() - DIM));
      const LeafT* above = acc.probeConstLeaf(openvdb::Coord(d.x(), d.y(), -d.z()));
      for (int x = 0; x < DIM; ++x) {
        for (int y = 0; y < DIM; ++y) {
          for (int z = 0; z < DIM; ++z) {
            const openvdb::Index to = LeafT::coordToOffset(openvdb::Coord(x, y, z));
            const LeafT* from = z == 0 ? above : below;
            if (from) {
              const openvdb::Index at = LeafT::coordToOffset(openvdb::Coord(x, y, z == 0 ? 0 : DIM - z));
              leaf->setValueOnly(to, from->getValue(at));
              leaf->setActiveState(to, from->isValueOn(at));
            } else {
              const openvdb::Coord c(d.x() + x, d.y() + y, -(d.z() + z));
              typename TreeT::ValueType v;
              const bool on = acc.probeValue(c, v);
              leaf->setValueOnly(to, v);
              leaf->setActiveState(to, on);
            }
          }
        }
      }
      leaves[n] = leaf;
    }
  });
  for (LeafT* leaf : leaves) dst.addLeaf(leaf);

  if (in.getGridClass() == openvdb::GRID_LEVEL_SET) openvdb::tools::pruneLevelSet(dst);
  return out;
}

}  // namespace

openvdb::GridBase::Ptr MirrorGridIndexZ(const openvdb::GridBase::Ptr& grid) {
  openvdb::GridBase::Ptr result;
  ApplyToGrid(grid, [&](const auto& typed) { result = Mirror(*typed); });
  return result;
}

}  // namespace zelmar
