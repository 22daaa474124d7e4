#pragma once
// The conversion of a grid between a file's frame and the scene's: mirror of
// the third axis (files are right-handed, the scene left-handed; data from a
// scene stream is not mirrored) and the unit scale between the two.
#include <openvdb/openvdb.h>

#include <string>

#include "host/core/result.h"

namespace zelmar {

// Returns null when `grid` is null, `scale` is 0 or the value type cannot be
// transformed. Exceptions pass to the caller, which words them.
openvdb::GridBase::Ptr ConvertGridFrame(const openvdb::GridBase::Ptr& grid, double scale, bool fromStream);

// Why ConvertGridFrame would need more memory than MemoryLimitInterface
// allows, in words for an error message; empty when it fits or is not checked.
std::string ConvertGridFrameTooLarge(const openvdb::GridBase::Ptr& grid, bool fromStream);

}  // namespace zelmar
