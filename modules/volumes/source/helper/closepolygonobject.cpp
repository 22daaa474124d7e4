#include "modules/volumes/source/helper/closepolygonobject.h"

#include <algorithm>

#include "host/modeling/modeling.h"
#include "host/modeling/neighbor.h"
#include "host/objects/polygonobject.h"
#include "host/scene/basedocument.h"

namespace zelmar {

namespace {

constexpr zta::Int32 kMaxHoleClosings = 400;

zta::Result<void> InitNeighbors(zta::Neighbor& neighbors, const zta::PolygonObject& op) {
  if (auto r = neighbors.Init(op); !r) return zta::OutOfMemoryError(r.GetError().GetMessage());
  return zta::OK();
}

}  // namespace

zta::Result<bool> ClosePolygonObject(zta::PolygonObject* op, zta::BaseDocument* document, bool addUndo) {
  if (!op) return zta::NullptrError("no polygon object to close");
  if (op->GetPolygonCount() == 0) return false;
  zta::Neighbor neighbors;
  if (auto r = InitNeighbors(neighbors, *op); !r) return r.GetError();

  // Points closer than a thousandth of the object's size are one point, so
  // that seams of split points do not count as holes.
  {
    zta::ModelingCommandData optimize;
    optimize.doc = document;
    optimize.op = op;
    optimize.bc.SetFloat(zta::MDATA_OPTIMIZE_TOLERANCE, std::min(op->GetRad().GetLength() / 1000.0, 0.02));
    optimize.bc.SetBool(zta::MDATA_OPTIMIZE_POINTS, true);
    optimize.bc.SetBool(zta::MDATA_OPTIMIZE_POLYGONS, true);
    optimize.bc.SetBool(zta::MDATA_OPTIMIZE_UNUSEDPOINTS, true);
    if (auto r = zta::SendModelingCommand(zta::MCOMMAND_OPTIMIZE, optimize); !r) return r.GetError();
  }

  if (auto r = InitNeighbors(neighbors, *op); !r) return r.GetError();
  zta::OpenEdge open = neighbors.FindOpenEdge(0);
  if (open.polygon == zta::NOTOK) return false;

  if (addUndo && document) {
    document->StartUndo();
    document->AddUndo(zta::UNDOTYPE::CHANGE, op);
    document->EndUndo();
  }

  for (zta::Int32 i = 0; i < kMaxHoleClosings && open.polygon != zta::NOTOK; ++i) {
    zta::ModelingCommandData close;
    close.doc = document;
    close.op = op;
    close.bc.SetInt32(zta::MDATA_CLOSEPOLYGONHOLE_EDGEINDEX, open.edge);
    close.bc.SetBool(zta::MDATA_CLOSEPOLYGONHOLE_TRIANGULATE, true);
    close.bc.SetLink(zta::MDATA_CLOSEPOLYGONHOLE_OBJECT, op);
    // A border that does not come round to a loop cannot be filled; the search
    // goes on past it.
    (void)zta::SendModelingCommand(zta::ID_MODELING_CLOSEPOLYGONHOLE, close);
    if (auto r = InitNeighbors(neighbors, *op); !r) return r.GetError();
    open = neighbors.FindOpenEdge(open.polygon + 1);
  }
  return true;
}

}  // namespace zelmar
