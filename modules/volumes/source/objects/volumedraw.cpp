#include "modules/volumes/source/objects/volumedraw.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "host/scene/hosttypes.h"
#include "host/scene/parameters.h"
#include "modules/volumes/source/objects/volumeobject.h"
#include "modules/volumes/source/volume_impl.h"

namespace zelmar {

using zta::Int32;
using zta::Int64;
using zta::SHADERSTAGE;
using zta::Vector32;

VOLUMEDISPLAYMODE GetDisplayMode(GRIDTYPE type, GRIDCLASS gridClass) {
  switch (type) {
    case GRIDTYPE::FLOAT:
    case GRIDTYPE::DOUBLE:
      if (gridClass == GRIDCLASS::SDF) return VOLUMEDISPLAYMODE::SURFACE;
      if (gridClass == GRIDCLASS::FOG || gridClass == GRIDCLASS::UNKNOWN) return VOLUMEDISPLAYMODE::FOG;
      return VOLUMEDISPLAYMODE::NOTHING;
    case GRIDTYPE::VEC3I:
    case GRIDTYPE::VEC3S:
    case GRIDTYPE::VEC3D: return VOLUMEDISPLAYMODE::VECTOR;
    default: return VOLUMEDISPLAYMODE::NOTHING;
  }
}

void VolumeObjectDisplay::Release() {
  if (lastDraw && zta::BaseDraw::IsAlive(lastDraw)) {
    lastDraw->FreeBuffer(vertexBuffer);
    lastDraw->FreeBuffer(indexBuffer);
    lastDraw->FreeProgram(program);
  }
  vertexBuffer = {};
  indexBuffer = {};
  program = {};
  programFlags = 0;
  lastDraw = nullptr;
}

// ---- reading the grid

namespace {

struct PointSink {
  std::vector<Vector32> points, colors, normals;
};

// Calls a visitor for every active voxel of the grid, tiles voxel by voxel:
// leaves in parallel, each task with a visitor of its own from
// `makeVisitor` (accessors are not shared), and the results joined in the
// tree's order, tiles last.
template <typename GridT, typename MakeVisitor>
void CollectActive(const GridT& grid, PointSink& out, MakeVisitor&& makeVisitor) {
  using TreeT = typename GridT::TreeType;
  using LeafT = typename TreeT::LeafNodeType;
  std::vector<const LeafT*> leaves;
  grid.tree().getNodes(leaves);
  constexpr size_t grain = 256;
  const size_t chunks = (leaves.size() + grain - 1) / grain;
  std::vector<PointSink> sinks(chunks + 1);
  tbb::parallel_for(tbb::blocked_range<size_t>(0, chunks), [&](const tbb::blocked_range<size_t>& r) {
    auto visit = makeVisitor();
    for (size_t c = r.begin(); c < r.end(); ++c)
      for (size_t i = c * grain; i < std::min(leaves.size(), (c + 1) * grain); ++i)
        for (auto it = leaves[i]->cbeginValueOn(); it; ++it) visit(sinks[c], it.getCoord(), *it);
  });
  auto visit = makeVisitor();
  typename TreeT::ValueOnCIter it = grid.tree().cbeginValueOn();
  it.setMaxDepth(TreeT::ValueOnCIter::LEAF_DEPTH - 1);
  for (; it; ++it) {
    openvdb::CoordBBox box;
    it.getBoundingBox(box);
    const auto value = *it;
    for (auto c = box.begin(); c; ++c) visit(sinks.back(), *c, value);
  }
  size_t total = 0;
  for (const auto& sink : sinks) total += sink.points.size();
  out.points.reserve(total);
  for (auto& sink : sinks) {
    out.points.insert(out.points.end(), sink.points.begin(), sink.points.end());
    out.colors.insert(out.colors.end(), sink.colors.begin(), sink.colors.end());
    out.normals.insert(out.normals.end(), sink.normals.begin(), sink.normals.end());
    sink = {};
  }
}

Int64 StepFor(Int64 count) { return count > kMaxDisplayPoints ? count / kMaxDisplayPoints + 1 : 1; }

// Keeps every step-th record of the arrays that are filled; returns the step.
Int64 Thin(std::vector<Vector32>& points, std::vector<Vector32>& colors, std::vector<Vector32>& normals) {
  const Int64 step = StepFor(Int64(points.size()));
  if (step == 1) return 1;
  for (auto* v : {&points, &colors, &normals}) {
    if (v->empty()) continue;
    size_t kept = 0;
    for (size_t i = 0; i < v->size(); i += size_t(step)) (*v)[kept++] = (*v)[i];
    v->resize(kept);
    v->shrink_to_fit();
  }
  return step;
}

Vector32 ToVector32(const openvdb::Coord& c) { return {float(c.x()), float(c.y()), float(c.z())}; }

// One voxel on the surface: where it is and the distance's gradient, in index space.
struct SurfaceRecord {
  float x, y, z, gx, gy, gz;
};

// Surface records as the parallel walk found them: one list per run of
// leaves, in the tree's order, and where each list starts among them all.
struct SurfaceLists {
  std::vector<std::vector<SurfaceRecord>> lists;
  std::vector<size_t> starts;
  size_t total = 0;

