#pragma once
// A tree's topology walked once without building a node, before OpenVDB reads
// it into the tree. OpenVDB 10's RootNode::readTopology holds each child in a
// bare pointer while the child's topology is read, and an InternalNode's table
// holds values where its children will go until they are read: a stream that
// fails inside loses every node read so far (about 1 MB per damaged file) and
// leaves the half-read node impossible to free. A walk that reads the same
// bytes through the same value reader fails where that read would fail, with
// nothing to lose; only a walk that ended well is read again into the tree.
//
// The walk also stops at the first short read whatever the stream's exception
// mask: OpenVDB's own file stream reports none, and a root stating billions of
// tiles went on reading nothing for minutes after the end of the file.
#include <openvdb/io/Compression.h>
#include <openvdb/io/io.h>
#include <openvdb/util/NodeMasks.h>
#include <openvdb/version.h>

#include <cstdint>
#include <istream>
#include <memory>
#include <string>

namespace zelmar::vdbtopology {

inline void ReadOrStop(std::istream& is, void* to, size_t bytes) {
  is.read(static_cast<char*>(to), std::streamsize(bytes));
  if (!is) OPENVDB_THROW(openvdb::IoError, "the file ends inside a grid, or cannot be read there");
}

template <typename MaskT>
void LoadMask(std::istream& is, MaskT& mask) {
  mask.load(is);
  if (!is) OPENVDB_THROW(openvdb::IoError, "the file ends inside a grid, or cannot be read there");
}

// The bytes from the stream's position to its end.
inline uint64_t BytesLeft(std::istream& is) {
  const std::streampos at = is.tellg();
  is.seekg(0, std::ios::end);
  const std::streampos end = is.tellg();
  is.seekg(at);
  return end > at ? uint64_t(end - at) : 0;
}

// The stream's background value (which the value reader fills inactive values
// with) points at the walk's own while it runs.
class BackgroundFor {
 public:
  BackgroundFor(std::istream& is, const void* value) : is_(is), before_(openvdb::io::getGridBackgroundValuePtr(is)) {
    openvdb::io::setGridBackgroundValuePtr(is_, value);
  }
  ~BackgroundFor() { openvdb::io::setGridBackgroundValuePtr(is_, before_); }
  BackgroundFor(const BackgroundFor&) = delete;
  BackgroundFor& operator=(const BackgroundFor&) = delete;

 private:
  std::istream& is_;
  const void* before_;
};

// One level of the walk, following NodeT::readTopology byte for byte. The
// values of a node go into a buffer the level keeps for all its nodes.
template <typename NodeT, bool Leaf = (NodeT::LEVEL == 0)>
class Walk;

template <typename NodeT>
class Walk<NodeT, true> {
 public:
  void Topology(std::istream& is, bool /*fromHalf*/) {
    typename NodeT::NodeMaskType mask;
    LoadMask(is, mask);
  }
};

template <typename NodeT>
class Walk<NodeT, false> {
  using ValueT = typename NodeT::ValueType;

 public:
  void Topology(std::istream& is, bool fromHalf) {
    typename NodeT::NodeMaskType childMask, valueMask;
    LoadMask(is, childMask);
    LoadMask(is, valueMask);
    const uint32_t version = openvdb::io::getFormatVersion(is);
    if (version < openvdb::OPENVDB_FILE_VERSION_INTERNALNODE_COMPRESSION) {
      for (openvdb::Index i = 0; i < NodeT::NUM_VALUES; ++i) {
        if (childMask.isOn(i)) {
          children_.Topology(is, false);
        } else {
          ValueT value;
          ReadOrStop(is, &value, sizeof(ValueT));
        }
      }
      return;
    }
    const bool oldVersion = version < openvdb::OPENVDB_FILE_VERSION_NODE_MASK_COMPRESSION;
    const openvdb::Index count = oldVersion ? childMask.countOff() : NodeT::NUM_VALUES;
    if (capacity_ < count) {
      values_.reset(new ValueT[count]);
      capacity_ = count;
    }
    openvdb::io::readCompressedValues(is, values_.get(), count, valueMask, fromHalf);
    if (!is) OPENVDB_THROW(openvdb::IoError, "the file ends inside a grid, or cannot be read there");
    for (auto child = childMask.beginOn(); child; ++child) children_.Topology(is, fromHalf);
  }

