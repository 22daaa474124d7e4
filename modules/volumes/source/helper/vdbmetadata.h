#pragma once
// File metadata between OpenVDB's MetaMap and the system's dictionaries.
#include <openvdb/openvdb.h>

#include "zelmar/volumetools.h"

namespace zelmar {

// One dictionary per record of a known type; records of other types are skipped.
MetaDataArray MetaMapToArray(const openvdb::MetaMap& map);
// Entries of types without a counterpart in files are skipped.
openvdb::MetaMap::Ptr DictionaryToMetaMap(const DataDictionary& dict);

}  // namespace zelmar
