#include <algorithm>

#include "host/modeling/modeling.h"
#include "host/modeling/neighbor.h"
#include "host/objects/polygonobject.h"
#include "host/scene/basedocument.h"
#include "zelmar/volumetools.h"

namespace zelmar {

namespace {

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

  // This table serves the first hole too.
  if (auto r = InitNeighbors(neighbors, *op); !r) return r.GetError();
  if (neighbors.FindOpenEdge(0).polygon == zta::NOTOK) return false;

  if (addUndo && document) {
    document->StartUndo();
    document->AddUndo(zta::UNDOTYPE::CHANGE, op);
    document->EndUndo();
  }
  if (auto closed = zta::CloseHoles(*op, neighbors, /*triangulate=*/true); !closed) return closed.GetError();
  return true;
}

}  // namespace zelmar