 private:
  std::unique_ptr<ValueT[]> values_;  // not a vector: bool values are read as an array
  openvdb::Index capacity_ = 0;
  Walk<typename NodeT::ChildNodeType> children_;
};

// Walks the root node's topology at the stream's position and returns there;
// throws what reading it into a tree would throw. A stream that cannot seek
// back is left to OpenVDB's read alone.
template <typename RootT>
void CheckTopology(std::istream& is, bool fromHalf) {
  using ValueT = typename RootT::ValueType;
  using ChildT = typename RootT::ChildNodeType;
  const std::streampos start = is.tellg();
  if (start == std::streampos(-1)) return;
  Walk<ChildT> children;
  ValueT background;
  ReadOrStop(is, &background, sizeof(ValueT));
  const BackgroundFor backgroundFor(is, &background);

  if (openvdb::io::getFormatVersion(is) < openvdb::OPENVDB_FILE_VERSION_ROOTNODE_MAP) {
    // The first format: a dense table over the index range, with both masks.
    ValueT inside;
    ReadOrStop(is, &inside, sizeof(ValueT));
    int32_t range[6];
    ReadOrStop(is, range, sizeof(range));
    unsigned tableLog2 = 0;
    for (int i = 0; i < 3; ++i) {
      const int32_t offset = range[i] >> ChildT::TOTAL;
      tableLog2 += 1 + openvdb::util::FindHighestOn(openvdb::Index32((range[3 + i] >> ChildT::TOTAL) - offset));
    }
    // Two masks of one bit per entry must fit in what is left.
    if (tableLog2 > 31 || (uint64_t(1) << tableLog2) / 4 > BytesLeft(is))
      OPENVDB_THROW(openvdb::IoError, "the root node states a table of 2^" + std::to_string(tableLog2) +
                                          " entries, more than the file holds");
    const openvdb::Index32 tableSize = openvdb::Index32(1) << tableLog2;
    openvdb::util::RootNodeMask childMask(tableSize), valueMask(tableSize);
    LoadMask(is, childMask);
    LoadMask(is, valueMask);
    for (openvdb::Index32 i = 0; i < tableSize; ++i) {
      if (childMask.isOn(i)) {
        children.Topology(is, false);
      } else {
        ValueT value;
        ReadOrStop(is, &value, sizeof(ValueT));
      }
    }
  } else {
    openvdb::Index32 counts[2];  // tiles, children
    ReadOrStop(is, counts, sizeof(counts));
    for (openvdb::Index32 n = 0; n < counts[0]; ++n) {
      char tile[3 * sizeof(int32_t) + sizeof(ValueT) + sizeof(bool)];
      ReadOrStop(is, tile, sizeof(tile));
    }
    for (openvdb::Index32 n = 0; n < counts[1]; ++n) {
      int32_t origin[3];
      ReadOrStop(is, origin, sizeof(origin));
      children.Topology(is, fromHalf);
    }
  }
  is.seekg(start);
}

// What Tree::readTopology does, with the walk before the root's read. The
// module's tree classes read their topology through this (vdbinstances.h,
// gridtypes.cpp).
template <typename TreeT>
void ReadTopology(TreeT& tree, typename TreeT::RootNodeType& root, std::istream& is, bool fromHalf) {
  tree.clearAllAccessors();
  tree.openvdb::TreeBase::readTopology(is, fromHalf);
  CheckTopology<typename TreeT::RootNodeType>(is, fromHalf);
  root.readTopology(is, fromHalf);
}

}  // namespace zelmar::vdbtopology
