// zvol view: a live window on a .vdb file or a scene. The left button
// orbits, the middle or right one (or shift and left) pans, the wheel zooms,
// F frames everything, the arrow keys step through the frames of a scene,
// Esc closes. A file that changes on disk is read (a scene evaluated) again.
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <system_error>

#include "host/core/format.h"
#include "host/scene/basedocument.h"
#include "host/ui/basedraw.h"
#include "host/ui/pngfile.h"
#include "host/ui/viewwindow.h"
#include "picture.h"
#include "zvol.h"

namespace {

// A camera turning round its target.
struct Orbit {
  zta::Vector target;
  double distance = 5;
  double yaw = 0;    // round the up axis
  double pitch = 0;  // above the horizon
  double fovY = 0.5235987755982988;

  static Orbit From(const zvol::Camera& c) {
    Orbit o;
    o.target = c.target;
    const zta::Vector d = c.eye - c.target;
    o.distance = d.GetLength();
    o.pitch = std::asin(std::clamp(d.y / std::max(o.distance, 1e-12), -1.0, 1.0));
    o.yaw = std::atan2(d.x, d.z);
    o.fovY = c.fovY;
    return o;
  }
  zvol::Camera ToCamera() const {
    zvol::Camera c;
    const zta::Vector d{std::cos(pitch) * std::sin(yaw), std::sin(pitch), std::cos(pitch) * std::cos(yaw)};
    c.target = target;
    c.eye = target + d * distance;
    c.up = {0, 1, 0};
    c.fovY = fovY;
    return c;
  }
};

std::filesystem::file_time_type ModifiedTime(const std::string& path) {
  std::error_code ec;
  const auto t = std::filesystem::last_write_time(path, ec);
  return ec ? std::filesystem::file_time_type::min() : t;
}

// Files that only were touched need no reading: their bytes tell.
size_t ContentHash(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return std::hash<std::string>()(bytes);
}

std::string Join(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string input;
    std::string size = "1024x768";
    std::optional<int64_t> frame;
    std::string grid;
    std::string snapshot;
  };
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "a .vdb file, or a scene (.zscene or .json)")->required();
  app.add_option("--size", o->size, "the window's size, WxH")->capture_default_str();
  app.add_option("--frame", o->frame, "the frame of a scene to start at (default: the scene's current frame)");
  app.add_option("--grid", o->grid, "show only this grid of a .vdb file (a name or an index)");
  app.add_option("--snapshot", o->snapshot, "also write every picture the window shows to this PNG file");

  return [o](const zvol::Context& ctx) {
    int width = 0, height = 0;
    char rest = 0;
    if (std::sscanf(o->size.c_str(), "%dx%d%c", &width, &height, &rest) != 2 || width < 1 || height < 1 ||
        width > 16384 || height > 16384)
      throw CLI::ValidationError("--size", "expected WxH between 1x1 and 16384x16384, got '" + o->size + "'");
    if (!o->snapshot.empty()) {
      if (std::filesystem::path(o->snapshot).extension() != ".png")
        throw CLI::ValidationError("--snapshot", "'" + o->snapshot + "' is not a .png file");
      zvol::CheckOutputPath(o->snapshot);
    }
    zvol::Shown shown = zvol::LoadShown(ctx, o->input, o->grid, o->frame);
    int64_t frame = shown.scene ? (o->frame ? *o->frame : shown.doc->GetTime().GetFrame(shown.doc->GetFps())) : 0;
    auto window = zvol::Take(zta::ViewWindow::Create(width, height, "zvol view " + o->input));
    zta::BaseDraw bd(window->GetWidth(), window->GetHeight());
    auto aspect = [&] { return double(window->GetWidth()) / double(std::max(window->GetHeight(), 1)); };
    Orbit orbit = Orbit::From(zvol::ParseCamera("auto", shown, aspect()));
    auto modified = ModifiedTime(o->input);
    size_t contentHash = ContentHash(o->input);
    auto lastCheck = std::chrono::steady_clock::now();
    bool redraw = true;
    while (!window->ShouldClose()) {
      ctx.CheckInterrupted();
      const zta::ViewInput in = window->Wait(0.1);
      bool quit = false;
      for (zta::VIEWKEY key : in.keys) {
        switch (key) {
          case zta::VIEWKEY::QUIT: quit = true; break;
          case zta::VIEWKEY::FRAME_ALL: {
            const Orbit framed = Orbit::From(zvol::ParseCamera("auto", shown, aspect()));
            orbit.target = framed.target;
            orbit.distance = framed.distance;
            break;
          }
          case zta::VIEWKEY::NEXT_FRAME:
          case zta::VIEWKEY::PREVIOUS_FRAME:
            if (!shown.scene) break;
          {
            const int64_t next = frame + (key == zta::VIEWKEY::NEXT_FRAME ? 1 : -1);
            try {
              zvol::EvaluateShown(ctx, shown, next);
              frame = next;
              ctx.Say(zta::FormatString("frame @", frame));
            } catch (const std::exception& e) {
              // The last frame that evaluated stays on screen.
              ctx.Say(zta::FormatString("frame @ does not evaluate: @", next, e.what()));
            }
            break;
          }
          case zta::VIEWKEY::NONE: break;
        }
      }
      if (quit) break;
      if (in.Any()) redraw = true;
      orbit.yaw -= in.orbitX * 0.01;
      orbit.pitch = std::clamp(orbit.pitch + in.orbitY * 0.01, -1.55, 1.55);
      orbit.distance *= std::pow(0.9, in.zoom);
      if (in.panX || in.panY) {
        const zvol::Camera c = orbit.ToCamera();
        const zta::Vector f = (c.target - c.eye).GetNormalized();
        const zta::Vector r = zta::Cross(f, c.up).GetNormalized();
        const zta::Vector u = zta::Cross(r, f);
        const double perPixel = 2.0 * orbit.distance * std::tan(orbit.fovY * 0.5) / std::max(window->GetHeight(), 1);
        orbit.target = orbit.target - r * (in.panX * perPixel) + u * (in.panY * perPixel);
      }
      // The input is read again when its file changed on disk; a file that
      // was only touched is drawn again without reading, and one being
      // written that does not read yet keeps the last picture.
      const auto now = std::chrono::steady_clock::now();
      if (now - lastCheck > std::chrono::milliseconds(250)) {
        lastCheck = now;
        const auto t = ModifiedTime(o->input);
        if (t != modified) {
          modified = t;
          redraw = true;
          const size_t hash = ContentHash(o->input);
          if (hash != contentHash) {
            try {
              const std::vector<std::string> changed = zvol::ReloadShown(ctx, shown, o->input, o->grid);
              contentHash = hash;
              ctx.Say("read " + o->input + " again: " + (changed.empty() ? "nothing changed" : "changed " + Join(changed)));
            } catch (const std::exception& e) {
              ctx.Say(std::string("cannot read the changed file: ") + e.what());
            }
          }
        }
      }
      if (!redraw) continue;
      redraw = false;
      bd.SetSize(window->GetWidth(), window->GetHeight());
      const std::vector<std::string> filled = zvol::DrawShown(bd, shown, orbit.ToCamera());
      if (!filled.empty()) ctx.Say("display buffers filled: " + Join(filled));
      if (!o->snapshot.empty()) {
        zta::Picture picture;
        picture.width = bd.GetWidth();
        picture.height = bd.GetHeight();
        picture.rgba = bd.ReadPixels();
        zvol::Check(zta::WritePng(o->snapshot, picture));
      }
      window->Show();
    }
    shown.objects.clear();
    return 0;
  };
}

}  // namespace

ZVOL_VERB("view", "open a window on a .vdb file or a scene; a scene is read again when its file changes", Setup);
