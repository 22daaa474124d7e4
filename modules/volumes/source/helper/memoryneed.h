#pragma once
// Work whose memory is known before it starts is held to the limit of
// MemoryLimitInterface: a clear refusal instead of thrashing or being killed.
#include <string>

namespace zelmar {

// Why `bytes` for `purpose` ("to be mirrored into the scene's frame") cannot
// be had, in words that follow "<subject> needs about ..."; empty when they fit
// or nothing is checked.
std::string MemoryNeedRefusal(double bytes, const std::string& purpose);

}  // namespace zelmar
