#include "modules/volumes/source/helper/vdbmirror.h"

#include <openvdb/tools/Prune.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "modules/volumes/source/helper/gridtypes.h"

namespace zelmar {

namespace {

// One z-row of a leaf's value mask is a byte (bit z). The mirror puts the
// source's slices 1..7 at 7..1 of the leaf below and slice 0 at slice 0 of
// the leaf above, so per byte: reversed bits moved up by one, plus bit 0.
inline uint64_t ReverseBitsOfEachByte(uint64_t w) {
  w = ((w >> 1) & 0x5555555555555555ull) | ((w & 0x5555555555555555ull) << 1);
  w = ((w >> 2) & 0x3333333333333333ull) | ((w & 0x3333333333333333ull) << 2);
  w = ((w >> 4) & 0x0F0F0F0F0F0F0F0Full) | ((w & 0x0F0F0F0F0F0F0F0Full) << 4);
  return w;
}

// What stands in place of a source leaf that does not exist: one tile or
// background value over the whole leaf.
template <typename ValueT>
struct Uniform {
  ValueT value;
  bool on;
  bool operator==(const Uniform& o) const { return on == o.on && value == o.value; }
};

template <typename TreeT>
Uniform<typename TreeT::ValueType> ProbeUniform(const openvdb::tree::ValueAccessor<const TreeT>& acc,
                                               const openvdb::Coord& c) {
  Uniform<typename TreeT::ValueType> u{};
  u.on = acc.probeValue(c, u.value);
  return u;
}

// The leaf at `d` of the mirrored tree: its slices 1..7 are the reversed
// slices 7..1 of the source leaf below (or that leaf's uniform stand-in),
// slice 0 is slice 0 of the source leaf above.
template <typename LeafT>
LeafT* MirroredLeaf(const openvdb::Coord& d, const typename LeafT::ValueType& background, const LeafT* below,
                    const LeafT* above, const Uniform<typename LeafT::ValueType>& belowTile,
                    const Uniform<typename LeafT::ValueType>& aboveTile) {
  using ValueT = typename LeafT::ValueType;
  constexpr int DIM = int(LeafT::DIM);
  auto* leaf = new LeafT(d, background);
  if constexpr (std::is_same_v<ValueT, bool> || std::is_same_v<ValueT, openvdb::ValueMask>) {
    // Bit-packed values: voxel by voxel.
    for (openvdb::Index to = 0; to < LeafT::SIZE; ++to) {
      const int z = int(to & (DIM - 1));
      const openvdb::Index at = (to & ~openvdb::Index(DIM - 1)) | openvdb::Index(z == 0 ? 0 : DIM - z);
      const LeafT* from = z == 0 ? above : below;
      const auto& tile = z == 0 ? aboveTile : belowTile;
      leaf->setValueOnly(to, from ? from->getValue(at) : tile.value);
      leaf->setActiveState(to, from ? from->isValueOn(at) : tile.on);
    }
  } else {
    ValueT* values = leaf->buffer().data();
    const ValueT* b = below ? below->buffer().data() : nullptr;
    const ValueT* a = above ? above->buffer().data() : nullptr;
    for (openvdb::Index row = 0; row < LeafT::SIZE; row += DIM) {
      values[row] = a ? a[row] : aboveTile.value;
      if (b) {
        for (int z = 1; z < DIM; ++z) values[row + z] = b[row + DIM - z];
      } else {
        for (int z = 1; z < DIM; ++z) values[row + z] = belowTile.value;
      }
    }
    auto& mask = leaf->getValueMask();
    for (openvdb::Index w = 0; w < LeafT::NodeMaskType::WORD_COUNT; ++w) {
      const uint64_t bw =
          below ? below->getValueMask().template getWord<uint64_t>(w) : (belowTile.on ? ~uint64_t(0) : 0);
      const uint64_t aw =
          above ? above->getValueMask().template getWord<uint64_t>(w) : (aboveTile.on ? ~uint64_t(0) : 0);
      mask.template getWord<uint64_t>(w) =
          ((ReverseBitsOfEachByte(bw) << 1) & 0xFEFEFEFEFEFEFEFEull) | (aw & 0x0101010101010101ull);
    }
  }
  return leaf;
}

template <typename GridT>
typename GridT::Ptr Mirror(const GridT& in) {
  using TreeT = typename GridT::TreeType;
  using LeafT = typename TreeT::LeafNodeType;
  using ValueT = typename TreeT::ValueType;
  using Accessor = openvdb::tree::ValueAccessor<const TreeT>;
  constexpr int DIM = int(LeafT::DIM);
  static_assert(DIM == 8, "row and mask-word copies assume leaves of 8^3 voxels");
  const TreeT& src = in.tree();
  typename GridT::Ptr out = in.copyWithNewTree();
  TreeT& dst = out->tree();

  // A leaf slot at d (8-aligned in z) of the result takes source z from
  // -d-7 to -d: all but the lowest slice of the source slot at -d-8, and the
  // lowest slice of the slot at -d. Each source leaf thus feeds two slots.
  // A slot fed from below is named by that leaf alone; one fed only from
  // above, by the leaf above when none lies under it.
  std::vector<openvdb::Coord> origins;
  origins.reserve(src.leafCount() * 2);
  {
    Accessor acc(src);
    for (auto leaf = src.cbeginLeaf(); leaf; ++leaf) {
      const openvdb::Coord o = leaf->origin();
      origins.emplace_back(o.x(), o.y(), -o.z() - DIM);
      if (!acc.probeConstLeaf(o.offsetBy(0, 0, -DIM))) origins.emplace_back(o.x(), o.y(), -o.z());
    }
  }

  // A source tile of N^3 at z0 covers the slots from -z0-N+8 to -z0-8 of the
  // result whole, which stay tiles; only its two end slots mix with what lies
  // next to it along z. Filling the whole mirrored box instead would break
  // every tile into leaves.
  // Each edge slot is named once: a tile names the slot at its top side, and
  // the one at its bottom side only when nothing stored lies under it (a
  // leaf there names it through the origins, a tile through its top side).
  std::vector<openvdb::Coord> edges;
  {
    Accessor acc(src);
    auto tile = src.cbeginValueAll();
    tile.setMaxDepth(TreeT::ValueAllCIter::LEAF_DEPTH - 1);
    for (; tile; ++tile) {
      if (!tile.isValueOn() && *tile == src.background()) continue;
      openvdb::CoordBBox box;
      tile.getBoundingBox(box);
      const int n = box.dim().z(), z0 = box.min().z();
      if (n > DIM) {
        dst.fill(openvdb::CoordBBox(openvdb::Coord(box.min().x(), box.min().y(), -z0 - n + DIM),
                                    openvdb::Coord(box.max().x(), box.max().y(), -z0 - 1)),
                 *tile, tile.isValueOn());
      }
      for (int x = box.min().x(); x <= box.max().x(); x += DIM) {
        for (int y = box.min().y(); y <= box.max().y(); y += DIM) {
          edges.emplace_back(x, y, -z0 - n);
          const openvdb::Coord under(x, y, z0 - 1);
          typename TreeT::ValueType value;
          if (!acc.probeConstLeaf(under) && !acc.probeValue(under, value) && value == src.background())
            edges.emplace_back(x, y, -z0);
        }
      }
    }
  }
  // Edge slots between two uniform regions (the others are built from their
  // leaves below): a tile where both agree.
  {
    Accessor acc(src);
    for (const openvdb::Coord& d : edges) {
      if (acc.probeConstLeaf(openvdb::Coord(d.x(), d.y(), -d.z() - DIM)) ||
          acc.probeConstLeaf(openvdb::Coord(d.x(), d.y(), -d.z())))
        continue;
      const auto belowTile = ProbeUniform(acc, openvdb::Coord(d.x(), d.y(), -d.z() - DIM));
      const auto aboveTile = ProbeUniform(acc, openvdb::Coord(d.x(), d.y(), -d.z()));
      if (belowTile == aboveTile) {
        if (belowTile.on || !(belowTile.value == src.background())) dst.addTile(1, d, belowTile.value, belowTile.on);
      } else {
        dst.addLeaf(MirroredLeaf<LeafT>(d, src.background(), nullptr, nullptr, belowTile, aboveTile));
      }
    }
  }

  std::vector<LeafT*> leaves(origins.size(), nullptr);
  tbb::parallel_for(tbb::blocked_range<size_t>(0, origins.size(), 64), [&](const tbb::blocked_range<size_t>& r) {
    Accessor acc(src);
    for (size_t n = r.begin(); n != r.end(); ++n) {
      const openvdb::Coord d = origins[n];
      const openvdb::Coord belowOrigin(d.x(), d.y(), -d.z() - DIM), aboveOrigin(d.x(), d.y(), -d.z());
      const LeafT* below = acc.probeConstLeaf(belowOrigin);
      const LeafT* above = acc.probeConstLeaf(aboveOrigin);
      const Uniform<ValueT> none{src.background(), false};
      leaves[n] = MirroredLeaf<LeafT>(d, src.background(), below, above,
                                      below ? none : ProbeUniform(acc, belowOrigin),
                                      above ? none : ProbeUniform(acc, aboveOrigin));
    }
  });
  for (LeafT* leaf : leaves) dst.addLeaf(leaf);

  if (in.getGridClass() == openvdb::GRID_LEVEL_SET) openvdb::tools::pruneLevelSet(dst);
  return out;
}

// What Mirror allocates, slot by slot as it would, but counted over uniform
// blocks: a face against one tile or against nothing is one probe, however
// large it is.
template <typename TreeT>
class MirrorCost {
  using LeafT = typename TreeT::LeafNodeType;
  using ValueT = typename TreeT::ValueType;
  using UpperT = typename TreeT::RootNodeType::ChildNodeType;
  using LowerT = typename UpperT::ChildNodeType;
  static_assert(std::is_same_v<typename LowerT::ChildNodeType, LeafT>, "trees of a root and three node levels");
  static constexpr int DIM = int(LeafT::DIM);

