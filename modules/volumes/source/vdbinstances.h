// OpenVDB's grid and tree classes for the value types this system uses are
// compiled once, in vdbinstances_*.cpp. Other units see them declared extern
// (through the precompiled headers) and only refer to them: emitting their
// virtual tables, and so every virtual member, in each unit that made a
// grid was most of the build time.
#pragma once

#include <openvdb/openvdb.h>

#define ZV_VDB_ROOT_OF(V)  \
  openvdb::tree::RootNode< \
      openvdb::tree::InternalNode<openvdb::tree::InternalNode<openvdb::tree::LeafNode<V, 3>, 4>, 5>>
#define ZV_VDB_TREE_OF(V) openvdb::tree::Tree<ZV_VDB_ROOT_OF(V)>

// Nodes stay implicit: some of their members do not compile for every value
// type, and an explicit instantiation would compile all of them.
#define ZV_VDB_CLASSES(EXT, V)                   \
  EXT template class ZV_VDB_TREE_OF(V);          \
  EXT template class openvdb::Grid<ZV_VDB_TREE_OF(V)>;

// A tree's topology is walked before it is read (helper/vdbtopology.h): the
// root nodes' own reading is replaced, declared here before any use.
#define ZV_VDB_CHECKED_TOPOLOGY(V) \
  template <>                      \
  bool ZV_VDB_ROOT_OF(V)::readTopology(std::istream& is, bool fromHalf);

#define ZV_VDB_EXTERN(V) ZV_VDB_CHECKED_TOPOLOGY(V) ZV_VDB_CLASSES(extern, V)
// Defined where the tree class is compiled (with helper/vdbtopology.h).
#define ZV_VDB_DEFINE(V)                                                  \
  template <>                                                             \
  bool ZV_VDB_ROOT_OF(V)::readTopology(std::istream& is, bool fromHalf) { \
    return zelmar::vdbtopology::ReadRoot(*this, is, fromHalf);            \
  }                                                                       \
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
