#pragma once
// Modelling commands: numbered operations on the objects of a document.
#include <memory>
#include <vector>

#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/scene/basecontainer.h"

namespace zta {

class BaseDocument;
class BaseObject;
class Neighbor;
class PolygonObject;

enum : Int32 {
  MCOMMAND_OPTIMIZE = 227,
  MCOMMAND_CURRENTSTATE = 245,
  MCOMMAND_CURRENTSTATETOOBJECT = 246,
  ID_MODELING_CLOSEPOLYGONHOLE = 450000010,
};

// Settings of the optimise command.
enum : Int32 {
  MDATA_OPTIMIZE_TOLERANCE = 2076,     // float, points closer than this merge
  MDATA_OPTIMIZE_POINTS = 2077,        // bool, merge points
  MDATA_OPTIMIZE_POLYGONS = 2078,      // bool, remove degenerate and doubled polygons
  MDATA_OPTIMIZE_UNUSEDPOINTS = 2079,  // bool, remove points no polygon uses
};

// Settings of the close-polygon-hole tool.
enum : Int32 {
  MDATA_CLOSEPOLYGONHOLE_EDGEINDEX = 1100,  // int32, global id of an edge on the hole's border
  MDATA_CLOSEPOLYGONHOLE_OBJECT = 1102,     // link, the object
  MDATA_CLOSEPOLYGONHOLE_TRIANGULATE = 1103,  // bool, fill with a triangle fan instead of one n-gon
};

// Settings of the current-state command (245): the caches of each object and
// its hierarchy are built as the evaluation pass builds them and stay on the
// objects; no new objects come out. For another time or another purpose than
// the editor's, the time and the build flags are given.
enum : Int32 {
  MDATA_CURRENTSTATE_SETTIME = 2162,     // bool: evaluate at MDATA_CURRENTSTATE_TIME
  MDATA_CURRENTSTATE_TIME = 2163,        // time
  MDATA_CURRENTSTATE_BUILDFLAGS = 2164,  // int32: BUILDFLAGS_*
};

// Settings of the current-state-to-object command (246). Each object gives a
// copy of what it shows: itself for a polygon, spline or line object, its
// (deformed) cache for a generator, built on the spot when it has none. With
// EVALUATE the object's document is evaluated first, so that every cache in
// it is current. With JOIN the polygon objects among the results become one
// object in world space.
enum : Int32 {
  MDATA_CURRENTSTATETOOBJECT_JOIN = 2167,         // bool
  MDATA_CURRENTSTATETOOBJECT_EVALUATE = 1050529,  // bool
};

// Hole closing runs at most this many times for one object; holes beyond
// stay open.
constexpr Int32 kMaxHoleClosings = 400;

struct ModelingCommandData {
  BaseDocument* doc = nullptr;
  // The objects to work on; `op` is the first one when only one is given.
  BaseObject* op = nullptr;
  std::vector<BaseObject*> objects;
  BaseContainer bc;
  ThreadRef thread;
  // New objects that a command made, for the caller to take.
  std::vector<std::unique_ptr<BaseObject>> result;
};

// Fills the hole whose border holds the open edge `edge` (a global edge id),
// with `nb` the neighbour table of `op` as it stands; the table is stale
// afterwards. What the close-polygon-hole tool does. A border that does not
// come round to a loop is an IllegalArgument error and changes nothing.
Result<void> FillHole(PolygonObject& op, const Neighbor& nb, Int32 edge, bool triangulate);

// Closes holes of `op` one after another: fills the hole of the first open
// edge, builds the neighbour table anew and goes on from the polygon after
// the one whose edge was tried, at most `maxClosings` times; borders that do
// not close are passed over. `nb` is the table of `op` as it stands, and is
// rebuilt once per hole. Gives the number of holes closed.
Result<Int32> CloseHoles(PolygonObject& op, Neighbor& nb, bool triangulate, Int32 maxClosings = kMaxHoleClosings);
// The same with a table of its own.
Result<Int32> CloseHoles(PolygonObject& op, bool triangulate, Int32 maxClosings = kMaxHoleClosings);

// Runs `command` on the data. Errors name the cause; on an error the
// objects are left as they were.
Result<void> SendModelingCommand(Int32 command, ModelingCommandData& data);

}  // namespace zta
