// zvol render: a picture of a .vdb file or a scene, drawn offscreen through
// the host's draw port (EGL; Mesa's software renderer needs no display).
#include <cstdio>
#include <filesystem>
#include <optional>

#include "host/ui/basedraw.h"
#include "host/ui/glcontext.h"
#include "host/ui/pngfile.h"
#include "picture.h"
#include "zvol.h"

namespace {

zvol::VerbRun Setup(CLI::App& app) {
  struct Options {
    std::string input;
    std::string output;
    std::string size = "800x600";
    std::optional<int64_t> frame;
    std::string camera = "auto";
    std::string grid;
  };
  auto o = std::make_shared<Options>();
  app.add_option("input", o->input, "a .vdb file, or a scene (.zscene or .json)")->required();
  app.add_option("-o,--output", o->output, "the PNG file to write")->required();
  app.add_option("--size", o->size, "the picture's size, WxH")->capture_default_str();
  app.add_option("--frame", o->frame, "the frame of a scene to evaluate (default: the scene's current frame)");
  app.add_option("--camera", o->camera,
                 "auto, front, back, left, right, top, bottom (framing everything from that side), or EYE:TARGET "
                 "as x,y,z:x,y,z; the field of view is 30 degrees high")
      ->capture_default_str();
  app.add_option("--grid", o->grid, "draw only this grid of a .vdb file (a name or an index)");

  return [o](const zvol::Context& ctx) {
    int width = 0, height = 0;
    char rest = 0;
    if (std::sscanf(o->size.c_str(), "%dx%d%c", &width, &height, &rest) != 2 || width < 1 || height < 1 ||
        width > 16384 || height > 16384)
      throw CLI::ValidationError("--size", "expected WxH between 1x1 and 16384x16384, got '" + o->size + "'");
    if (std::filesystem::path(o->output).extension() != ".png")
      throw CLI::ValidationError("--output", "'" + o->output + "' is not a .png file");
    zvol::CheckOutputPath(o->output);
    zvol::Shown shown = zvol::LoadShown(ctx, o->input, o->grid, o->frame);
    const zvol::Camera camera = zvol::ParseCamera(o->camera, shown, double(width) / double(height));
    auto context = zvol::Take(zta::OffscreenContext::Create(width, height));
    zta::Picture picture;
    {
      zvol::Step step(ctx, "draw");
      zta::BaseDraw bd(width, height);
      zvol::DrawShown(bd, shown, camera);
      picture.width = width;
      picture.height = height;
      picture.rgba = bd.ReadPixels();
      // The objects free their buffers while the view and its context live.
      shown.objects.clear();
    }
    {
      zvol::Step step(ctx, "write " + std::filesystem::path(o->output).filename().string());
      zvol::Check(zta::WritePng(o->output, picture));
    }
    ctx.Say("wrote " + o->output);
    return 0;
  };
}

}  // namespace

ZVOL_VERB("render", "draw a .vdb file or a scene into a PNG picture, without a display", Setup);
