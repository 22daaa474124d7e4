// The grid and tree classes of the vectors, compiled once for the whole system.
#include "modules/volumes/source/vdbinstances.h"
#include "modules/volumes/source/helper/vdbtopology.h"

ZV_VDB_DEFINE(openvdb::Vec3f)
ZV_VDB_DEFINE(openvdb::Vec3d)
ZV_VDB_DEFINE(openvdb::Vec3i)
