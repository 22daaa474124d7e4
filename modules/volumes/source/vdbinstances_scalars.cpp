// The grid and tree classes of the scalars, compiled once for the whole system.
#include "modules/volumes/source/vdbinstances.h"
#include "modules/volumes/source/helper/vdbtopology.h"

ZV_VDB_DEFINE(float)
ZV_VDB_DEFINE(double)
ZV_VDB_DEFINE(bool)
