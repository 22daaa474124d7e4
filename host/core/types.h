#pragma once
// The host's scalar names, as its node and data APIs spell them.
#include <cstdint>
#include <string>

namespace zta {

using Int32 = int32_t;
using Int64 = int64_t;
// The host's pointer-sized count.
using Int = int64_t;
using UInt32 = uint32_t;
using UInt64 = uint64_t;
using Float = double;
using Float32 = float;
using Float64 = double;
using String = std::string;

}  // namespace zta
