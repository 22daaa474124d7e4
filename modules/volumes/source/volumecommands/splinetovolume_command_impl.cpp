// net.zelmar.command.volumes.splinetovolume: tubes along splines, as particles
// laid out along each spline and handed to PointsToVolume.
#include <algorithm>
#include <cmath>

#include "host/fields/splinedata.h"
#include "host/objects/splineobject.h"
#include "modules/volumes/source/volumecommands/volumecommand.h"
#include "zelmar/pointstovolume.h"

namespace zelmar {

namespace {

// One segment of a line in world space, sampled by distance from its start.
// Samples at growing distances walk forward without searching from the start.
class PolylineWalk {
 public:
  PolylineWalk(std::vector<Vector> points, bool closed, const Matrix& mg) : points_(std::move(points)) {
    for (Vector& p : points_) p = mg * p;
    if (closed && points_.size() > 1) points_.push_back(points_.front());
    for (size_t i = 1; i < points_.size(); ++i) length_ += (points_[i] - points_[i - 1]).GetLength();
  }
  double GetLength() const { return length_; }
  size_t GetPointCount() const { return points_.size(); }
  // Back to the start, for a walk that begins again.
  void Rewind() {
    span_ = 0;
    spanStart_ = 0.0;
  }

  Vector At(double distance) {
    if (points_.empty()) return Vector();
    if (distance <= 0.0 || points_.size() == 1) return points_.front();
    while (span_ + 1 < points_.size()) {
      const double len = (points_[span_ + 1] - points_[span_]).GetLength();
      if (distance <= spanStart_ + len) {
        const double t = len > 0.0 ? (distance - spanStart_) / len : 0.0;
        return points_[span_] + (points_[span_ + 1] - points_[span_]) * t;
      }
      spanStart_ += len;
      ++span_;
    }
    return points_.back();
  }

 private:
  std::vector<Vector> points_;
  double length_ = 0.0;
  size_t span_ = 0;
  double spanStart_ = 0.0;
};

// The line form of a spline or line object: a line is its own, a spline's is
// made into `made`. Null for any other object and for a spline without points.
const zta::SegmentedPoints* LineOf(const zta::BaseObject* op, std::unique_ptr<zta::LineObject>& made) {
  if (!op) return nullptr;
  if (op->GetType() == zta::HOST_TYPE_LINE) return static_cast<const zta::LineObject*>(op);
  if (op->GetType() != zta::HOST_TYPE_SPLINE) return nullptr;
  made = static_cast<const zta::SplineObject*>(op)->GetLineObject();
  return made.get();
}

class SplineToVolumeCommand final : public PerInputCommand {
 public:
  using PerInputCommand::PerInputCommand;

