#pragma once
// Registration of the module's function tables (zelmar/volumelibraries.h).

namespace zelmar {

// The "VolumeObjectApi-" row: both tables of the volume object.
bool RegisterVolumeObjectLibraries();
// The "VolumeBuilderApi-" row.
bool RegisterVolumeBuilderLibrary();
// The "VolumeTagApi-" row.
bool RegisterVolumeTagLibrary();

}  // namespace zelmar