  // Calls fn(index, record) for every record, in parallel by list.
  template <typename Fn>
  void ForEach(Fn&& fn) const {
    tbb::parallel_for(tbb::blocked_range<size_t>(0, lists.size()), [&](const tbb::blocked_range<size_t>& r) {
      for (size_t i = r.begin(); i < r.end(); ++i)
        for (size_t k = 0; k < lists[i].size(); ++k) fn(starts[i] + k, lists[i][k]);
    });
  }
};

// The voxels of a signed distance grid within `band` of the surface, with
// their gradients by central differences, in the tree's order. Leaves are
// read in parallel straight from their buffers (an accessor only for
// neighbours in other leaves), each into its own list, joined at the end.
// With `skipHidden` an inside voxel whose outward neighbour (along the
// gradient's longest axis) is on the surface too is left out: it lies behind
// that neighbour from wherever the surface shows.
template <typename GridT>
void CollectSurfaceRecords(const GridT& grid, double band, bool skipHidden, SurfaceLists& out) {
  using TreeT = typename GridT::TreeType;
  using LeafT = typename TreeT::LeafNodeType;
  using Accessor = openvdb::tree::ValueAccessor<const TreeT, false>;
  std::vector<const LeafT*> leaves;
  grid.tree().getNodes(leaves);
  constexpr size_t grain = 64;
  const size_t chunks = (leaves.size() + grain - 1) / grain;
  std::vector<std::vector<SurfaceRecord>>& lists = out.lists;
  lists.assign(chunks + 1, {});
  // Decides and records one voxel, given its six neighbours' values.
  auto take = [band, skipHidden](std::vector<SurfaceRecord>& list, const openvdb::Coord& c, double v,
                                 const double (&n)[6]) {
    const double a = std::abs(v);
    if (a <= 1e-5 || a > band) return;
    const double gx = n[0] - n[1], gy = n[2] - n[3], gz = n[4] - n[5];
    if (skipHidden && v < 0.0) {
      const double ax = std::abs(gx), ay = std::abs(gy), az = std::abs(gz);
      const int axis = ax >= ay && ax >= az ? 0 : (ay >= az ? 1 : 2);
      const double g = axis == 0 ? gx : (axis == 1 ? gy : gz);
      const double outward = n[axis * 2 + (g >= 0.0 ? 0 : 1)];
      if (std::abs(outward) <= band && std::abs(outward) > 1e-5) return;
    }
    list.push_back({float(c.x()), float(c.y()), float(c.z()), float(gx * 0.5), float(gy * 0.5), float(gz * 0.5)});
  };
  tbb::parallel_for(tbb::blocked_range<size_t>(0, chunks), [&](const tbb::blocked_range<size_t>& r) {
    // Unregistered accessors: each task makes its own, and the grid does not change meanwhile.
    Accessor acc(grid.tree());
    for (size_t chunk = r.begin(); chunk < r.end(); ++chunk) {
      std::vector<SurfaceRecord>& list = lists[chunk];
      for (size_t i = chunk * grain; i < std::min(leaves.size(), (chunk + 1) * grain); ++i) {
        const LeafT& leaf = *leaves[i];
        const auto* data = leaf.buffer().data();
        const openvdb::Coord origin = leaf.origin();
        for (auto it = leaf.getValueMask().beginOn(); it; ++it) {
          const openvdb::Index n = it.pos();
          const double v = double(data[n]);
          const double a = std::abs(v);
          if (a <= 1e-5 || a > band) continue;
          const int x = int(n >> 6), y = int((n >> 3) & 7), z = int(n & 7);
          const openvdb::Coord c = origin.offsetBy(x, y, z);
          double nb[6];
          if (x > 0 && x < 7 && y > 0 && y < 7 && z > 0 && z < 7) {
            nb[0] = double(data[n + 64]), nb[1] = double(data[n - 64]);
            nb[2] = double(data[n + 8]), nb[3] = double(data[n - 8]);
            nb[4] = double(data[n + 1]), nb[5] = double(data[n - 1]);
          } else {
            nb[0] = double(acc.getValue(c.offsetBy(1, 0, 0))), nb[1] = double(acc.getValue(c.offsetBy(-1, 0, 0)));
            nb[2] = double(acc.getValue(c.offsetBy(0, 1, 0))), nb[3] = double(acc.getValue(c.offsetBy(0, -1, 0)));
            nb[4] = double(acc.getValue(c.offsetBy(0, 0, 1))), nb[5] = double(acc.getValue(c.offsetBy(0, 0, -1)));
          }
          take(list, c, v, nb);
        }
      }
    }
  });
  // Active tiles, voxel by voxel, last.
  Accessor acc(grid.tree());
  typename TreeT::ValueOnCIter it = grid.tree().cbeginValueOn();
  it.setMaxDepth(TreeT::ValueOnCIter::LEAF_DEPTH - 1);
  for (; it; ++it) {
    openvdb::CoordBBox box;
    it.getBoundingBox(box);
    const double v = double(*it);
    for (auto ci = box.begin(); ci; ++ci) {
      const openvdb::Coord c = *ci;
      const double nb[6] = {double(acc.getValue(c.offsetBy(1, 0, 0))), double(acc.getValue(c.offsetBy(-1, 0, 0))),
                            double(acc.getValue(c.offsetBy(0, 1, 0))), double(acc.getValue(c.offsetBy(0, -1, 0))),
                            double(acc.getValue(c.offsetBy(0, 0, 1))), double(acc.getValue(c.offsetBy(0, 0, -1)))};
      take(lists.back(), c, v, nb);
    }
  }
  out.starts.resize(lists.size());
  out.total = 0;
  for (size_t i = 0; i < lists.size(); ++i) out.starts[i] = out.total, out.total += lists[i].size();
}

// The surface records of a float or double signed distance grid; false for other grids.
bool CollectSurface(const Volume& volume, bool skipHidden, SurfaceLists& out) {
  out = {};
  const openvdb::GridBase::Ptr base = volume.IsInitialized() ? VolumeImpl::GetGrid(volume) : nullptr;
  if (!base || !base->transform().baseMap()->isLinear()) return false;
  if (volume.GetGridClass() != GRIDCLASS::SDF) return false;
  const double band = 1.02 * 0.5 * volume.GetGridTransform().v1.GetLength();
  if (auto f = openvdb::gridConstPtrCast<openvdb::FloatGrid>(base)) {
    CollectSurfaceRecords(*f, band, skipHidden, out);
    return true;
  }
  if (auto d = openvdb::gridConstPtrCast<openvdb::DoubleGrid>(base)) {
    CollectSurfaceRecords(*d, band, skipHidden, out);
    return true;
  }
  return false;
}

template <typename GridT>
void CollectFog(const GridT& grid, const ValueRange& range, PointSink& out) {
  using ValueT = typename GridT::ValueType;
  const double span = range.max - range.min;
  CollectActive(grid, out, [&] {
    return [&](PointSink& s, const openvdb::Coord& c, ValueT v) {
      const double d = double(v);
      if (std::abs(d) <= 1e-5) return;
      // A grid of one value shows it at full strength.
      const float t = span > 0.0 ? float(std::clamp((d - range.min) / span, 0.0, 1.0)) : 1.0f;
      s.points.push_back(ToVector32(c));
      s.colors.push_back({t, t, t});
    };
  });
}

template <typename GridT>
void CollectVectors(const GridT& grid, const zta::Matrix& toIndex, PointSink& out) {
  using ValueT = typename GridT::ValueType;
  CollectActive(grid, out, [&] {
    return [&](PointSink& s, const openvdb::Coord& c, const ValueT& v) {
      const zta::Vector file{double(v[0]), double(v[1]), double(v[2])};
      const double length = file.GetLength();
      if (length <= 1e-5) return;
      // Components keep the axes of files, where the scene's third axis is
      // mirrored; the line is drawn in the grid's index space.
      const zta::Vector index = toIndex.TransformVector({file.x, file.y, -file.z});
      const zta::Vector dir = file * (1.0 / length);
      s.points.push_back(ToVector32(c));
      s.colors.push_back({float(dir.x * 0.5 + 0.5), float(dir.y * 0.5 + 0.5), float(dir.z * 0.5 + 0.5)});
      s.normals.push_back({float(index.x), float(index.y), float(index.z)});
    };
  });
}

}  // namespace

namespace {

// CollectDisplayPoints, returning the step it took through the voxels shown.
Int64 CollectPoints(const Volume& volume, std::vector<Vector32>& points, std::vector<Vector32>& colors,
                    std::vector<Vector32>& normals) {
  points.clear();
  colors.clear();
  normals.clear();
  const openvdb::GridBase::Ptr base = volume.IsInitialized() ? VolumeImpl::GetGrid(volume) : nullptr;
  if (!base || !base->transform().baseMap()->isLinear()) return 1;
  PointSink sink;
  const zta::Matrix transform = volume.GetGridTransform();
  switch (volume.GetGridType()) {
    case GRIDTYPE::FLOAT:
    case GRIDTYPE::DOUBLE: {
      const GRIDCLASS cls = volume.GetGridClass();
      const bool sdf = cls == GRIDCLASS::SDF;
      if (sdf) {
        SurfaceLists records;
        CollectSurface(volume, false, records);
        sink.points.resize(records.total);
        sink.normals.resize(records.total);
        records.ForEach([&](size_t i, const SurfaceRecord& r) {
          sink.points[i] = {r.x, r.y, r.z};
          sink.normals[i] = {r.gx, r.gy, r.gz};
        });
        break;
      }
      const ValueRange range = volume.GetMinMaxValues(false);
      if (auto f = openvdb::gridConstPtrCast<openvdb::FloatGrid>(base)) CollectFog(*f, range, sink);
      else if (auto d = openvdb::gridConstPtrCast<openvdb::DoubleGrid>(base)) CollectFog(*d, range, sink);
      break;
    }
    case GRIDTYPE::VEC3I:
    case GRIDTYPE::VEC3S:
    case GRIDTYPE::VEC3D: {
      const zta::Matrix toIndex = transform.GetInverse();
      if (auto i = openvdb::gridConstPtrCast<openvdb::Vec3IGrid>(base))
        CollectVectors(*i, toIndex, sink);
      else if (auto s = openvdb::gridConstPtrCast<openvdb::Vec3SGrid>(base))
        CollectVectors(*s, toIndex, sink);
      else if (auto d = openvdb::gridConstPtrCast<openvdb::Vec3DGrid>(base))
        CollectVectors(*d, toIndex, sink);
      break;
    }
    default: break;
  }
  points = std::move(sink.points);
  colors = std::move(sink.colors);
  normals = std::move(sink.normals);
  return Thin(points, colors, normals);
}

}  // namespace

void CollectDisplayPoints(const Volume& volume, std::vector<Vector32>& points, std::vector<Vector32>& colors,
                          std::vector<Vector32>& normals) {
  CollectPoints(volume, points, colors, normals);
}

// ---- lights and keys

std::vector<zta::DrawLight> DefaultLights() {
  // Three lights from above the left shoulder at three heights, and a
  // weaker one from the other side to lift the shadows.
  static const double angles[4][2] = {{2.6179938779914944, -0.7853981633974483},
                                      {2.6179938779914944, -0.47123889803846897},
                                      {2.6179938779914944, -1.117010721276371},
                                      {-3.9269908169872414, -0.6154797086703873}};
  static const double strength[4] = {0.35, 0.35, 0.35, 0.25};
  std::vector<zta::DrawLight> lights;
  for (int i = 0; i < 4; ++i) {
    const zta::Matrix m = zta::MatrixRotY(angles[i][0]) * zta::MatrixRotX(angles[i][1]);
    // A light shines along its negative third axis.
    lights.push_back({m.v3 * -1.0, zta::Vector(strength[i])});
  }
  return lights;
}

Int32 DisplayColorKey(const zta::BaseDocument* doc) {
  const zta::BaseContainer* bc = doc ? doc->GetDataInstance() : nullptr;
  const bool colors = bc ? bc->GetBool(DOCUMENT_DISPLAY_COLORS, true) : true;
  const bool linear = bc ? bc->GetBool(DOCUMENT_DISPLAY_LINEAR, false) : false;
  const Int32 space = bc ? bc->GetInt32(DOCUMENT_DISPLAY_COLORSPACE, 0) : 0;
  return (colors ? 13 : -13) + (linear ? 11 : -11) + 7 * space;
}

// ---- buffers and programs

namespace {

zta::ShaderVertexInput Input(const char* attribute, Int32 offset, const char* line, const char* name) {
  zta::ShaderVertexInput in;
  in.attribute = attribute;
  in.type = "vec3";
  in.dataType = zta::VERTEXDATA_FLOAT;
  in.components = 3;
  in.offset = offset;
  in.stride = 24;
  in.line = line;
  in.name = name;
  return in;
}

void MakeLayout(VolumeObjectDisplay& display, VOLUMEDISPLAYMODE mode) {
  display.inputs.clear();
  display.outputs.clear();
  if (mode == VOLUMEDISPLAYMODE::NOTHING) return;
  display.inputs.push_back(Input("attrib0", 0, "vec3 iposition = attrib0.xyz", "iposition"));
  if (mode == VOLUMEDISPLAYMODE::SURFACE)
    display.inputs.push_back(Input("attrib1", 12, "vec3 inormal = attrib1.xyz", "inormal"));
  else
    display.inputs.push_back(Input("attrib1", 12, "vec3 icolor = attrib1.xyz", "icolor"));
  display.outputs = display.inputs;
}

// Writes `floats` into a fresh buffer of the view.
Result<void> Upload(VolumeObjectDisplay& display, zta::BaseDraw* bd, const std::vector<float>& floats) {
  bd->FreeBuffer(display.vertexBuffer);
  if (floats.empty()) return zta::OK();
  display.vertexBuffer = bd->AllocBuffer(Int64(floats.size() * sizeof(float)));
  if (!display.vertexBuffer) return zta::OutOfMemoryError("no room on the graphics device for the voxels");
  void* target = bd->MapBuffer(display.vertexBuffer);
  if (!target) {
    bd->FreeBuffer(display.vertexBuffer);
    return zta::OutOfMemoryError("no room on the graphics device for the voxels");
  }
  std::memcpy(target, floats.data(), floats.size() * sizeof(float));
  bd->UnmapBuffer(display.vertexBuffer);
  return zta::OK();
}

Result<void> FillSurface(VolumeObjectDisplay& display, const Volume& volume, zta::BaseDraw* bd) {
  // Inside voxels hidden behind their outward neighbours cost the renderer
  // as much as the ones that show, and add nothing to the picture.
  SurfaceLists records;
  CollectSurface(volume, true, records);
  const Int64 step = StepFor(Int64(records.total));
  const size_t count = (records.total + size_t(step) - 1) / size_t(step);
  display.voxelData.resize(count * 6);
  bd->FreeBuffer(display.vertexBuffer);
  float* target = nullptr;
  if (count > 0) {
    // Straight into the device's buffer: no copy of the voxels in between.
    display.vertexBuffer = bd->AllocBuffer(Int64(count * 6 * sizeof(float)));
    target = display.vertexBuffer ? static_cast<float*>(bd->MapBuffer(display.vertexBuffer)) : nullptr;
    if (!target) {
      bd->FreeBuffer(display.vertexBuffer);
      display.voxelData.clear();
      return zta::OutOfMemoryError("no room on the graphics device for the voxels");
    }
  }
  // Every step-th record, each written where its place among them all says.
  records.ForEach([&](size_t index, const SurfaceRecord& rec) {
    if (index % size_t(step) != 0) return;
    const size_t i = index / size_t(step);
    const float values[6] = {rec.x, rec.y, rec.z, rec.gx, rec.gy, rec.gz};
    for (size_t k = 0; k < 6; ++k) {
      display.voxelData[i * 6 + k] = values[k];
      target[i * 6 + k] = values[k];
    }
  });
  if (target) bd->UnmapBuffer(display.vertexBuffer);
  records = {};
  display.pointCount = Int64(count);
  // A quad spans one voxel of the grid: in its index space, one unit on each
  // axis whose length is not zero.
  const zta::Matrix t = volume.GetGridTransform();
  const double l1 = t.v1.GetLength(), l2 = t.v2.GetLength();
  // When only every step-th voxel is shown, larger quads keep the surface closed.
  const double grow = std::sqrt(double(step));
  display.voxelSize = {l1 > 0.0 ? grow : 0.0, l2 > 0.0 ? grow : 0.0, 1.0};
  ++display.fillCount;
  return zta::OK();
}

Result<void> FillColored(VolumeObjectDisplay& display, const Volume& volume, zta::BaseDraw* bd, const zta::Vector& color,
                         bool lines) {
  std::vector<Vector32> points, colors, normals;
  display.step = CollectPoints(volume, points, colors, normals);
  const auto dim = volume.GetActiveVoxelDim();
  display.depth = std::max({dim.x, dim.y, dim.z, 1});
  std::vector<float> floats;
  floats.reserve(points.size() * (lines ? 12 : 6));
  const float scale = float(std::max(display.scaleKey, 1));
  for (size_t i = 0; i < points.size(); ++i) {
    const Vector32& p = points[i];
    Vector32 c = colors[i];
    if (!lines) c = {c.x * float(color.x), c.y * float(color.y), c.z * float(color.z)};
    floats.insert(floats.end(), {p.x, p.y, p.z, c.x, c.y, c.z});
    if (lines) {
      const Vector32 q = p + normals[i] * scale;
      floats.insert(floats.end(), {q.x, q.y, q.z, c.x, c.y, c.z});
    }
  }
  display.pointCount = Int64(points.size()) * (lines ? 2 : 1);
  display.filledColor = color;
  ++display.fillCount;
  return Upload(display, bd, floats);
}

zta::ShaderBuilder SurfaceShader(const VolumeObjectDisplay& display, bool lit) {
  zta::ShaderBuilder sb(lit ? 324 : 68);
  for (const auto& in : display.outputs) sb.AddInput(in);
  sb.SetGeometryOutput(4, 2);
  const SHADERSTAGE gs = SHADERSTAGE::GEOMETRY, fs = SHADERSTAGE::FRAGMENT;
  // The colour is a vec3: "vec4(objectcolor, 1.0)" would not compile with a vec4.
  sb.AddUniform(gs, "vec3", "objectcolor");
  for (const char* corner : {"lowerleft", "upperleft", "upperright", "lowerright"}) sb.AddUniform(gs, "vec4", corner);
  sb.AddLine(gs, std::string("ocolor = vec4(") + "objectcolor" + ", 1.0);");
  if (lit) {
    sb.AddLine(gs, "onormal = vec4(normalize(objectmatrix_n * inormal[0].xyz), 1.0);");
    sb.AddLine(gs, "worldcoord.xyz = objectmatrix_r * iposition[0].xyz + objectmatrix_p.xyz;");
    sb.AddLine(gs, "var_texcoord[1].w = 1.0;");
    sb.AddLine(gs, "vec3 vt = eyeposition - worldcoord.xyz;");
    sb.AddLine(gs, "float dot = dot(vt, onormal.xyz);");
    sb.AddLine(gs, "if (dot >= -0.00001){");
  }
  const char* corners[4] = {"lowerleft", "upperleft", "lowerright", "upperright"};
  for (int i = 0; i < 4; ++i) {
    const char* lead = i < 3 ? "oposition =  transmatrix * vec4(iposition[0].xyz + "
                             : "oposition = transmatrix * vec4(iposition[0].xyz + ";
    sb.AddLine(gs, std::string(lead) + corners[i] + ".xyz, 1.0);");
    sb.AddEmitVertex();
  }
  sb.AddLine(gs, "EndPrimitive();");
  if (lit) sb.AddLine(gs, "}");
  if (!lit) {
    sb.AddLine(fs, "ocolor = icolor;");
  } else {
    sb.AddLine(fs, "vec3 V = normalize(eyeposition - worldcoord.xyz);");
    sb.AddLine(fs, "ocolor.rgb = vec3(0.004) * icolor.xyz;");
    sb.BeginLightLoop();
    sb.AddLine(fs, "float theta = max(dot(normal.xyz, L.xyz), 0.0);");
    sb.AddLine(fs, "ocolor.rgb += vec3(theta) * lightcolorD.rgb *  icolor.xyz;");
    sb.AddLine(fs, "vec3 R = reflect(-L.xyz, normal.xyz);");
    sb.AddLine(fs, "float theta2 = max(dot(V.xyz, R.xyz), 0.0);");
    sb.AddLine(fs, "ocolor.rgb += lightcolorD.rgb * pow(theta2, 32.0) * 4.87014125861;");
    sb.EndLightLoop();
    sb.AddLine(fs, "ocolor.a = 1.0;");
  }
  return sb;
}

zta::ShaderBuilder ColoredShader(const VolumeObjectDisplay& display) {
  zta::ShaderBuilder sb(64);
  for (const auto& in : display.outputs) sb.AddInput(in);
  sb.AddLine(SHADERSTAGE::VERTEX, "oposition = (transmatrix * vec4(iposition.xyz, 1.0));");
  sb.AddLine(SHADERSTAGE::VERTEX, "ocolor = vec4(icolor.rgb, 1.0);");
  sb.AddLine(SHADERSTAGE::FRAGMENT, "ocolor = icolor;");
  return sb;
}

// The program of `builder`, built once per set of flags. A build that fails
// the host's test is freed, and the error carries the compiler's words.
Result<void> EnsureProgram(VolumeObjectDisplay& display, zta::BaseDraw* bd, const zta::ShaderBuilder& builder) {
  if (display.program.id && display.programFlags == builder.GetFlags()) return zta::OK();
  bd->FreeProgram(display.program);
  zta::DrawProgram program = bd->CompileShader(builder);
  if (program.failed) {
    const std::string log = program.log;
    bd->FreeProgram(program);
    return zta::IllegalStateError("the volume's display program does not build: " + log);
  }
  display.program = program;
  display.programFlags = builder.GetFlags();
  return zta::OK();
}

zta::DrawUniform Uniform(const char* name, const zta::Vector& v, Int32 size) {
  zta::DrawUniform u;
  u.name = name;
  u.size = size;
  u.value[0] = float(v.x), u.value[1] = float(v.y), u.value[2] = float(v.z), u.value[3] = 0.0f;
  return u;
}

}  // namespace

Result<void> DrawVolume(VolumeObjectDisplay& display, const Volume& volume, const zta::Matrix& drawMatrix,
                        zta::BaseObject* object, zta::BaseDraw* bd, zta::BaseDrawHelp* drawHelp,
                        const zta::Vector& color, bool lit) {
  const VOLUMEDISPLAYMODE mode = GetDisplayMode(display.gridType, display.gridClass);
  // Buffers belong to the view that made them.
  if (display.lastDraw != bd) display.needsRebuild = true;
  if (display.needsRebuild) {
    MakeLayout(display, mode);
    display.Release();
    display.lastDraw = bd;
    display.pointCount = 0;
    display.voxelData.clear();
    display.needsRebuild = false;
  }
  if (mode == VOLUMEDISPLAYMODE::NOTHING) return zta::OK();
  if (mode == VOLUMEDISPLAYMODE::VECTOR && display.inputs.size() != display.outputs.size())
    return zta::IllegalStateError("the vector display's layout is inconsistent");
  bd->SetMatrix(drawMatrix);

  if (mode == VOLUMEDISPLAYMODE::SURFACE) {
    const Int32 shading = bd->GetSettings().GetInt32(zta::BASEDRAW_DISPLAYMODE, 0);
    if (shading == zta::DISPLAYMODE_BOX || shading == zta::DISPLAYMODE_SKELETON) return zta::OK();
    if (!display.vertexBuffer && display.pointCount == 0) {
      if (auto r = FillSurface(display, volume, bd); !r) return r;
    }
    if (display.pointCount == 0) return zta::OK();
    const zta::ShaderBuilder sb = SurfaceShader(display, lit);
    if (auto r = EnsureProgram(display, bd, sb); !r) return r;
    // Camera-facing quads of 1.5 voxels: neighbours overlap and close the surface.
    const zta::Matrix toIndex = drawMatrix.GetInverse();
    const zta::Vector right = toIndex.TransformVector(bd->GetCameraRight());
    const zta::Vector up = toIndex.TransformVector(bd->GetCameraUp());
    const double worldVoxel = drawMatrix.v1.GetLength();
    const zta::Vector r = zta::Vector{right.x * display.voxelSize.x, right.y * display.voxelSize.y, right.z} *
                          (worldVoxel * 0.75);
    const zta::Vector u = zta::Vector{up.x * display.voxelSize.x, up.y * display.voxelSize.y, up.z} *
                          (worldVoxel * 0.75);
    std::vector<zta::DrawUniform> uniforms = {
        Uniform("objectcolor", color, 3), Uniform("lowerleft", r * -1.0 - u, 4), Uniform("upperleft", u - r, 4),
        Uniform("upperright", r + u, 4), Uniform("lowerright", r - u, 4)};
    const std::vector<zta::DrawLight> lights = bd->GetLights().empty() ? DefaultLights() : bd->GetLights();
    if (!bd->DrawBuffered(display.program, sb, display.vertexBuffer, zta::DRAWPRIMITIVE::GEOMETRY_POINTS,
                          display.pointCount, lights, uniforms))
      return zta::IllegalStateError("the graphics device refused to draw the volume");
    return zta::OK();
  }

  const bool lines = mode == VOLUMEDISPLAYMODE::VECTOR;
  if (!display.vertexBuffer && display.pointCount == 0) {
    if (auto r = FillColored(display, volume, bd, color, lines); !r) return r;
  }
  if (display.pointCount == 0) return zta::OK();
  const zta::ShaderBuilder sb = ColoredShader(display);
  if (auto r = EnsureProgram(display, bd, sb); !r) return r;
  bool drawn;
  if (lines) {
    drawn = bd->DrawBuffered(display.program, sb, display.vertexBuffer, zta::DRAWPRIMITIVE::LINES, display.pointCount,
                             {}, {});
  } else {
    // Fog glows: points add up along the line of sight, each weighted so
    // that a column through the whole grid reaches about the full colour.
    const double depth = display.depth;
    const double step = double(display.step);
    // Points as large as a voxel looks at the grid's centre leave no gaps;
    // the weight makes up for their overlap and leaves the densest column
    // short of white.
    const BoundingBox& box = volume.GetWorldBoundingBox();
    const zta::Vector centre = drawMatrix * ((box.min + box.max) * 0.5);
    const double voxelPixels = bd->GetPixelsPerUnit(centre) * drawMatrix.v1.GetLength();
    const double pointSize = std::clamp(std::ceil(voxelPixels), 1.0, 64.0);
    const double overlap = std::min(1.0, voxelPixels * voxelPixels / (pointSize * pointSize));
    const float weight = float(std::min(1.0, 0.6 * step / depth * std::max(overlap, 1e-3)));
    bd->SetPointSize(float(pointSize));
    drawn = bd->DrawBuffered(display.program, sb, display.vertexBuffer, zta::DRAWPRIMITIVE::POINTS,
                             display.pointCount, {}, {}, zta::DRAWBLEND::ADD, weight);
  }
  if (!drawn) return zta::IllegalStateError("the graphics device refused to draw the volume");
  return zta::OK();
}

// ---- the object

zta::DRAWRESULT VolumeObjectData::DrawObject(zta::BaseObject* op, zta::DRAWPASS pass, zta::BaseDraw* bd,
                                             zta::BaseDrawHelp* bh) {
  const Int32 passId = Int32(pass);
  if (passId != zta::DRAWPASS_OBJECT && passId != zta::DRAWPASS_XRAY) return zta::DRAWRESULT::SKIP;
  if (!op || !bd || !bh) return zta::DRAWRESULT::ERROR_;
  if (!display_) display_ = std::make_shared<VolumeObjectDisplay>();
  VolumeObjectDisplay& display = *display_;
  const Int32 shading = bd->GetSettings().GetInt32(zta::BASEDRAW_DISPLAYMODE, 0);
  const bool lit = !(shading == zta::DISPLAYMODE_WIRE || shading == zta::DISPLAYMODE_ISOPARMS ||
                     shading == zta::DISPLAYMODE_HIDDENLINE || shading == zta::DISPLAYMODE_NOSHADING);
  const zta::Matrix mg = bh->GetMg();
  if (passId == zta::DRAWPASS_OBJECT) {
    auto* parent = dynamic_cast<zta::BaseObject*>(op->GetUp());
    const bool active = op->GetBit(zta::BIT_ACTIVE) || (parent && parent->GetBit(zta::BIT_ACTIVE));
    bd->SetPen(active ? zta::Vector(0.0, 1.0, 0.0) : zta::Vector(1.0, 0.3, 0.1));
    bd->SetMatrix(mg);
    zta::Vector mp, rad;
    GetObjectBounds(op, &mp, &rad);
    bd->DrawBox(mp - rad, mp + rad);
  }
  if (displayDirty_) {
    display.gridType = volume_.HasGrid() ? volume_.GetGridType() : GRIDTYPE::NONE;
    display.gridClass = volume_.HasGrid() ? volume_.GetGridClass() : GRIDCLASS::NONE;
    display.valueRange = volume_.HasGrid() ? volume_.GetMinMaxValues(false) : ValueRange{0, 0};
    display.needsRebuild = true;
    displayDirty_ = false;
  }
  const bool visible = op->GetEditorMode() != zta::MODE_OFF;
  if (!visible || !volume_.HasGrid() || volume_.GetActiveVoxelCount() == 0) return zta::DRAWRESULT::OK;
  const zta::BaseContainer* bc = op->GetDataInstance();
  const Int32 colorMode = bc->GetInt32(zta::ID_BASEOBJECT_USECOLOR, 0);
  zta::Vector color(0.8, 0.8, 0.8);
  // The host has no layers: a layer's colour is the default.
  if (colorMode == 1 || colorMode == 2) color = bc->GetVector(zta::ID_BASEOBJECT_COLOR, color);
  if (display.gridClass != GRIDCLASS::SDF) {
    const Int32 key = DisplayColorKey(bh->GetDocument());
    if (key != display.colorKey) {
      display.colorKey = key;
      display.needsRebuild = true;
    }
    // The colour is in the buffer of fog and vector voxels.
    if (!(color == display.filledColor) && display.filledColor.x >= 0.0 &&
        GetDisplayMode(display.gridType, display.gridClass) == VOLUMEDISPLAYMODE::FOG)
      display.needsRebuild = true;
  }
  if (display.gridType == GRIDTYPE::VEC3I || display.gridType == GRIDTYPE::VEC3S ||
      display.gridType == GRIDTYPE::VEC3D) {
    const Int32 key = bd->GetSettings().GetInt32(zta::BASEDRAW_VECTORMODE, 1);
    if (key != display.scaleKey) {
      display.scaleKey = key;
      display.needsRebuild = true;
    }
  }
  // A display that cannot draw (no room on the device, a program that does
  // not build) leaves the object its box for this pass.
  (void)DrawVolume(display, volume_, mg, op, bd, bh, color, lit);
  return zta::DRAWRESULT::OK;
}

}  // namespace zelmar