 public:
  explicit MirrorCost(const TreeT& src) : src_(src), acc_(src) {}

  double Bytes() {
    const double leafBytes = double(LeafT(openvdb::Coord(0), src_.background()).memUsage());
    // Every source leaf feeds two slots, each a new leaf with its origin and
    // pointer listed first, in nodes like the source's.
    const std::vector<openvdb::Index32> nodes = src_.nodeCount();
    double bytes = 2.0 * double(src_.leafCount()) * (leafBytes + sizeof(openvdb::Coord) + sizeof(LeafT*)) +
                   2.0 * (double(nodes[1]) * sizeof(LowerT) + double(nodes[2]) * sizeof(UpperT));
    double faceLeaves = 0.0;
    auto tile = src_.cbeginValueAll();
    tile.setMaxDepth(TreeT::ValueAllCIter::LEAF_DEPTH - 1);
    for (; tile; ++tile) {
      if (!tile.isValueOn() && *tile == src_.background()) continue;
      openvdb::CoordBBox box;
      tile.getBoundingBox(box);
      const int n = box.dim().z();
      const double side = double(n / DIM);
      // The edge slots Mirror lists, and the lower (and upper) nodes that its
      // two faces and its filled inside open.
      bytes += 2.0 * side * side * sizeof(openvdb::Coord);
      if (n > DIM) {
        const double lowers = std::max(1.0, double(n / int(LowerT::DIM)));
        bytes += 2.0 * lowers * lowers * sizeof(LowerT) + (n > int(LowerT::DIM) ? 2.0 * sizeof(UpperT) : 0.0);
      }
      const Uniform<ValueT> self{*tile, tile.isValueOn()};
      faceLeaves += FaceLeaves(box.min().x(), box.min().y(), n, box.max().z() + 1, self, /*bottom=*/false) +
                    FaceLeaves(box.min().x(), box.min().y(), n, box.min().z() - DIM, self, /*bottom=*/true);
    }
    return bytes + faceLeaves * leafBytes;
  }

