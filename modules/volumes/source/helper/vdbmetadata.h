#pragma once
// File metadata between OpenVDB's MetaMap and the system's dictionaries.
#include <openvdb/openvdb.h>

#include <istream>
#include <string>

#include "zelmar/volumetools.h"

namespace zelmar {

// One dictionary per record of a known type; records of other types are skipped.
MetaDataArray MetaMapToArray(const openvdb::MetaMap& map);
// Entries of types without a counterpart in files are skipped.
openvdb::MetaMap::Ptr DictionaryToMetaMap(const DataDictionary& dict);

// How OpenVDB will read a .vdb stream: as a file, reaching each grid through
// the position its descriptor states when the header says there are such
// positions, or as a stream, one grid after another.
enum class VdbReading { kAsFile, kAsStream };

// OpenVDB allocates what a .vdb stream states for a name or a metadata entry
// before it reads it, so a file of a few kilobytes can ask for gigabytes.
// This walks the stream's header, its metadata and its grids' descriptors,
// metadata and transform names as OpenVDB will, and says which stated size is
// larger than what is left of the stream; empty when none is. Read one after
// another, the grids after the first lie behind trees and are not reached
// (see NextGridStatedSizeBeyondEnd). Anything else that is wrong is left to
// OpenVDB's reader. The stream is rewound. `hasGridOffsets`, when given, says
// whether the header states grid offsets (true also where the walk did not get
// that far); `fileVersion`, the format version it states.
std::string StatedSizeBeyondEnd(std::istream& in, VdbReading reading, bool* hasGridOffsets = nullptr,
                                uint32_t* fileVersion = nullptr);

// The same walk over the one grid whose descriptor starts where `in` stands,
// read as a stream; `in` is left where it stood.
std::string NextGridStatedSizeBeyondEnd(std::istream& in, uint32_t fileVersion);

}  // namespace zelmar
