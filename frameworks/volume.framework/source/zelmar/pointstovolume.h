#pragma once
// PointsToVolumeListInterface: the particles that a caller gathers for
// PointsToVolume, one list per source object. Points are stored in blocks of
// 1024, so appending never moves what is stored.
#include "zelmar/api.h"
#include <memory>

#include "zelmar/volumetools.h"

namespace zta {
class BaseObject;
}

namespace zelmar {

struct PointsToVolumePoint {
  Vector position;
  Vector velocity;
  double radius = 0.0;
};

class PointsToVolumeListImpl;

class ZELMAR_API PointsToVolumeListInterface {
 public:
  // A list that is not set up: AppendPoint fails on it.
  PointsToVolumeListInterface() = default;

  // A list for the points of `object`, whose global matrix orients the grid
  // when no creation transform is given; null for points with no object.
  // `scale` and `velicityScale` are for whoever fills the list.
  static Result<PointsToVolumeListInterface> Create(const zta::BaseObject* object, double scale = 1.0,
                                                    double velicityScale = 1.0);

  Result<void> AppendPoint(const Vector& position, double radius, const Vector& velocity);
  Int GetCount() const;
  // `index` below GetCount().
  const PointsToVolumePoint& GetPoint(Int index) const;

  const zta::BaseObject* GetObject() const;
  double GetScale() const;
  double GetVelicityScale() const;

  static Result<Volume> PointsToVolume(const std::vector<PointsToVolumeListInterface>& pointObjects, double gridSize,
                                       int32_t bandWidth, const ThreadRef& thread, const Matrix* creationTransform,
                                       double velocityScale) {
    return VolumeToolsInterface::PointsToVolume(pointObjects, gridSize, bandWidth, thread, creationTransform,
                                                velocityScale);
  }

  PointsToVolumeListImpl* GetImpl() const { return impl_.get(); }

 private:
  std::shared_ptr<PointsToVolumeListImpl> impl_;
};

}  // namespace zelmar
