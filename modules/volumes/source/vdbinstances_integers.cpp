// The grid and tree classes of the integers, compiled once for the whole system.
#include "modules/volumes/source/vdbinstances.h"
#include "modules/volumes/source/helper/vdbtopology.h"

ZV_VDB_DEFINE(int32_t)
ZV_VDB_DEFINE(int64_t)
ZV_VDB_DEFINE(openvdb::ValueMask)