 protected:
  Result<void> RunOne(VolumeCommandData& data, const CommandSettings& settings, const ThreadRef& thread,
                      const zta::BaseObject* input, Int32 index) const override {
    std::unique_ptr<zta::LineObject> madeLine, madeRail;
    const zta::SegmentedPoints* line = LineOf(input, madeLine);
    const zta::BaseObject* railObject = settings.GetObject(SPLINETOVOLUME_RAIL);
    const zta::SegmentedPoints* railLine = LineOf(railObject, madeRail);
    if (!line || (railObject && !railLine)) return zta::IllegalArgumentError("spline or line is not initialized");
    std::optional<PolylineWalk> rail;
    if (railLine) {
      rail.emplace(railLine->GetSegmentPoints(0), railLine->GetSegment(0).closed, railObject->GetMg());
      if (rail->GetPointCount() < 2 || !(rail->GetLength() > 0.0))
        return zta::IllegalArgumentError("passed rail line is not valid");
    }

    const double gridSize = settings.GetFloat(SPLINETOVOLUME_GRIDSIZE);
    const double density = settings.GetFloat(SPLINETOVOLUME_DENSITY);
    const std::optional<Matrix> transform = settings.GetMatrix(SPLINETOVOLUME_TRANSFORM);
    // At least one point a voxel, so that the spheres join into a tube. The
    // voxel is the creation transform's when there is one (PointsToVolume
    // takes its largest axis).
    double voxel = gridSize;
    if (transform) {
      const Vector len = transform->GetScale();
      voxel = std::max({len.x, len.y, len.z});
    }
    const double step = density > 0.0 ? std::min(1.0 / density, voxel) : voxel;
    const double radius = settings.GetFloat(SPLINETOVOLUME_RADIUS);
    const std::shared_ptr<const zta::SplineData> curve = settings.GetSplineData(SPLINETOVOLUME_RADIUSCURVE);

    auto list = PointsToVolumeListInterface::Create(nullptr);
    if (!list) return list.GetError();
    const Matrix mg = input->GetMg();
    // A voxel of no size is for PointsToVolume to refuse, without a walk
    // that would never end.
    const Int32 segments = step > 0.0 ? line->GetSegmentCount() : 0;
    for (Int32 s = 0; s < segments; ++s) {
      PolylineWalk walk(line->GetSegmentPoints(s), line->GetSegment(s).closed, mg);
      if (walk.GetPointCount() == 0) continue;
      const int64_t samples = std::max<int64_t>(1, int64_t(std::ceil(walk.GetLength() / step)));
      if (rail) rail->Rewind();
      for (int64_t k = 0; k <= samples; ++k) {
        if ((k & 0xffff) == 0 && IsStopped(thread)) return zta::UnexpectedError("spline to volume was stopped");
        const double f = double(k) / double(samples);
        const Vector p = walk.At(f * walk.GetLength());
        // The rail traces the tube's surface: its distance is the radius there.
        double r = rail ? (rail->At(f * rail->GetLength()) - p).GetLength() : radius;
        if (curve) r *= curve->GetPoint(f);
        if (auto added = list->AppendPoint(p, r, Vector()); !added) return added;
      }
    }
    auto volume = VolumeToolsInterface::PointsToVolume({*list}, gridSize, settings.GetInt32(SPLINETOVOLUME_BANDWIDTH),
                                                       thread, transform ? &*transform : nullptr, 0.0);
    if (!volume) return volume.GetError();
    return AddVolumeResult(data, *volume, {index});
  }
};

}  // namespace

VolumeCommandEntry SplineToVolumeCommandEntry() {
  return MakeCommandEntry<SplineToVolumeCommand>(
      {kSplineToVolumeCommand,
       "splinetovolume",
       "spline or line objects, each where its global matrix puts it",
       {
           {SPLINETOVOLUME_GRIDSIZE, "gridsize", COMMANDVALUETYPE::FLOAT, 0.1, "voxel size"},
           {SPLINETOVOLUME_BANDWIDTH, "bandwidth", COMMANDVALUETYPE::INT32, zta::Int32(3),
            "half width of the narrow band in voxels"},
           {SPLINETOVOLUME_RADIUS, "radius", COMMANDVALUETYPE::FLOAT, 1.0, "radius of the tube without a rail"},
           {SPLINETOVOLUME_DENSITY, "density", COMMANDVALUETYPE::FLOAT, 1.0,
            "points per world unit along the spline; never fewer than one a voxel"},
           {SPLINETOVOLUME_RAIL, "rail", COMMANDVALUETYPE::LINK, zta::GeData(),
            "a spline whose distance from the spline, at the same share of the length, is the radius"},
           {SPLINETOVOLUME_RADIUSCURVE, "radiuscurve", COMMANDVALUETYPE::SPLINEDATA, zta::GeData(),
            "factor on the radius over the length, x from 0 at the start to 1 at the end"},
           {SPLINETOVOLUME_TRANSFORM, "transform", COMMANDVALUETYPE::MATRIX, zta::GeData(),
            "creation transform, whose scale decides the voxel size"},
       }});
}

}  // namespace zelmar
