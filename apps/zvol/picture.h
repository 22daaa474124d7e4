#pragma once
// What `zvol render` and `zvol view` show: the objects of a .vdb file or of
// an evaluated scene, a camera that frames them, and one picture drawn
// through the host's draw port.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/core/math.h"
#include "host/scene/basedocument.h"
#include "host/scene/baseobject.h"
#include "sceneeval.h"
#include "zvol.h"

namespace zta {
class BaseDraw;
}  // namespace zta

namespace zvol {

struct Shown {
  std::unique_ptr<zta::BaseDocument> doc;
  // A scene as it was read, never evaluated: what a changed file is compared with.
  std::unique_ptr<zta::BaseDocument> loaded;
  std::vector<GatheredObject> objects;
  bool scene = false;
  int64_t frame = 0;
};

// A .vdb file's grids (all, or the one `grid` names) as volume objects, or
// a scene evaluated at `frame` (its current frame without one).
Shown LoadShown(const Context& ctx, const std::string& path, const std::string& grid, std::optional<int64_t> frame);
// Evaluates the scene of `shown` again at `frame`; the objects that did not
// change keep their copies, and with them what a view made for them.
void EvaluateShown(const Context& ctx, Shown& shown, int64_t frame);
// The scene file read again and brought onto `shown`: only what changed is
// set anew, and only what depends on it evaluated again. A file whose objects
// were added, removed, renamed or moved is shown afresh. When the file does
// not read or evaluate, what is shown stays (an exception says why). A .vdb
// file is read again whole, its grid `grid` or all.
// Returns the paths of the objects the file changed (all, when shown afresh).
std::vector<std::string> ReloadShown(const Context& ctx, Shown& shown, const std::string& path,
                                     const std::string& grid);

// A camera in the frame of files (right-handed).
struct Camera {
  zta::Vector eye{0, 0, 5};
  zta::Vector target{0, 0, 0};
  zta::Vector up{0, 1, 0};
  double fovY = 0.5235987755982988;  // 30 degrees
};

// The box around everything shown, in the frame of files; false when nothing has extent.
bool ShownBounds(const Shown& shown, zta::Vector& min, zta::Vector& max);
// "auto", "front", "back", "left", "right", "top", "bottom" (framing what is
// shown from that side) or "EYE:TARGET" as two x,y,z in the frame of files.
Camera ParseCamera(const std::string& text, const Shown& shown, double aspect);
// A camera that frames the box from direction `dir` (towards the eye).
Camera FrameBox(const zta::Vector& min, const zta::Vector& max, const zta::Vector& dir, const zta::Vector& up,
                double aspect);

// Clears the view and draws every object shown; returns the paths (for a
// .vdb file, the grids' indices) of those whose drawing filled device
// buffers anew.
std::vector<std::string> DrawShown(zta::BaseDraw& bd, const Shown& shown, const Camera& camera);

}  // namespace zvol
