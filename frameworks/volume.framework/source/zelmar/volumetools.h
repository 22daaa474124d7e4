#pragma once
// VolumeToolsInterface: the static entry to everything the system does with
// volumes. Every operation returns a Result and leaves its inputs unchanged.
#include "zelmar/api.h"
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/core/thread.h"
#include "zelmar/volume.h"

namespace zta {
class BaseDocument;
class SplineData;
class FieldList;
class PolygonObject;
}  // namespace zta

namespace zelmar {

using zta::ThreadRef;
class PointsToVolumeListInterface;

enum class POLYGONCONVERSIONFLAGS : int32_t {
  NONE = 0,
  UNSIGNED_DISTANCE_FIELD = 1,
  DISABLE_INTERSECTING_VOXEL_REMOVAL = 2,
  DISABLE_RENORMALIZATION = 4,
  DISABLE_NARROW_BAND_TRIMMING = 8,
};
constexpr POLYGONCONVERSIONFLAGS operator|(POLYGONCONVERSIONFLAGS a, POLYGONCONVERSIONFLAGS b) {
  return POLYGONCONVERSIONFLAGS(int32_t(a) | int32_t(b));
}
constexpr bool HasFlag(POLYGONCONVERSIONFLAGS set, POLYGONCONVERSIONFLAGS f) { return (int32_t(set) & int32_t(f)) != 0; }

enum class MIXVECTORTYPE : int32_t { NONE = 0, NORMAL = 1, ADD = 2, SUBTRACT = 3, CROSS = 4 };

// The operation of BoolVolumes. Values are stored in scenes (the SDF modes of a builder layer).
enum class BOOLTYPE : int32_t { NONE = 0, UNION = 1, DIFFERENCE = 2, INTERSECTION = 3 };

// The operation of MixVolumes. Values are stored in scenes (the fog modes of a builder
// layer); NONE, NORMAL and any value outside the list replace, as for MIXVECTORTYPE.
enum class MIXTYPE : int32_t { NONE = 0, NORMAL = 1, MAXIMUM = 2, MINIMUM = 3, ADD = 4, SUBTRACT = 5, MULTIPLY = 6, DIVIDE = 7 };

enum class SDFFILTERTYPE : int32_t {
  NONE = 0,
  GAUSSIAN = 1,
  DILATE = 2,
  ERODE = 3,
  MEANVALUE = 4,
  MEDIANVALUE = 5,
  MEANCURVATURE = 6,
  LAPLACIANFLOW = 7,
  RENORMALIZE = 8,
  OPEN = 9,
  CLOSE = 10,
  TRACK = 11,
  RESIZE = 12,
};

enum class FILTERTYPE : int32_t {
  NONE = 0,
  GAUSSIAN = 1,
  MEANVALUE = 2,
  MEDIANVALUE = 3,
  ADD = 4,
  REMAP = 5,
  CURVEREMAP = 6,
  MULTIPLY = 7,
  ABS = 8,
  INVERT = 9,
};

enum class VECTORFILTERTYPE : int32_t {
  NONE = 0,
  GAUSSIAN = 1,
  MEANVALUE = 2,
  MEDIANVALUE = 3,
  CURL = 4,
  NORMALIZE = 5,
  INVERT = 6,
  SCALE = 7,
  ROTATE = 8,
};

enum class FILTERACCURACY : int32_t { NONE = 0, FIRST = 1, SECOND = 2, THIRD = 3, WENO5 = 4, HJWENO5 = 5 };

enum class RESAMPLEINTERPOLATIONTYPE : int32_t { NONE = 0, NEAREST = 1, LINEAR = 2, QUADRATIC = 3 };

struct FilterSettings {
  FILTERTYPE filterType = FILTERTYPE::NONE;
  int64_t iterations = 1;
  int32_t radius = 1;
  float offset = 0.0f;
  double strength = 1.0;
  double remap_oldMin = 0.0;
  double remap_oldMax = 1.0;
  double remap_newMin = 0.0;
  double remap_newMax = 1.0;
  // Outside the reflected fields: the centre of INVERT and the curve of CURVEREMAP.
  double invertCenter = 0.5;
  std::shared_ptr<const zta::SplineData> remapCurve;
};

struct SDFFilterSettings {
  SDFFILTERTYPE filterType = SDFFILTERTYPE::NONE;
  int64_t iterations = 1;
  int32_t stencilWidth = 1;
  float offset = 0.0f;
  int32_t halfWidth = 3;
  FILTERACCURACY accuracy = FILTERACCURACY::FIRST;
  double strength = 1.0;
};

// What field sampling needs: the fields, and how grid positions map to their space.
struct FieldSampleData {
  Matrix targetRelativeSpace;
  Matrix extraTransform;
  int32_t flags = 0;
  std::shared_ptr<const zta::FieldList> fields;
};

// Four vertex indices; d == TRIANGLE marks a triangle.
struct VolumeConversionPolygon {
  static constexpr uint32_t TRIANGLE = 0xFFFFFFFFu;
  uint32_t a = 0, b = 0, c = 0, d = TRIANGLE;
  bool IsTriangle() const { return d == TRIANGLE; }
};

// One metadata record of a file per dictionary, under the record's name.
using MetaDataArray = std::vector<DataDictionary>;

class ZELMAR_API VolumeToolsInterface {
 public:
  VolumeToolsInterface() = delete;

