// The host's own node classes in scene files: what they keep beyond their
// parameters and tags. Points, polygons, UVs and vertex maps live in tags and
// go through the stream like any tag; emitters and matrix objects compute
// their particles from their parameters, so only a particle group keeps them.
#include "host/core/format.h"
#include "host/objects/particles.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "host/scene/hyperfile.h"

namespace zta {

bool WriteHostNodeData(const BaseList2D& node, HyperFile& hf) {
  if (const auto* seg = dynamic_cast<const SegmentedPoints*>(&node)) {
    // An object without segments of its own writes none: one segment then
    // spans all points.
    const Int32 count = seg->HasOwnSegments() ? seg->GetSegmentCount() : 0;
    hf.WriteInt32(count);
    for (Int32 i = 0; i < count; ++i) {
      const Segment s = seg->GetSegment(i);
      hf.WriteInt32(s.cnt);
      hf.WriteBool(s.closed);
    }
  }
  if (const auto* group = dynamic_cast<const ParticleGroupObject*>(&node)) {
    hf.WriteArray(group->GetPositions().data(), group->GetParticleCount(), sizeof(Vector));
    hf.WriteArray(group->GetRadii().data(), group->GetParticleCount(), sizeof(Float));
    hf.WriteArray(group->GetVelocities().data(), group->GetParticleCount(), sizeof(Vector));
  }
  return !hf.HasError();
}

bool ReadHostNodeData(BaseList2D& node, HyperFile& hf) {
  if (auto* seg = dynamic_cast<SegmentedPoints*>(&node)) {
    Int32 count = 0;
    if (!hf.ReadInt32(&count)) return false;
    if (count < 0) return hf.SetError(FormatString("a spline with @ segments", count));
    std::vector<Segment> segments;
    for (Int32 i = 0; i < count; ++i) {
      Segment s;
      if (!hf.ReadInt32(&s.cnt) || !hf.ReadBool(&s.closed)) return false;
      segments.push_back(s);
    }
    // The points came with the point tag before.
    if (count > 0 && !seg->SetSegments(segments))
      return hf.SetError(FormatString("the segments of '@' do not add up to its @ points", node.GetName(),
                                      seg->GetPointCount()));
  }
  if (auto* group = dynamic_cast<ParticleGroupObject*>(&node)) {
    std::vector<Vector> positions, velocities;
    std::vector<Float> radii;
    auto into = [](auto& v) {
      return [&v](Int64 n) -> void* {
        v.resize(size_t(n));
        return v.data();
      };
    };
    if (!hf.ReadArray(sizeof(Vector), into(positions)) || !hf.ReadArray(sizeof(Float), into(radii)) ||
        !hf.ReadArray(sizeof(Vector), into(velocities)))
      return false;
    if (!group->SetParticles(std::move(positions), std::move(radii), std::move(velocities)))
      return hf.SetError("the particles of '" + node.GetName() + "' have radii or velocities of another count");
  }
  return !hf.HasError();
}

String CheckHostNodeData(const BaseList2D& node) {
  if (const auto* poly = dynamic_cast<const PolygonObject*>(&node)) {
    const Int32 n = poly->GetPointCount();
    const CPolygon* p = poly->GetPolygonR();
    for (Int32 i = 0; i < poly->GetPolygonCount(); ++i)
      for (int k = 0; k < 4; ++k)
        if (p[i][k] < 0 || p[i][k] >= n)
          return FormatString("polygon @ of '@' names point @, the object has @", i, node.GetName(), p[i][k], n);
  }
  return {};
}

}  // namespace zta
