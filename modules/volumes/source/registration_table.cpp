// The start table: each plug-in adds its row here when it lands, in the fixed
// order of the module's start.
#include "modules/volumes/source/commands/volumeremesher.h"
#include "modules/volumes/source/libraries/volumelibraries.h"
#include "modules/volumes/source/main.h"
#include "modules/volumes/source/objects/volumebuilder.h"
#include "modules/volumes/source/objects/volumecachelayer.h"
#include "modules/volumes/source/objects/volumefilter.h"
#include "modules/volumes/source/objects/volumemesher.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/objects/volumesequence.h"
#include "modules/volumes/source/objects/volumeset.h"
#include "modules/volumes/source/objects/volumetag.h"
#include "modules/volumes/source/sceneio/vdbscenesaver.h"
#include "modules/volumes/source/scenehook/volumesavemanagerhook.h"

namespace zelmar {

const std::vector<RegistrationRow>& GetRegistrationTable() {
  static const std::vector<RegistrationRow> rows = {
      {"Volume-", false, &VolumeObjectData::Register},
      {"VolumeTag-", true, &VolumeTagData::Register},
      {"VolMesh-", false, &VolumeToMeshGenerator::Register},
      {"Filter-", false, &VolumeFilter::Register},
      {"ObjVol-", false, &VolumeBuilderData::Register},
      {"VolSeq-", false, &VolumeSequence::Register},
      {"VolGroup-", false, &VolumeSetData::Register},
      {"VolCache-", false, &VolumeCacheLayerData::Register},
      {"SceneHandler-", false, &RegisterVDBSceneHandlers},
      {"VolumeRemesher-", false, &VolumeRemesherCommand::Register},
      {"VolumeObjectApi-", false, &RegisterVolumeObjectLibraries},
      {"VolumeBuilderApi-", false, &RegisterVolumeBuilderLibrary},
      {"VolumeTagApi-", true, &RegisterVolumeTagLibrary},
      {"VolumeSaveHook-", false, &VolumeSaveManagerHook::Register},
  };
  return rows;
}

}  // namespace zelmar