  // Files.
  static Result<std::vector<std::string>> GetGridNamesFromFile(const Url& filename);
  static Result<MetaDataArray> GetMetaDataFromFile(const Url& filename);
  static Result<std::vector<Volume>> LoadVDBFile(const Url& filename, double scale,
                                                 std::vector<std::string>* gridNames,
                                                 const std::vector<Int>* gridIndices, MetaDataArray* metaData);
  static Result<void> LoadGridIntoVolume(const Url& filename, double scale, Int gridIndex, Volume& volume,
                                         MetaDataArray* metaData);
  static Result<void> LoadAllGridsIntoVolumes(const Url& filename, double scale, std::vector<Volume>& volume,
                                              MetaDataArray* metaData);
  static Result<void> SaveVDBFile(const Url& filename, double scale, const std::vector<Volume>& volumes,
                                  const DataDictionary& metaData);

  // Empty and primitive volumes.
  static Result<Volume> CreateNewFloat32Volume(float background);
  static Result<Volume> CreateSphereVolume(double radius, const Vector& position, double gridSize, int32_t bandWidth,
                                           const ThreadRef& thread, const Matrix* creationTransform);
  static Result<Volume> CreatePlatonicVolume(int32_t sides, double size, const Vector& position, double gridSize,
                                             int32_t bandWidth, const ThreadRef& thread,
                                             const Matrix* creationTransform);
  static Result<Volume> CreateNewVector32Volume(const zta::Vector32& background);

  // Meshes to volumes and back.
  // Interior band width that fills the whole inside of a closed mesh.
  static constexpr int32_t kFillInteriorBand = 0x7FFFFFFF;
  // The grid's transform is a `gridSize` scale followed by `polygonObjectMatrix` (or
  // `creationTransform` alone). `vertices` are multiplied in place by its inverse into
  // index space, so the surface lands where the vertices are in world space.
  static Result<Volume> MeshToVolume(std::vector<Vector>& vertices, const std::vector<VolumeConversionPolygon>& polygons,
                                     Matrix polygonObjectMatrix, double gridSize, int32_t bandWidthInterior,
                                     int32_t bandWidthExterior, const ThreadRef& thread,
                                     POLYGONCONVERSIONFLAGS conversionSettings, const Matrix* creationTransform);
  // A polygon object where the grid stands, at unit scale; null for a grid that is not float.
  static Result<std::unique_ptr<zta::PolygonObject>> VolumeToMesh(const Volume& volume, double iso,
                                                                  double adaptiveValue);
  // The polygons of an object as MeshToVolume takes them: points in world
  // space (through the object's global matrix), triangles marked in `d`.
  static Result<void> GetConversionMesh(const zta::PolygonObject& object, std::vector<Vector>& vertices,
                                        std::vector<VolumeConversionPolygon>& polygons);
  // Every index below `pointCount`; `d` may instead mark a triangle.
  static Result<void> CheckPolyIndexValidity(const std::vector<VolumeConversionPolygon>& polygons, Int pointCount);

