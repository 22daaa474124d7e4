// OpenVDB's grid and tree classes for the value types this system uses are
// compiled once, in vdbinstances_*.cpp. Other units see them declared extern
// (through the precompiled headers) and only refer to them: emitting their
// virtual tables, and so every virtual member, in each unit that made a
// grid was most of the build time.
#pragma once

#include <openvdb/openvdb.h>

#define ZV_VDB_TREE_OF(V)                                                                 \
  openvdb::tree::Tree<openvdb::tree::RootNode<                                          \
      openvdb::tree::InternalNode<openvdb::tree::InternalNode<openvdb::tree::LeafNode<V, 3>, 4>, 5>>>

// Nodes stay implicit: some of their members do not compile for every value
// type, and an explicit instantiation would compile all of them.
#define ZV_VDB_CLASSES(EXT, V)                   \
  EXT template class ZV_VDB_TREE_OF(V);          \
  EXT template class openvdb::Grid<ZV_VDB_TREE_OF(V)>;

// A tree's topology is walked before it is read (helper/vdbtopology.h): the
// tree classes' own reading is replaced, declared here before any use.
#define ZV_VDB_CHECKED_TOPOLOGY(V) \
  template <>                      \
  void ZV_VDB_TREE_OF(V)::readTopology(std::istream& is, bool saveFloatAsHalf);

#define ZV_VDB_EXTERN(V) ZV_VDB_CHECKED_TOPOLOGY(V) ZV_VDB_CLASSES(extern, V)
// Defined where the tree class is compiled, and read as OpenVDB's own is.
#define ZV_VDB_DEFINE(V)                                                           \
  template <>                                                                      \
  void ZV_VDB_TREE_OF(V)::readTopology(std::istream& is, bool saveFloatAsHalf) {   \
    this->clearAllAccessors();                                                     \
    TreeBase::readTopology(is, saveFloatAsHalf);                                   \
    zelmar::vdbtopology::CheckTopology<RootNodeType>(is, saveFloatAsHalf);        \
    mRoot.readTopology(is, saveFloatAsHalf);                                       \
  }                                                                                \
  ZV_VDB_CLASSES(, V)

#define ZV_VDB_EACH_VALUE(M) \
  M(float)                   \
  M(double)                  \
  M(bool)                    \
  M(int32_t)                 \
  M(int64_t)                 \
  M(openvdb::ValueMask)      \
  M(openvdb::Vec3f)          \
  M(openvdb::Vec3d)          \
  M(openvdb::Vec3i)

ZV_VDB_EACH_VALUE(ZV_VDB_EXTERN)
