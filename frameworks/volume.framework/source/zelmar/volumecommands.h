#pragma once
// Volume commands: the volume tools under command ids, run through the host's
// command framework by scene objects, scripts and other modules.
//
// A caller makes data of the class kVolumeCommandDataClass, sets the
// command's settings under the keys below (keys not set take the defaults
// that GetVolumeCommandInfos lists), adds the input objects and invokes the
// command by id. Each result comes back twice: as an output object (a volume
// object, or a polygon object for volumetomesh) and as a record of the data,
// which names the result's Volume and the inputs it came from.
//
// The registrations happen when the program starts. Code that only invokes
// commands by id should call RegisterVolumeCommands() once (it is cheap and
// harmless to repeat): with a static link, that reference is what keeps the
// commands in the program.
#include "zelmar/api.h"
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/scene/commanddata.h"
#include "zelmar/volume.h"

namespace zelmar {

using zta::Int32;

// The data class shared by all volume commands.
inline constexpr const char* kVolumeCommandDataClass = "net.zelmar.legacycommanddata.volumes";

// Command ids.
inline constexpr const char* kBooleCommand = "net.zelmar.command.volumes.boole";
inline constexpr const char* kCreatePlatonicVolumeCommand = "net.zelmar.command.volumes.createplatonicvolume";
inline constexpr const char* kCreateSphereVolumeCommand = "net.zelmar.command.volumes.createspherevolume";
inline constexpr const char* kFieldToVolumeCommand = "net.zelmar.command.volumes.fieldtovolume";
inline constexpr const char* kFilterCommand = "net.zelmar.command.volumes.filter";
inline constexpr const char* kFogToSdfCommand = "net.zelmar.command.volumes.fogtosdf";
inline constexpr const char* kMeshToVolumeCommand = "net.zelmar.command.volumes.meshtovolume";
inline constexpr const char* kMixCommand = "net.zelmar.command.volumes.mix";
inline constexpr const char* kParticlesToVolumeCommand = "net.zelmar.command.volumes.particlestovolume";
inline constexpr const char* kResampleCommand = "net.zelmar.command.volumes.resample";
inline constexpr const char* kSdfFilterCommand = "net.zelmar.command.volumes.sdffilter";
inline constexpr const char* kSdfToFogCommand = "net.zelmar.command.volumes.sdftofog";
inline constexpr const char* kSplineToVolumeCommand = "net.zelmar.command.volumes.splinetovolume";
inline constexpr const char* kVolumeToMeshCommand = "net.zelmar.command.volumes.volumetomesh";

// Setting keys, per command. Vectors, matrices and the creation transform are
// in the scene's frame; a matrix key that is not set means "none".
enum : Int32 {
  // boole: folds its inputs with BoolVolumes; the base input first.
  BOOLE_TYPE = 1,  // int32: 0 union, 1 subtract, 2 intersect; default 1
  BOOLE_BASE = 2,  // int32: index of the input that is the base; default 0

  // mix: folds its inputs with MixVolumes, like boole.
  MIX_TYPE = 1,  // int32: MIXTYPE; default 1 (NORMAL)
  MIX_BASE = 2,  // int32: index of the input that is the base; default 0

  // createspherevolume: no inputs.
  CREATESPHERE_RADIUS = 1,     // float; default 1.0
  CREATESPHERE_POSITION = 2,   // vector; default 0
  CREATESPHERE_GRIDSIZE = 3,   // float; default 0.1
  CREATESPHERE_BANDWIDTH = 4,  // int32, half width in voxels; default 3
  CREATESPHERE_TRANSFORM = 5,  // matrix: creation transform; default none

  // createplatonicvolume: no inputs.
  CREATEPLATONIC_SIDES = 1,      // int32: 4, 6, 8, 12 or 20; default 6
  CREATEPLATONIC_SIZE = 2,       // float; default 1.0
  CREATEPLATONIC_POSITION = 3,   // vector; default 0
  CREATEPLATONIC_GRIDSIZE = 4,   // float; default 0.1
  CREATEPLATONIC_BANDWIDTH = 5,  // int32; default 3
  CREATEPLATONIC_TRANSFORM = 6,  // matrix; default none

