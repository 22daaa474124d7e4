#pragma once
// A tree's topology walked once without building a node, before it is read
// into the tree. OpenVDB 10's RootNode::readTopology holds each child in a
// bare pointer while the child's topology is read, and an InternalNode's table
// holds values where its children will go until they are read: a stream that
// fails inside loses every node read so far (about 1 MB per damaged file) and
// leaves the half-read node impossible to free. A walk that reads the same
// bytes through the same value reader fails where that read would fail, with
// nothing to lose; only a walk that ended well is read again into the tree.
//
// The walk goes in at the root: ReadRoot replaces RootNode::readTopology for
// every tree the module reads (vdbinstances.h, gridtypes.cpp). Not higher up:
// OpenVDB's compiled reader inlines a grid's and a tree's readTopology into
// itself when their addresses match its own, which a replacement of the same
// name does; it calls the root's out of line.
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
#include <type_traits>

namespace zelmar::vdbtopology {

inline void ReadOrStop(std::istream& is, void* to, size_t bytes) {
  is.read(static_cast<char*>(to), std::streamsize(bytes));
  if (!is) OPENVDB_THROW(openvdb::IoError, "the file ends inside a grid, or cannot be read there");
}

// A value as OpenVDB stores it; a bool from any byte but 0 is true.
template <typename ValueT>
ValueT ReadValue(std::istream& is) {
  if constexpr (std::is_same_v<ValueT, bool>) {
    uint8_t byte = 0;
    ReadOrStop(is, &byte, 1);
    return byte != 0;
  } else {
    ValueT value;
    ReadOrStop(is, &value, sizeof(ValueT));
    return value;
  }
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
        if (childMask.isOn(i)) children_.Topology(is, false);
        else ReadValue<ValueT>(is);
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

// The first format's root: a dense table over an index range, with a child
// mask and a value mask of one bit an entry.
template <typename ChildT>
class OldRootTable {
 public:
  // Refuses a table whose two masks would not fit in what is left.
  OldRootTable(std::istream& is) {
    int32_t range[6];
    ReadOrStop(is, range, sizeof(range));
    unsigned total = 0;
    for (int i = 0; i < 3; ++i) {
      offset_[i] = range[i] >> ChildT::TOTAL;
      log2_[i] = 1 + openvdb::util::FindHighestOn(openvdb::Index32((range[3 + i] >> ChildT::TOTAL) - offset_[i]));
      total += log2_[i];
    }
    if (total > 31 || (uint64_t(1) << total) / 4 > BytesLeft(is))
      OPENVDB_THROW(openvdb::IoError, "the root node states a table of 2^" + std::to_string(total) +
                                          " entries, more than the file holds");
    size_ = openvdb::Index32(1) << total;
  }
  openvdb::Index32 Size() const { return size_; }
  openvdb::Coord Origin(openvdb::Index32 i) const {
    const unsigned yz = log2_[1] + log2_[2];
    openvdb::Coord origin(int32_t(i >> yz) + offset_[0], int32_t((i >> log2_[2]) & ((1u << log2_[1]) - 1)) + offset_[1],
                          int32_t(i & ((1u << log2_[2]) - 1)) + offset_[2]);
    return origin << ChildT::TOTAL;
  }

 private:
  int32_t offset_[3];
  unsigned log2_[3];
  openvdb::Index32 size_ = 0;
};

// Walks the root node's topology at the stream's position and returns there;
// throws what reading it into a tree would throw. A stream that cannot seek
// back is left to the read alone.
template <typename RootT>
void CheckTopology(std::istream& is, bool fromHalf) {
  using ValueT = typename RootT::ValueType;
  using ChildT = typename RootT::ChildNodeType;
  const std::streampos start = is.tellg();
  if (start == std::streampos(-1)) return;
  Walk<ChildT> children;
  const ValueT background = ReadValue<ValueT>(is);
  const BackgroundFor backgroundFor(is, &background);

  if (openvdb::io::getFormatVersion(is) < openvdb::OPENVDB_FILE_VERSION_ROOTNODE_MAP) {
    ReadValue<ValueT>(is);  // the inside value of the first format
    const OldRootTable<ChildT> table(is);
    openvdb::util::RootNodeMask childMask(table.Size()), valueMask(table.Size());
    LoadMask(is, childMask);
    LoadMask(is, valueMask);
    for (openvdb::Index32 i = 0; i < table.Size(); ++i) {
      if (childMask.isOn(i)) children.Topology(is, false);
      else ReadValue<ValueT>(is);
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

// RootNode::readTopology: the walk, then the read of a topology known to be
// whole, through the root's public interface. A child with the origin of one
// read before replaces it (OpenVDB's own lost the first).
template <typename RootT>
bool ReadRoot(RootT& root, std::istream& is, bool fromHalf) {
  using ValueT = typename RootT::ValueType;
  using ChildT = typename RootT::ChildNodeType;
  CheckTopology<RootT>(is, fromHalf);
  root.clear();
  root.setBackground(ReadValue<ValueT>(is), /*updateChildNodes=*/false);
  const ValueT& background = root.background();
  openvdb::io::setGridBackgroundValuePtr(is, &background);

  if (openvdb::io::getFormatVersion(is) < openvdb::OPENVDB_FILE_VERSION_ROOTNODE_MAP) {
    ReadValue<ValueT>(is);
    const OldRootTable<ChildT> table(is);
    openvdb::util::RootNodeMask childMask(table.Size()), valueMask(table.Size());
    LoadMask(is, childMask);
    LoadMask(is, valueMask);
    for (openvdb::Index32 i = 0; i < table.Size(); ++i) {
      if (childMask.isOn(i)) {
        auto* child = new ChildT(openvdb::PartialCreate(), table.Origin(i), background);
        child->readTopology(is);
        root.addChild(child);
      } else {
        const ValueT value = ReadValue<ValueT>(is);
        // Only tiles that are active or other than the background are kept.
        if (valueMask.isOn(i) || !openvdb::math::isApproxEqual(value, background))
          root.addTile(table.Origin(i), value, valueMask.isOn(i));
      }
    }
    return true;
  }

  openvdb::Index32 counts[2];
  ReadOrStop(is, counts, sizeof(counts));
  if (counts[0] == 0 && counts[1] == 0) return false;
  for (openvdb::Index32 n = 0; n < counts[0]; ++n) {
    int32_t origin[3];
    ReadOrStop(is, origin, sizeof(origin));
    const ValueT value = ReadValue<ValueT>(is);
    const bool active = ReadValue<bool>(is);
    root.addTile(openvdb::Coord(origin), value, active);
  }
  for (openvdb::Index32 n = 0; n < counts[1]; ++n) {
    int32_t origin[3];
    ReadOrStop(is, origin, sizeof(origin));
    // Once the walk has ended well, only running out of memory can stop
    // this; a half-read node cannot be freed (see above), and is lost then.
    auto* child = new ChildT(openvdb::PartialCreate(), openvdb::Coord(origin), background);
    child->readTopology(is, fromHalf);
    root.addChild(child);
  }
  return true;
}

}  // namespace zelmar::vdbtopology