  // Resampling and combining.
  // The second volume of a combination is resampled into the first one's frame with
  // QUADRATIC; `thread` (the caller's, null for none) reaches that resampling. Results
  // may share a grid with an input and are read-only.
  static Result<Volume> ResampleVolume(const Volume& volume, const Matrix& resampleTransform,
                                       RESAMPLEINTERPOLATIONTYPE interpolationType, const ThreadRef& thread);
  static Result<Volume> BoolVolumes(const Volume& volumeOne, const Volume& volumeTwo, BOOLTYPE type,
                                    const ThreadRef& thread = nullptr);
  static Result<Volume> MixVolumes(const Volume& volumeOne, const Volume& volumeTwo, MIXTYPE type,
                                   const ThreadRef& thread = nullptr);
  static Result<Volume> MixVectorVolumes(const Volume& volumeOne, const Volume& volumeTwo, MIXVECTORTYPE type,
                                         const ThreadRef& thread = nullptr);
  // out = a * blendValue + b * (1 - blendValue), index by index; the weight is on volumeA.
  static Result<Volume> BlendVolumes(const Volume& volumeA, const Volume& volumeB, double blendValue,
                                     const ThreadRef& thread);

  // Points and fields to volumes.
  // Spheres of all particles of the lists, or trails along their velocities
  // when `velocityScale` is not 0. `bandWidth` is the half width in voxels.
  static Result<Volume> PointsToVolume(const std::vector<PointsToVolumeListInterface>& pointObjects, double gridSize,
                                       int32_t bandWidth, const ThreadRef& thread, const Matrix* creationTransform,
                                       double velocityScale);
  // The fields sampled at every voxel of `sampleBox` (world space), in the frame
  // of `volumeReference` when it has a grid, else of `creationTransform` or `gridSize`.
  static Result<Volume> ConvertFieldsToVolume(const FieldSampleData& fieldData, double gridSize,
                                              const BoundingBox& sampleBox, const ThreadRef& thread,
                                              const Volume& volumeReference, const Matrix* creationTransform);
  static Result<Volume> ConvertFieldsToVectorVolume(const FieldSampleData& fieldData, double gridSize,
                                                    const BoundingBox& sampleBox, const ThreadRef& thread,
                                                    const Volume& volumeReference, const Matrix* creationTransform);
  // A float volume, active where `volumeReference` is, holding the fields' values there.
  static Result<Volume> CreateMaskFromField(const FieldSampleData& fieldData, const Volume& volumeReference,
                                            double background, const ThreadRef& thread);

  // Filters, conversions and derived volumes.
  // Masks: `maskVolume` (an uninitialised Volume for none) wins over `maskField`
  // (null for none); without either a strength below 1 fades the filter. A
  // filter stopped through `thread` returns `volume` itself.
  static Result<Volume> ApplySDFFilterToVolume(const Volume& volume, const SDFFilterSettings& filterType,
                                               const ThreadRef& thread, const Volume& maskVolume,
                                               const FieldSampleData* maskField);
  // Float and vec3s volumes; any other type comes back as `volume` itself.
  static Result<Volume> ApplyFilterToVolume(const Volume& volume, const FilterSettings& filterType,
                                            const ThreadRef& thread, const Volume& maskVolume,
                                            const FieldSampleData* maskField);
  // Fog and unknown classes come back as `volume`; classes other than SDF give a Volume without grid.
  static Result<Volume> ConvertSDFToFog(const Volume& volume, double cutoff);
  // Through the surface at `iso`: meshed, then turned into a level set of the same voxel size.
  static Result<Volume> ConvertFogToSDF(const Volume& volume, double iso, const ThreadRef& thread);
  // The length of each vector.
  static Result<Volume> ConvertVectorToFog(const Volume& volume, const ThreadRef& thread);
  static Result<Volume> CreateGradientVolume(const Volume& volume, const ThreadRef& thread);
  static Result<Volume> CreateCurlVolume(const Volume& volume, const ThreadRef& thread);
  static Result<Volume> CreateMeanCurvatureVolume(const Volume& volume, const ThreadRef& thread);
  static Result<Volume> NormalizeVectorVolume(const Volume& volume, const ThreadRef& thread);
  // `angle` in radians about `rotationAxis`; a zero axis leaves the vectors as they are.
  static Result<Volume> RotateVectorVolume(const Volume& volume, const Vector& rotationAxis, double angle,
                                           const ThreadRef& thread, const FieldSampleData* maskField);
};

// Closes the holes of a polygon object before it becomes a volume: merges
// points closer than a thousandth of its size (at most 0.02), then fills holes
// one after another, at most 400. True when holes were found and closing ran;
// false for an object without polygons or without an open edge. With
// `addUndo` and a document, one undo step covers the closing. Changes the
// object: not for concurrent use on one object.
ZELMAR_API Result<bool> ClosePolygonObject(zta::PolygonObject* polygonObject, zta::BaseDocument* document, bool addUndo);

}  // namespace zelmar
