#include "host/objects/cloner.h"

#include <algorithm>
#include <cmath>

#include "host/core/rotation.h"
#include "host/scene/execution.h"

namespace zta {

namespace {

// More copies than this are refused: a typing slip should not fill memory.
constexpr Int64 kMaxClones = 1000000;

class ClonerData : public ObjectData {
 public:
  BaseObject* BuildVirtualObjects(BaseObject* op, const HierarchyHelp* hh) override {
    const std::vector<Matrix> places = ClonerMatrices(*op->GetDataInstance());
    std::vector<std::unique_ptr<BaseObject>> sources;
    BeginDependenceList(op);
    for (BaseObject* c = op->GetDown(); c; c = c->GetNext()) {
      auto clone = GetHierarchyClone(hh, c,
                                     HIERARCHYCLONEFLAGS_ASPOLY | HIERARCHYCLONEFLAGS_ASSPLINE | HIERARCHYCLONEFLAGS_ASVOLUME,
                                     nullptr);
      if (!clone) return nullptr;
      sources.push_back(std::move(clone));
    }
    auto root = BaseObject::Alloc(HOST_TYPE_NULL);
    if (!root) return nullptr;
    root->SetName(op->GetName());
    if (sources.empty()) return root.release();
    const ThreadRef& thread = hh->GetThread();
    for (size_t i = 0; i < places.size(); ++i) {
      if (thread && (i % 256) == 0 && thread->TestBreak()) return nullptr;
      const BaseObject* source = sources[i % sources.size()].get();
      auto copy = std::unique_ptr<BaseObject>(static_cast<BaseObject*>(source->GetClone().release()));
      if (!copy) return nullptr;
      copy->SetMl(places[i] * source->GetMl());
      copy.release()->InsertUnderLast(root.get());
    }
    return root.release();
  }
};

}  // namespace

std::vector<Matrix> ClonerMatrices(const BaseContainer& bc) {
  std::vector<Matrix> out;
  switch (bc.GetInt32(CLONER_MODE)) {
    case CLONER_MODE_LINEAR: {
      const Int64 count = std::clamp<Int64>(bc.GetInt32(CLONER_COUNT), 0, kMaxClones);
      const Vector offset = bc.GetVector(CLONER_OFFSET), rotation = bc.GetVector(CLONER_ROTATION);
      const Vector scale = bc.GetVector(CLONER_SCALE, Vector(1.0));
      for (Int64 i = 0; i < count; ++i) {
        const double k = double(i);
        const Vector s(std::pow(scale.x, k), std::pow(scale.y, k), std::pow(scale.z, k));
        out.push_back(JoinMatrix({offset * k, rotation * k, s}));
      }
      break;
    }
    case CLONER_MODE_GRID: {
      const Vector n = bc.GetVector(CLONER_GRID_COUNT, Vector(1.0)), spacing = bc.GetVector(CLONER_GRID_SPACING);
      const Int64 nx = std::max<Int64>(0, Int64(n.x)), ny = std::max<Int64>(0, Int64(n.y)), nz = std::max<Int64>(0, Int64(n.z));
      if (nx * ny * nz > kMaxClones) break;
      // Centred on the cloner, x fastest.
      for (Int64 z = 0; z < nz; ++z)
        for (Int64 y = 0; y < ny; ++y)
          for (Int64 x = 0; x < nx; ++x)
            out.push_back(MatrixMove(Vector((double(x) - double(nx - 1) / 2.0) * spacing.x,
                                            (double(y) - double(ny - 1) / 2.0) * spacing.y,
                                            (double(z) - double(nz - 1) / 2.0) * spacing.z)));
      break;
    }
    case CLONER_MODE_RADIAL: {
      const Int64 count = std::clamp<Int64>(bc.GetInt32(CLONER_RADIAL_COUNT), 0, kMaxClones);
      const double r = bc.GetFloat(CLONER_RADIAL_RADIUS);
      const Int32 plane = bc.GetInt32(CLONER_RADIAL_PLANE, CLONER_PLANE_XZ);
      for (Int64 i = 0; i < count; ++i) {
        const double a = 2.0 * M_PI * double(i) / double(count);
        const double c = r * std::cos(a), s = r * std::sin(a);
        out.push_back(MatrixMove(plane == CLONER_PLANE_XY ? Vector(c, s, 0) : plane == CLONER_PLANE_ZY ? Vector(0, s, c)
                                                                                                    : Vector(c, 0, s)));
      }
      break;
    }
    default: break;
  }
  return out;
}

std::unique_ptr<BaseObject> AllocCloner() {
  return BaseObject::AllocWithData(HOST_TYPE_CLONER, std::make_unique<ClonerData>(), OBJECT_GENERATOR | OBJECT_INPUT);
}

}  // namespace zta