  // meshtovolume: polygon objects, each in its global matrix.
  MESHTOVOLUME_GRIDSIZE = 1,             // float; default 0.1
  MESHTOVOLUME_INTERIORBAND = 2,         // int32; default 3
  MESHTOVOLUME_EXTERIORBAND = 3,         // int32; default 3
  MESHTOVOLUME_FLAGS = 4,                // int32: POLYGONCONVERSIONFLAGS; default 0
  MESHTOVOLUME_TRANSFORM = 5,            // matrix; default none
  MESHTOVOLUME_USEINTERIORDISTANCE = 6,  // bool: interior band from a distance; default false
  MESHTOVOLUME_INTERIORDISTANCE = 7,     // float, world units; default 0.0

  // volumetomesh: volume objects.
  VOLUMETOMESH_ISO = 1,         // float; default 0.0
  VOLUMETOMESH_ADAPTIVITY = 2,  // float, 0 to 1; default 0.0

  // sdffilter: volume objects holding level sets.
  SDFFILTER_TYPE = 1,          // int32: SDFFILTERTYPE; default 1 (GAUSSIAN)
  SDFFILTER_ITERATIONS = 2,    // int32; default 1
  SDFFILTER_STENCILWIDTH = 3,  // int32; default 1
  SDFFILTER_OFFSET = 4,        // float, world units, for DILATE, ERODE, OPEN, CLOSE; default 0.1
  SDFFILTER_ACCURACY = 5,      // int32: FILTERACCURACY; default 1 (FIRST)
  SDFFILTER_HALFWIDTH = 6,     // int32: the band of RESIZE; default 3
  SDFFILTER_STRENGTH = 7,      // float; default 1.0
  SDFFILTER_MASKVOLUME = 8,    // link to a volume object; default none
  SDFFILTER_MASKFIELDS = 9,    // field list; default none
  SDFFILTER_MASKSPACE = 10,    // matrix: the fields' space relative to the grid's world; default identity

  // filter: volume objects holding float or vec3s grids.
  FILTER_TYPE = 1,           // int32: FILTERTYPE; default 1 (GAUSSIAN)
  FILTER_ITERATIONS = 2,     // int32; default 1
  FILTER_RADIUS = 3,         // int32; default 1
  FILTER_OFFSET = 4,         // float: the value of ADD and MULTIPLY; default 0.0
  FILTER_STRENGTH = 5,       // float; default 1.0
  FILTER_OLDMIN = 6,         // float; default 0.0
  FILTER_OLDMAX = 7,         // float; default 1.0
  FILTER_NEWMIN = 8,         // float; default 0.0
  FILTER_NEWMAX = 9,         // float; default 1.0
  FILTER_INVERTCENTER = 10,  // float; default 0.5
  FILTER_CURVE = 11,         // spline data of CURVEREMAP; default none
  FILTER_MASKVOLUME = 12,    // link to a volume object; default none
  FILTER_MASKFIELDS = 13,    // field list; default none
  FILTER_MASKSPACE = 14,     // matrix; default identity

  // sdftofog: volume objects.
  SDFTOFOG_CUTOFF = 1,  // float, world units; default the largest double (no cut-off)

  // fogtosdf: volume objects.
  FOGTOSDF_ISO = 1,  // float; default 0.5

  // resample: volume objects.
  RESAMPLE_GRIDSIZE = 1,       // float: voxel size of the target; 0 keeps the target's own scale; default 0.0
  RESAMPLE_INTERPOLATION = 2,  // int32: RESAMPLEINTERPOLATIONTYPE; default 3 (QUADRATIC)
  RESAMPLE_TRANSFORM = 3,      // matrix: the target transform; default the input's own

  // particlestovolume: particle objects (emitter, particle group, matrix object).
  PARTICLESTOVOLUME_GRIDSIZE = 1,       // float; default 0.1
  PARTICLESTOVOLUME_BANDWIDTH = 2,      // int32; default 3
  PARTICLESTOVOLUME_RADIUS = 3,         // float, world units; default 1.0
  PARTICLESTOVOLUME_VELOCITYSCALE = 4,  // float; 0 stamps spheres only; default 0.0
  PARTICLESTOVOLUME_MODE = 5,           // int32: 0 every particle takes RADIUS, 1 its own radius times RADIUS; default 0
  PARTICLESTOVOLUME_TRANSFORM = 6,      // matrix; default none

