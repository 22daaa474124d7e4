#pragma once
// VolumeToolsInterface: the static entry to everything the system does with
// volumes. Every operation returns a Result and leaves its inputs unchanged.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/core/thread.h"
#include "zelmar/volume.h"

namespace zta {
class SplineData;
class FieldList;
}  // namespace zta

namespace zelmar {

using zta::ThreadRef;

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

class VolumeToolsInterface {
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
};

}  // namespace zelmar
