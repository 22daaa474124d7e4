#include "host/modeling/modeling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <new>
#include <set>
#include <unordered_map>

#include "host/core/format.h"
#include "host/modeling/join.h"
#include "host/modeling/neighbor.h"
#include "host/objects/polygonobject.h"
#include "host/objects/splineobject.h"
#include "host/objects/uvwtag.h"
#include "host/objects/vertexmaptag.h"
#include "host/scene/basedocument.h"
#include "host/scene/execution.h"

namespace zta {

namespace {

std::vector<BaseObject*> Targets(const ModelingCommandData& data) {
  std::vector<BaseObject*> out = data.objects;
  if (out.empty() && data.op) out.push_back(data.op);
  return out;
}

// ---- optimise

// Merges points closer than `tol`, each onto the first point of its
// neighbourhood, through a grid of cells of that size.
std::vector<Int32> MergePoints(const Vector* p, Int32 n, Float tol) {
  std::vector<Int32> rep(static_cast<size_t>(n));
  struct Hash {
    size_t operator()(const std::array<Int64, 3>& k) const {
      return size_t(k[0] * 73856093) ^ size_t(k[1] * 19349663) ^ size_t(k[2] * 83492791);
    }
  };
  std::unordered_map<std::array<Int64, 3>, std::vector<Int32>, Hash> grid;
  grid.reserve(size_t(n));
  const Float cell = tol > 0 ? tol : 1.0;
  for (Int32 i = 0; i < n; ++i) {
    const std::array<Int64, 3> c{Int64(std::floor(p[i].x / cell)), Int64(std::floor(p[i].y / cell)),
                                 Int64(std::floor(p[i].z / cell))};
    Int32 found = -1;
    for (Int64 dx = -1; dx <= 1 && found < 0; ++dx)
      for (Int64 dy = -1; dy <= 1 && found < 0; ++dy)
        for (Int64 dz = -1; dz <= 1 && found < 0; ++dz) {
          auto it = grid.find({c[0] + dx, c[1] + dy, c[2] + dz});
          if (it == grid.end()) continue;
          for (Int32 j : it->second) {
            const bool close = tol > 0 ? (p[i] - p[j]).GetLength() <= tol : p[i] == p[j];
            if (close) {
              found = j;
              break;
            }
          }
        }
    rep[size_t(i)] = found >= 0 ? found : i;
    if (found < 0) grid[c].push_back(i);
  }
  return rep;
}

Result<void> Optimize(PolygonObject& op, const BaseContainer& bc) {
  const Float tol = bc.GetFloat(MDATA_OPTIMIZE_TOLERANCE, 0.01);
  if (!(tol >= 0)) return IllegalArgumentError(FormatString("optimise tolerance @ is negative", tol));
  if (!op.IsValid()) return IllegalArgumentError("object has polygons with points that do not exist");
  const Int32 n = op.GetPointCount(), m = op.GetPolygonCount();
  const Vector* pts = op.GetPointR();
  const CPolygon* polys = op.GetPolygonR();

  std::vector<Int32> rep;
  if (bc.GetBool(MDATA_OPTIMIZE_POINTS, true)) {
    rep = MergePoints(pts, n, tol);
  } else {
    rep.resize(size_t(n));
    for (Int32 i = 0; i < n; ++i) rep[size_t(i)] = i;
  }

  // Polygons after the merge, with the corners each one keeps (for UVWs).
  struct Kept {
    Int32 source;
    CPolygon poly;
    std::array<int, 4> corner;
  };
  std::vector<Kept> kept;
  kept.reserve(size_t(m));
  const bool cleanPolys = bc.GetBool(MDATA_OPTIMIZE_POLYGONS, true);
  std::set<std::array<Int32, 4>> seen;
  for (Int32 i = 0; i < m; ++i) {
    const CPolygon& s = polys[i];
    const int corners = s.IsTriangle() ? 3 : 4;
    if (!cleanPolys) {
      CPolygon q(rep[size_t(s.a)], rep[size_t(s.b)], rep[size_t(s.c)], rep[size_t(s.d)]);
      kept.push_back({i, q, {0, 1, 2, corners == 3 ? 2 : 3}});
      continue;
    }
    std::array<Int32, 4> idx{};
    std::array<int, 4> from{};
    int u = 0;
    for (int k = 0; k < corners; ++k) {
      const Int32 v = rep[size_t(s[k])];
      if (std::find(idx.begin(), idx.begin() + u, v) != idx.begin() + u) continue;
      idx[size_t(u)] = v;
      from[size_t(u)] = k;
      ++u;
    }
    if (u < 3) continue;  // collapsed to an edge or a point
    std::array<Int32, 4> key{idx[0], idx[1], idx[2], u == 4 ? idx[3] : -1};
    std::sort(key.begin(), key.end());
    if (!seen.insert(key).second) continue;  // the same points as an earlier polygon
    if (u == 3) {
      idx[3] = idx[2];
      from[3] = from[2];
    }
    kept.push_back({i, CPolygon(idx[0], idx[1], idx[2], idx[3]), from});
  }

  // Points that stay, and where they go.
  std::vector<Int32> newIndex(size_t(n), -1);
  Int32 newCount = 0;
  if (bc.GetBool(MDATA_OPTIMIZE_UNUSEDPOINTS, true)) {
    std::vector<char> used(size_t(n), 0);
    for (const Kept& k : kept)
      for (int c = 0; c < 4; ++c) used[size_t(k.poly[c])] = 1;
    for (Int32 i = 0; i < n; ++i)
      if (used[size_t(i)]) newIndex[size_t(i)] = newCount++;
  } else {
    for (Int32 i = 0; i < n; ++i) newIndex[size_t(i)] = newCount++;
  }

  std::vector<Vector> newPoints(static_cast<size_t>(newCount));
  std::vector<Int32> sourceOf(static_cast<size_t>(newCount));
  for (Int32 i = 0; i < n; ++i)
    if (newIndex[size_t(i)] >= 0) {
      newPoints[size_t(newIndex[size_t(i)])] = pts[i];
      sourceOf[size_t(newIndex[size_t(i)])] = i;
    }
  // Tags that follow points and polygons, computed before anything changes.
  std::vector<std::pair<UVWTag*, std::vector<UVWStruct>>> uvws;
  std::vector<std::pair<VertexMapTag*, std::vector<Float32>>> maps;
  for (BaseTag* t = op.GetFirstTag(); t; t = t->GetNext()) {
    if (t->GetType() == HOST_TAG_UVW) {
      auto* tag = static_cast<UVWTag*>(t);
      std::vector<UVWStruct> data(kept.size());
      for (size_t i = 0; i < kept.size(); ++i) {
        const UVWStruct s = tag->Get(kept[i].source);
        const Vector corners[4] = {s.a, s.b, s.c, s.d};
        data[i] = {corners[kept[i].corner[0]], corners[kept[i].corner[1]], corners[kept[i].corner[2]],
                   corners[kept[i].corner[3]]};
      }
      uvws.emplace_back(tag, std::move(data));
    } else if (t->GetType() == HOST_TAG_VERTEXMAP) {
      auto* tag = static_cast<VertexMapTag*>(t);
      std::vector<Float32> data(size_t(newCount), 0.0f);
      for (Int32 i = 0; i < newCount; ++i)
        if (sourceOf[size_t(i)] < tag->GetDataCount()) data[size_t(i)] = tag->GetDataAddressR()[sourceOf[size_t(i)]];
      maps.emplace_back(tag, std::move(data));
    }
  }

  if (!op.ResizeObject(newCount, Int32(kept.size()))) return OutOfMemoryError("optimised object");
  std::copy(newPoints.begin(), newPoints.end(), op.GetPointW());
  CPolygon* out = op.GetPolygonW();
  for (size_t i = 0; i < kept.size(); ++i) {
    const CPolygon& q = kept[i].poly;
    out[i] = CPolygon(newIndex[size_t(q.a)], newIndex[size_t(q.b)], newIndex[size_t(q.c)], newIndex[size_t(q.d)]);
  }
  for (auto& [tag, data] : uvws)
    if (tag->Resize(Int32(data.size())))
      for (size_t i = 0; i < data.size(); ++i) tag->Set(Int32(i), data[i]);
  for (auto& [tag, data] : maps)
    if (tag->Resize(Int32(data.size()))) std::copy(data.begin(), data.end(), tag->GetDataAddressW());
  op.SetDirty(DIRTYFLAGS_DATA);
  return OK();
}

// ---- close polygon hole

Result<void> ClosePolygonHole(ModelingCommandData& data) {
  BaseList2D* linked = data.bc.GetLink(MDATA_CLOSEPOLYGONHOLE_OBJECT, data.doc);
  auto* op = dynamic_cast<PolygonObject*>(linked ? linked : data.op);
  if (!op) return IllegalArgumentError("close polygon hole needs a polygon object");
  Neighbor nb;
  if (auto r = nb.Init(*op); !r) return r.GetError();
  return FillHole(*op, nb, data.bc.GetInt32(MDATA_CLOSEPOLYGONHOLE_EDGEINDEX, NOTOK),
                  data.bc.GetBool(MDATA_CLOSEPOLYGONHOLE_TRIANGULATE));
}

// ---- current state

bool IsEditableGeometry(const BaseObject* op) {
  return (op->GetType() == HOST_TYPE_POLYGON || op->GetType() == HOST_TYPE_SPLINE || op->GetType() == HOST_TYPE_LINE) &&
         !(op->GetInfo() & OBJECT_GENERATOR);
}

Result<std::unique_ptr<BaseObject>> CurrentState(BaseObject* op, const ModelingCommandData& data) {
  // A generator that was never evaluated builds as a pass would.
  if (!IsEditableGeometry(op) && !op->GetDeformCache() && !op->GetCache() && op->GetObjectData() &&
      !BuildCaches(op, data.thread))
    return IllegalStateError(FormatString("evaluation of \"@\" was stopped", op->GetName()));
  const BaseObject* source =
      op->GetDeformCache() ? op->GetDeformCache() : (IsEditableGeometry(op) ? op : op->GetCache());
  if (!source) return IllegalStateError(FormatString("object \"@\" has no state to convert", op->GetName()));
  const Int32 flags = source == op ? COPYFLAGS_NO_HIERARCHY : COPYFLAGS_NONE;
  auto clone = std::unique_ptr<BaseObject>(static_cast<BaseObject*>(source->GetClone(flags).release()));
  if (!clone) return OutOfMemoryError("current state");
  clone->SetName(op->GetName());
  // A cache stands relative to its generator; the copy stands where the generator does.
  clone->SetMl(source == op ? op->GetMl() : op->GetMl() * source->GetMl());
  return clone;
}

// Builds the caches of each object where it stands, as a pass with the
// given purpose and time would, and leaves them on the objects.
Result<void> BuildCurrentState(ModelingCommandData& data) {
  const std::vector<BaseObject*> targets = Targets(data);
  if (targets.empty()) return IllegalArgumentError("current state needs an object");
  const Int32 buildFlags = data.bc.GetInt32(MDATA_CURRENTSTATE_BUILDFLAGS, BUILDFLAGS_NONE);
  for (BaseObject* op : targets) {
    if (!op) return NullptrError("object to evaluate is null");
    BaseDocument* doc = op->GetDocument();
    const bool setTime = doc && data.bc.GetBool(MDATA_CURRENTSTATE_SETTIME);
    const BaseTime before = doc ? doc->GetTime() : BaseTime();
    if (setTime) doc->SetTime(data.bc.GetTime(MDATA_CURRENTSTATE_TIME));
    const bool done = BuildCaches(op, data.thread, buildFlags);
    if (setTime) doc->SetTime(before);
    if (!done) return IllegalStateError(FormatString("evaluation of \"@\" was stopped", op->GetName()));
  }
  return OK();
}

Result<void> CurrentStateToObject(ModelingCommandData& data) {
  const std::vector<BaseObject*> targets = Targets(data);
  if (targets.empty()) return IllegalArgumentError("current state needs an object");
  if (data.bc.GetBool(MDATA_CURRENTSTATETOOBJECT_EVALUATE)) {
    BaseDocument* doc = data.doc ? data.doc : targets.front() ? targets.front()->GetDocument() : nullptr;
    const bool done = doc ? ExecutePasses(doc, data.thread) : BuildCaches(targets.front(), data.thread);
    if (!done) return IllegalStateError("evaluation was stopped");
  }
  std::vector<std::unique_ptr<BaseObject>> results;
  for (BaseObject* op : targets) {
    if (!op) return NullptrError("object to convert is null");
    auto r = CurrentState(op, data);
    if (!r) return r.GetError();
    // Joining needs world matrices; free copies have no parent to give them.
    if (data.bc.GetBool(MDATA_CURRENTSTATETOOBJECT_JOIN)) r.GetValue()->SetMl(op->GetUpMg() * r.GetValue()->GetMl());
    results.push_back(std::move(r.GetValue()));
  }
  if (!data.bc.GetBool(MDATA_CURRENTSTATETOOBJECT_JOIN)) {
    for (auto& r : results) data.result.push_back(std::move(r));
    return OK();
  }
  std::vector<const PolygonObject*> polys;
  for (auto& r : results)
    WalkTree(r.get(), [&](GeListNode* n) {
      if (auto* p = dynamic_cast<const PolygonObject*>(n)) polys.push_back(p);
    });
  auto joined = JoinPolygonObjects(polys);
  if (!joined) return joined.GetError();
  joined.GetValue()->SetName(targets.front()->GetName());
  data.result.push_back(std::move(joined.GetValue()));
  return OK();
}

}  // namespace

Result<void> SendModelingCommand(Int32 command, ModelingCommandData& data) {
  switch (command) {
    case MCOMMAND_OPTIMIZE: {
      const std::vector<BaseObject*> targets = Targets(data);
      if (targets.empty()) return IllegalArgumentError("optimise needs an object");
      for (BaseObject* op : targets) {
        auto* poly = dynamic_cast<PolygonObject*>(op);
        if (!poly) return IllegalArgumentError("optimise works on polygon objects only");
        if (auto r = Optimize(*poly, data.bc); !r) return r;
      }
      return OK();
    }
    case ID_MODELING_CLOSEPOLYGONHOLE:
      return ClosePolygonHole(data);
    case MCOMMAND_CURRENTSTATETOOBJECT:
      return CurrentStateToObject(data);
    case MCOMMAND_CURRENTSTATE:
      return BuildCurrentState(data);
    default:
      return IllegalArgumentError(FormatString("unknown modelling command @", command));
  }
}

Result<void> FillHole(PolygonObject& op, const Neighbor& nb, Int32 edge, bool triangulate) {
  const std::vector<Int32> loop = nb.GetHoleLoop(edge);
  if (loop.size() < 3) return IllegalArgumentError(FormatString("edge @ does not border a closed hole", edge));

  // The host has no n-gons: a hole of more than four points (or of four when
  // triangulating) is filled by a fan from its first point.
  std::vector<CPolygon> fill;
  if (loop.size() == 3) fill.emplace_back(loop[0], loop[1], loop[2]);
  else if (loop.size() == 4 && !triangulate) fill.emplace_back(loop[0], loop[1], loop[2], loop[3]);
  else
    for (size_t i = 1; i + 1 < loop.size(); ++i) fill.emplace_back(loop[0], loop[i], loop[i + 1]);

  const Int32 before = op.GetPolygonCount();
  if (!op.ResizeObject(op.GetPointCount(), before + Int32(fill.size()))) return OutOfMemoryError("closed object");
  std::copy(fill.begin(), fill.end(), op.GetPolygonW() + before);
  for (BaseTag* t = op.GetFirstTag(); t; t = t->GetNext())
    if (t->GetType() == HOST_TAG_UVW) static_cast<UVWTag*>(t)->Resize(op.GetPolygonCount());
  op.SetDirty(DIRTYFLAGS_DATA);
  return OK();
}

Result<Int32> CloseHoles(PolygonObject& op, Neighbor& nb, bool triangulate, Int32 maxClosings) {
  Int32 closed = 0;
  OpenEdge e = nb.FindOpenEdge(0);
  for (Int32 i = 0; i < maxClosings && e.polygon != NOTOK; ++i) {
    auto r = FillHole(op, nb, e.edge, triangulate);
    if (r) ++closed;
    // A border that does not close is left open; anything else is a failure.
    else if (r.GetError().GetKind() != ErrorKind::IllegalArgument) return r.GetError();
    // The one table of the next hole: filling appends polygons, so the search
    // goes on after the polygon of the edge just tried.
    if (auto n = nb.Init(op); !n) return n.GetError();
    e = nb.FindOpenEdge(e.polygon + 1);
  }
  return closed;
}

Result<Int32> CloseHoles(PolygonObject& op, bool triangulate, Int32 maxClosings) {
  Neighbor nb;
  if (auto r = nb.Init(op); !r) return r.GetError();
  return CloseHoles(op, nb, triangulate, maxClosings);
}

}  // namespace zta
