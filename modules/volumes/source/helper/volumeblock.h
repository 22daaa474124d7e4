#pragma once
// Volumes kept inside a scene file: the grids in .vdb form as one block of
// bytes, written and read through a memory stream.
#include <vector>

#include "zelmar/volume.h"

namespace zelmar {

// The volumes as the bytes of one .vdb file.
Result<std::vector<char>> EncodeVolumeBlock(const std::vector<Volume>& volumes);
// The volumes of such a block, in the order OpenVDB's reader lists them.
Result<std::vector<Volume>> DecodeVolumeBlock(std::vector<char> block);

}  // namespace zelmar
