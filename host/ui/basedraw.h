#pragma once
// A view of the scene and its draw port: the camera, the view's display
// settings and lights, and the operations through which objects draw
// themselves (buffers on the graphics device, programs from the shader
// builder, a buffered draw with a count). The port is the only code that
// calls GL; it works on the GL context current when it was made
// (glcontext.h). No GL header here.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/core/math.h"
#include "host/scene/basecontainer.h"

namespace zta {

class BaseDocument;
class BaseObject;
class PolygonObject;
class ShaderBuilder;

// Ids of the view's display settings (GetSettings).
enum : Int32 {
  BASEDRAW_DISPLAYMODE = 1000,  // int32: how objects are shaded, DISPLAYMODE_*
  BASEDRAW_VECTORMODE = 1016,   // int32: how vector grids are shown
};
enum : Int32 {
  DISPLAYMODE_GOURAUD = 0,
  DISPLAYMODE_QUICK = 1,
  DISPLAYMODE_WIRE = 2,
  DISPLAYMODE_ISOPARMS = 3,
  DISPLAYMODE_BOX = 11,
  DISPLAYMODE_HIDDENLINE = 14,
  DISPLAYMODE_NOSHADING = 15,
  DISPLAYMODE_SKELETON = 1100,
};

// The draw passes the host runs for every object, in this order.
enum : Int32 { DRAWPASS_OBJECT = 0, DRAWPASS_XRAY = 3 };

enum class DRAWPRIMITIVE { POINTS, LINES, GEOMETRY_POINTS };
// How fragments meet the picture: replace behind a depth test, or add up
// without writing depth (what glows, such as fog).
enum class DRAWBLEND { OPAQUE, ADD };

struct DrawBuffer {
  UInt32 id = 0;
  Int64 size = 0;
  explicit operator bool() const { return id != 0; }
};

struct DrawProgram {
  UInt32 id = 0;
  bool failed = true;
  std::string log;
};

// A light of the view: the direction it shines along and its colour, in
// the scene's frame.
struct DrawLight {
  Vector direction;
  Vector color{1.0, 1.0, 1.0};
};

// A uniform of a plug-in's program, up to four floats.
struct DrawUniform {
  std::string name;
  Int32 size = 4;
  float value[4] = {0, 0, 0, 0};
};

class BaseDraw {
 public:
  // Needs a current GL context of version 3.3 core or later.
  BaseDraw(Int32 width, Int32 height);
  ~BaseDraw();
  BaseDraw(const BaseDraw&) = delete;
  BaseDraw& operator=(const BaseDraw&) = delete;

  // Whether `bd` is a view that still exists: what a plug-in asks before it
  // frees buffers it made in a view that may have gone away.
  static bool IsAlive(const BaseDraw* bd);

  Int32 GetWidth() const { return width_; }
  Int32 GetHeight() const { return height_; }
  void SetSize(Int32 width, Int32 height);

  // The camera, in the scene's frame, with a vertical field of view in
  // radians. With `mirror` the picture shows the scene as outside files see
  // it, the third axis flipped (the scene is left-handed).
  void SetView(const Vector& eye, const Vector& target, const Vector& up, double fovY, double nearClip,
               double farClip, bool mirror);
  const Vector& GetEyePosition() const { return eye_; }
  // The camera's right and up directions in the scene's frame, unit length.
  const Vector& GetCameraRight() const { return right_; }
  const Vector& GetCameraUp() const { return up_; }

  // How many pixels one world unit covers at `p` (scene frame), facing the camera.
  double GetPixelsPerUnit(const Vector& p) const;
  // The size of points drawn as POINTS, in pixels.
  void SetPointSize(float pixels) { pointSize_ = pixels; }

  BaseContainer& GetSettings() { return settings_; }
  const BaseContainer& GetSettings() const { return settings_; }
  // The view's own lights; none means the plug-in's defaults.
  const std::vector<DrawLight>& GetLights() const { return lights_; }
  void SetLights(std::vector<DrawLight> lights) { lights_ = std::move(lights); }
  void SetBackground(const Vector& color) { background_ = color; }
  // Clears colour and depth to start a picture.
  void Clear();

  // The matrix of what is drawn next (its global matrix).
  void SetMatrix(const Matrix& mg) { matrix_ = mg; }
  const Matrix& GetMatrix() const { return matrix_; }
  void SetPen(const Vector& color) { pen_ = color; }
  // The twelve edges of a box in the current matrix, in the pen's colour.
  void DrawBox(const Vector& min, const Vector& max);
  // A polygon object, shaded by its smoothed point normals, in the current
  // matrix and the pen's colour.
  void DrawPolygonObject(const PolygonObject& op);

  // Buffers on the device: null when the device has no room.
  DrawBuffer AllocBuffer(Int64 bytes);
  void FreeBuffer(DrawBuffer& buffer);
  // Null when the buffer cannot be mapped for writing.
  void* MapBuffer(const DrawBuffer& buffer);
  void UnmapBuffer(const DrawBuffer& buffer);
  // How many times a buffer of this view was mapped for writing: what tells
  // a viewer whose buffers a draw filled again.
  Int64 GetBufferFills() const { return bufferFills_; }

  // Compiles and links the builder's stages. The result's `failed` is the
  // host's test of a build, with the compiler's words in `log`.
  DrawProgram CompileShader(const ShaderBuilder& builder);
  void FreeProgram(DrawProgram& program);

  // Draws `count` vertices of `buffer` laid out as the builder's inputs say,
  // with the standard uniforms of the current matrix and view, the lights of
  // the loop (at most ShaderBuilder::kMaxLights), and the plug-in's uniforms.
  bool DrawBuffered(const DrawProgram& program, const ShaderBuilder& layout, const DrawBuffer& buffer,
                    DRAWPRIMITIVE primitive, Int64 count, const std::vector<DrawLight>& lights,
                    const std::vector<DrawUniform>& uniforms, DRAWBLEND blend = DRAWBLEND::OPAQUE,
                    float blendWeight = 1.0f);

  // The picture drawn so far, RGBA with 8 bits a channel, top row first.
  std::vector<uint8_t> ReadPixels() const;

 private:
  struct Device;
  std::unique_ptr<Device> device_;
  Int32 width_;
  Int32 height_;
  Vector eye_{0, 0, -5};
  Vector right_{1, 0, 0};
  Vector up_{0, 1, 0};
  float viewProj_[16] = {};
  BaseContainer settings_;
  std::vector<DrawLight> lights_;
  Vector background_{0.22, 0.24, 0.28};
  Matrix matrix_;
  Vector pen_{1, 1, 1};
  double fovY_ = 0.5;
  float pointSize_ = 1.0f;
  Int64 bufferFills_ = 0;
};

// What an object's DrawObject gets beside the view: the document and the
// object's global matrix.
class BaseDrawHelp {
 public:
  BaseDrawHelp(BaseDraw* bd, BaseDocument* doc) : bd_(bd), doc_(doc) {}
  BaseDocument* GetDocument() const { return doc_; }
  BaseDraw* GetBaseDraw() const { return bd_; }
  void SetMg(const Matrix& mg) { mg_ = mg; }
  const Matrix& GetMg() const { return mg_; }

 private:
  BaseDraw* bd_;
  BaseDocument* doc_;
  Matrix mg_;
};

}  // namespace zta