  // splinetovolume: spline objects (or line objects), each in its global matrix.
  SPLINETOVOLUME_GRIDSIZE = 1,     // float; default 0.1
  SPLINETOVOLUME_BANDWIDTH = 2,    // int32; default 3
  SPLINETOVOLUME_RADIUS = 3,       // float, radius of the tube; default 1.0
  SPLINETOVOLUME_DENSITY = 4,      // float: points per world unit, at least one a voxel; default 1.0
  SPLINETOVOLUME_RAIL = 5,         // link to a spline object; default none
  SPLINETOVOLUME_RADIUSCURVE = 6,  // spline data: radius factor over the length, x in 0..1; default none
  SPLINETOVOLUME_TRANSFORM = 7,    // matrix; default none

  // fieldtovolume: field-carrying objects, or the list under FIELDS without inputs.
  FIELDTOVOLUME_VECTOR = 1,     // bool: a vector volume of the field directions; default false
  FIELDTOVOLUME_GRIDSIZE = 2,   // float; default 0.1
  FIELDTOVOLUME_BOXMIN = 3,     // vector, world units; default (-1, -1, -1)
  FIELDTOVOLUME_BOXMAX = 4,     // vector; default (1, 1, 1)
  FIELDTOVOLUME_FIELDS = 5,     // field list; default none
  FIELDTOVOLUME_TRANSFORM = 6,  // matrix; default none
  FIELDTOVOLUME_REFERENCE = 7,  // link to a volume object whose frame the result takes; default none
  FIELDTOVOLUME_SPACE = 8,      // matrix: the fields' space relative to the grid's world; default identity
};

// One result of a run: its Volume (for volumetomesh, the volume that was
// meshed), the output object that carries it, and the inputs it was made from.
struct ZELMAR_API VolumeCommandRecord {
  Volume volume;
  Int32 outputIndex = -1;
  std::vector<Int32> inputs;
};

// "net.zelmar.legacycommanddata.volumes": the records are VolumeCommandRecord.
class ZELMAR_API VolumeCommandData final : public zta::LegacyCommandDataInterface {
 public:
  static Result<std::unique_ptr<zta::LegacyCommandDataInterface>> Create();

  // The record at `index`; past the end an error with only a source location.
  Result<VolumeCommandRecord> GetLegacyData(zta::Int index) const;
  // Copies the whole record in at `index`, the plain members first and then
  // the array, whose copy may fail for memory; past the end an error with
  // only a source location, and nothing changes.
  Result<void> SetLegacyData(zta::Int index, const VolumeCommandRecord& record);
  // Appends a record and gives its index.
  Result<zta::Int> AppendLegacyData(const VolumeCommandRecord& record);
  // The volumes of the records, in order.
  std::vector<Volume> GetResultVolumes() const;
};

// What the help texts and the generic runners need to know of a setting.
enum class COMMANDVALUETYPE : int32_t { BOOL, INT32, FLOAT, VECTOR, MATRIX, LINK, FIELDLIST, SPLINEDATA };

struct ZELMAR_API VolumeCommandSetting {
  Int32 key;
  const char* name;
  COMMANDVALUETYPE type;
  zta::GeData defaultValue;  // empty for "none"
  const char* help;
};

struct ZELMAR_API VolumeCommandInfo {
  const char* id;
  const char* shortName;  // the id's last part
  const char* inputs;     // what the inputs are, for help texts
  std::vector<VolumeCommandSetting> settings;
  const VolumeCommandSetting* FindSetting(const std::string& name) const;
  const VolumeCommandSetting* FindSetting(Int32 key) const;
};

// The commands of this build, in table order.
ZELMAR_API const std::vector<VolumeCommandInfo>& GetVolumeCommandInfos();
// By full id or by short name; null for neither.
ZELMAR_API const VolumeCommandInfo* FindVolumeCommandInfo(const std::string& idOrShortName);

// Volume objects (1039858), the inputs and outputs of most commands: a new
// one holding `volume`, standing where the grid's transform puts it.
ZELMAR_API Result<std::unique_ptr<zta::BaseObject>> CreateVolumeObject(const Volume& volume);
// The Volume a volume object holds; an uninitialised reference for a null or any other object.
ZELMAR_API Volume GetObjectVolume(const zta::BaseObject* op);

// Registers the data class and the commands with the host's registries;
// those already registered stay as they are. The first failure is returned.
ZELMAR_API Result<void> RegisterVolumeCommands();

}  // namespace zelmar