 private:
  // The side of the aligned uniform block holding `c` (a tile, or the
  // background a root table leaves out), 0 inside a leaf.
  int UniformSide(const openvdb::Coord& c, Uniform<ValueT>& u) {
    u.on = acc_.probeValue(c, u.value);
    switch (acc_.getValueDepth(c)) {
      case -1:
      case 0: return int(UpperT::DIM);
      case 1: return int(LowerT::DIM);
      case 2: return DIM;
      default: return 0;
    }
  }

  // Leaf slots along one face of a tile: the square of `size` at (x, y)
  // against the source slab at z. Slots against a leaf are built from that
  // leaf and counted with it; the slot between two tiles is the lower tile's
  // top face, so a bottom face counts only against the background.
  double FaceLeaves(int x, int y, int size, int z, const Uniform<ValueT>& self, bool bottom) {
    Uniform<ValueT> other{};
    const int side = UniformSide(openvdb::Coord(x, y, z), other);
    if (side == 0 && size == DIM) return 0.0;
    if (side >= size) {
      const bool leaves =
          bottom ? !other.on && other.value == src_.background() && !(self == other) : !(self == other);
      return leaves ? double(size / DIM) * double(size / DIM) : 0.0;
    }
    const int half = size / 2;
    return FaceLeaves(x, y, half, z, self, bottom) + FaceLeaves(x + half, y, half, z, self, bottom) +
           FaceLeaves(x, y + half, half, z, self, bottom) + FaceLeaves(x + half, y + half, half, z, self, bottom);
  }

  const TreeT& src_;
  openvdb::tree::ValueAccessor<const TreeT> acc_;
};

}  // namespace

openvdb::GridBase::Ptr MirrorGridIndexZ(const openvdb::GridBase::Ptr& grid) {
  openvdb::GridBase::Ptr result;
  ApplyToGrid(grid, [&](const auto& typed) { result = Mirror(*typed); });
  return result;
}

double MirrorGridIndexZBytes(const openvdb::GridBase::Ptr& grid) {
  double bytes = 0.0;
  ApplyToGrid(grid, [&](const auto& typed) {
    bytes = MirrorCost<typename std::decay_t<decltype(*typed)>::TreeType>(typed->tree()).Bytes();
  });
  return bytes;
}

}  // namespace zelmar
