// The draw port on OpenGL 3.3 core. Every GL call of the system is in this
// file and in the two context files beside it.
#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <set>

#include "host/objects/phongtag.h"
#include "host/objects/polygonobject.h"
#include "host/scene/hosttypes.h"
#include "host/ui/basedraw.h"
#include "host/ui/shaderbuilder.h"

namespace zta {

namespace {

// Column-major 4x4, as GL takes it.
struct M4 {
  double m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  double& at(int r, int c) { return m[c * 4 + r]; }
  double at(int r, int c) const { return m[c * 4 + r]; }
};

M4 Mul(const M4& a, const M4& b) {
  M4 r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      double s = 0;
      for (int k = 0; k < 4; ++k) s += a.at(i, k) * b.at(k, j);
      r.at(i, j) = s;
    }
  return r;
}

M4 FromMatrix(const Matrix& x) {
  M4 r;
  const Vector* cols[4] = {&x.v1, &x.v2, &x.v3, &x.off};
  for (int c = 0; c < 4; ++c) {
    r.at(0, c) = cols[c]->x;
    r.at(1, c) = cols[c]->y;
    r.at(2, c) = cols[c]->z;
    r.at(3, c) = c == 3 ? 1.0 : 0.0;
  }
  return r;
}

void ToFloat(const M4& a, float* out) {
  for (int i = 0; i < 16; ++i) out[i] = float(a.m[i]);
}

GLuint CompileStage(GLenum type, const std::string& text, std::string& log) {
  const GLuint s = glCreateShader(type);
  const char* src = text.c_str();
  glShaderSource(s, 1, &src, nullptr);
  glCompileShader(s);
  GLint ok = 0;
  glGetShaderiv(s, GL_COMPILE_STATUS, &ok);
  if (!ok) {
    char buf[4096] = {};
    glGetShaderInfoLog(s, sizeof(buf) - 1, nullptr, buf);
    log += buf;
    glDeleteShader(s);
    return 0;
  }
  return s;
}

// Links the stages; 0 with the words in `log` when any stage fails.
GLuint LinkProgram(const std::string& vs, const std::string& gs, const std::string& fs, std::string& log) {
  const GLuint v = CompileStage(GL_VERTEX_SHADER, vs, log);
  const GLuint g = gs.empty() ? 0 : CompileStage(GL_GEOMETRY_SHADER, gs, log);
  const GLuint f = CompileStage(GL_FRAGMENT_SHADER, fs, log);
  GLuint p = 0;
  if (v && f && (gs.empty() || g)) {
    p = glCreateProgram();
    glAttachShader(p, v);
    if (g) glAttachShader(p, g);
    glAttachShader(p, f);
    glLinkProgram(p);
    GLint ok = 0;
    glGetProgramiv(p, GL_LINK_STATUS, &ok);
    if (!ok) {
      char buf[4096] = {};
      glGetProgramInfoLog(p, sizeof(buf) - 1, nullptr, buf);
      log += buf;
      glDeleteProgram(p);
      p = 0;
    }
  }
  if (v) glDeleteShader(v);
  if (g) glDeleteShader(g);
  if (f) glDeleteShader(f);
  return p;
}

const char* const kPlainVertex =
    "#version 330 core\n"
    "layout(location = 0) in vec3 position;\n"
    "layout(location = 1) in vec3 normal;\n"
    "uniform mat4 transmatrix;\n"
    "uniform mat3 objectmatrix_n;\n"
    "out vec3 wnormal;\n"
    "void main() { gl_Position = transmatrix * vec4(position, 1.0); wnormal = objectmatrix_n * normal; }\n";
const char* const kLineFragment =
    "#version 330 core\n"
    "uniform vec3 pen;\n"
    "in vec3 wnormal;\n"
    "out vec4 fragcolor;\n"
    "void main() { fragcolor = vec4(pen, 1.0); }\n";
// Two sides lit alike: meshes from outside files may face either way.
const char* const kShadedFragment =
    "#version 330 core\n"
    "uniform vec3 pen;\n"
    "uniform vec3 viewdir;\n"
    "in vec3 wnormal;\n"
    "out vec4 fragcolor;\n"
    "void main() {\n"
    "  vec3 n = normalize(wnormal);\n"
    "  float d = abs(dot(n, normalize(viewdir)));\n"
    "  fragcolor = vec4(pen * (0.15 + 0.85 * d), 1.0);\n"
    "}\n";

std::mutex g_viewsLock;
std::set<const BaseDraw*> g_views;

}  // namespace

bool BaseDraw::IsAlive(const BaseDraw* bd) {
  std::lock_guard lock(g_viewsLock);
  return g_views.count(bd) != 0;
}

struct BaseDraw::Device {
  GLuint vao = 0;
  GLuint scratch = 0;  // vertices of boxes and meshes
  GLuint lineProgram = 0;
  GLuint shadedProgram = 0;
  M4 viewProj;
};

BaseDraw::BaseDraw(Int32 width, Int32 height) : device_(std::make_unique<Device>()), width_(width), height_(height) {
  glGenVertexArrays(1, &device_->vao);
  glGenBuffers(1, &device_->scratch);
  std::string log;
  device_->lineProgram = LinkProgram(kPlainVertex, {}, kLineFragment, log);
  device_->shadedProgram = LinkProgram(kPlainVertex, {}, kShadedFragment, log);
  glEnable(GL_DEPTH_TEST);
  glViewport(0, 0, width, height);
  std::lock_guard lock(g_viewsLock);
  g_views.insert(this);
}

BaseDraw::~BaseDraw() {
  {
    std::lock_guard lock(g_viewsLock);
    g_views.erase(this);
  }
  glDeleteProgram(device_->lineProgram);
  glDeleteProgram(device_->shadedProgram);
  glDeleteBuffers(1, &device_->scratch);
  glDeleteVertexArrays(1, &device_->vao);
}

void BaseDraw::SetSize(Int32 width, Int32 height) {
  width_ = width;
  height_ = height;
  glViewport(0, 0, width, height);
}

void BaseDraw::SetView(const Vector& eye, const Vector& target, const Vector& up, double fovY, double nearClip,
                       double farClip, bool mirror) {
  const Vector s{1.0, 1.0, mirror ? -1.0 : 1.0};
  auto flip = [&](const Vector& v) { return Vector{v.x * s.x, v.y * s.y, v.z * s.z}; };
  const Vector e = flip(eye), t = flip(target), u0 = flip(up);
  const Vector f = (t - e).GetNormalized();
  Vector r = Cross(f, u0);
  if (r.GetLength() < 1e-12) r = Cross(f, Vector{0, 0, 1});
  r = r.GetNormalized();
  const Vector u = Cross(r, f);
  M4 view;
  const Vector rows[3] = {r, u, f * -1.0};
  for (int i = 0; i < 3; ++i) {
    view.at(i, 0) = rows[i].x;
    view.at(i, 1) = rows[i].y;
    view.at(i, 2) = rows[i].z;
    view.at(i, 3) = -Dot(rows[i], e);
  }
  M4 mirrorM;
  mirrorM.at(2, 2) = s.z;
  M4 proj;
  const double aspect = double(width_) / double(std::max(height_, 1));
  const double fy = 1.0 / std::tan(fovY * 0.5);
  proj.at(0, 0) = fy / aspect;
  proj.at(1, 1) = fy;
  proj.at(2, 2) = (farClip + nearClip) / (nearClip - farClip);
  proj.at(2, 3) = 2.0 * farClip * nearClip / (nearClip - farClip);
  proj.at(3, 2) = -1.0;
  proj.at(3, 3) = 0.0;
  device_->viewProj = Mul(proj, Mul(view, mirrorM));
  ToFloat(device_->viewProj, viewProj_);
  eye_ = eye;
  fovY_ = fovY;
  right_ = flip(r);
  up_ = flip(u);
}

double BaseDraw::GetPixelsPerUnit(const Vector& p) const {
  const double distance = std::max((p - eye_).GetLength(), 1e-12);
  return double(height_) * 0.5 / std::tan(fovY_ * 0.5) / distance;
}

void BaseDraw::Clear() {
  glClearColor(float(background_.x), float(background_.y), float(background_.z), 1.0f);
  glDepthMask(GL_TRUE);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

namespace {

// The standard uniforms of a program for the object matrix `mg`.
void SetStandardUniforms(GLuint p, const M4& viewProj, const Matrix& mg, const Vector& eye) {
  float t[16];
  ToFloat(Mul(viewProj, FromMatrix(mg)), t);
  glUniformMatrix4fv(glGetUniformLocation(p, "transmatrix"), 1, GL_FALSE, t);
  glUniform3f(glGetUniformLocation(p, "eyeposition"), float(eye.x), float(eye.y), float(eye.z));
  glUniform3f(glGetUniformLocation(p, "objectmatrix_p"), float(mg.off.x), float(mg.off.y), float(mg.off.z));
  const float r[9] = {float(mg.v1.x), float(mg.v1.y), float(mg.v1.z), float(mg.v2.x), float(mg.v2.y),
                      float(mg.v2.z), float(mg.v3.x), float(mg.v3.y), float(mg.v3.z)};
  glUniformMatrix3fv(glGetUniformLocation(p, "objectmatrix_r"), 1, GL_FALSE, r);
  // The normal matrix is the inverse transpose: columns are the rows of the inverse.
  const Matrix inv = Matrix{Vector(0.0), mg.v1, mg.v2, mg.v3}.GetInverse();
  const float n[9] = {float(inv.v1.x), float(inv.v2.x), float(inv.v3.x), float(inv.v1.y), float(inv.v2.y),
                      float(inv.v3.y), float(inv.v1.z), float(inv.v2.z), float(inv.v3.z)};
  glUniformMatrix3fv(glGetUniformLocation(p, "objectmatrix_n"), 1, GL_FALSE, n);
}

}  // namespace

void BaseDraw::DrawBox(const Vector& min, const Vector& max) {
  float v[24 * 6];
  int k = 0;
  auto corner = [&](int i) { return Vector{i & 1 ? max.x : min.x, i & 2 ? max.y : min.y, i & 4 ? max.z : min.z}; };
  for (int a = 0; a < 8; ++a)
    for (int bit = 1; bit < 8; bit <<= 1) {
      if (a & bit) continue;
      for (const Vector& p : {corner(a), corner(a | bit)}) {
        v[k++] = float(p.x), v[k++] = float(p.y), v[k++] = float(p.z);
        v[k++] = 0, v[k++] = 0, v[k++] = 1;
      }
    }
  const GLuint p = device_->lineProgram;
  glUseProgram(p);
  SetStandardUniforms(p, device_->viewProj, matrix_, eye_);
  glUniform3f(glGetUniformLocation(p, "pen"), float(pen_.x), float(pen_.y), float(pen_.z));
  glBindVertexArray(device_->vao);
  glBindBuffer(GL_ARRAY_BUFFER, device_->scratch);
  glBufferData(GL_ARRAY_BUFFER, sizeof(float) * k, v, GL_STREAM_DRAW);
  glEnableVertexAttribArray(0);
  glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 24, reinterpret_cast<void*>(0));
  glEnableVertexAttribArray(1);
  glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 24, reinterpret_cast<void*>(12));
  glDrawArrays(GL_LINES, 0, k / 6);
}

void BaseDraw::DrawPolygonObject(const PolygonObject& op) {
  const Int32 pointCount = op.GetPointCount();
  const Vector* points = op.GetPointR();
  const CPolygon* polys = op.GetPolygonR();
  if (pointCount <= 0 || !points || !polys) return;
  auto valid = [&](const CPolygon& c) {
    return c.a >= 0 && c.a < pointCount && c.b >= 0 && c.b < pointCount && c.c >= 0 && c.c < pointCount &&
           c.d >= 0 && c.d < pointCount;
  };
  // As in the host's viewport: flat without a Phong tag, smooth up to the
  // tag's angle with one. A corner takes the normals of the polygons round
  // its point that lie within the angle of its own polygon's.
  const auto* phong = static_cast<const PhongTag*>(op.GetTag(HOST_TAG_PHONG));
  const double limit = phong ? std::cos(std::min(phong->GetSmoothingAngle(), 3.14159265358979)) : 2.0;
  const Int32 polyCount = op.GetPolygonCount();
  std::vector<Vector> faceNormals(size_t(polyCount), Vector(0.0));
  std::vector<std::vector<Int32>> around(phong ? size_t(pointCount) : 0);
  for (Int32 i = 0; i < polyCount; ++i) {
    const CPolygon& c = polys[i];
    if (!valid(c)) continue;
    const Vector n = Cross(points[c.c] - points[c.a], points[c.b] - points[c.a]) +
                     (c.IsTriangle() ? Vector(0.0) : Cross(points[c.d] - points[c.a], points[c.c] - points[c.a]));
    faceNormals[size_t(i)] = n.GetNormalized();
    if (phong)
      for (Int32 j = 0; j < (c.IsTriangle() ? 3 : 4); ++j) around[size_t(c[j])].push_back(i);
  }
  std::vector<float> v;
  v.reserve(size_t(polyCount) * 36);
  auto put = [&](Int32 poly, Int32 point) {
    const Vector& own = faceNormals[size_t(poly)];
    Vector n = own;
    if (phong) {
      n = Vector(0.0);
      for (Int32 other : around[size_t(point)])
        if (Dot(faceNormals[size_t(other)], own) >= limit) n += faceNormals[size_t(other)];
      n = n.GetNormalized();
    }
    const Vector& p = points[point];
    v.insert(v.end(), {float(p.x), float(p.y), float(p.z), float(n.x), float(n.y), float(n.z)});
  };
  for (Int32 i = 0; i < polyCount; ++i) {
    const CPolygon& c = polys[i];
    if (!valid(c)) continue;
    put(i, c.a), put(i, c.b), put(i, c.c);
    if (!c.IsTriangle()) put(i, c.a), put(i, c.c), put(i, c.d);
  }
  if (v.empty()) return;
  const GLuint p = device_->shadedProgram;
  glUseProgram(p);
  SetStandardUniforms(p, device_->viewProj, matrix_, eye_);
  glUniform3f(glGetUniformLocation(p, "pen"), float(pen_.x), float(pen_.y), float(pen_.z));
  const Vector mid = matrix_.off;
  const Vector dir = eye_ - mid;
  glUniform3f(glGetUniformLocation(p, "viewdir"), float(dir.x), float(dir.y), float(dir.z));
  glBindVertexArray(device_->vao);
  glBindBuffer(GL_ARRAY_BUFFER, device_->scratch);
  glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(v.size() * sizeof(float)), v.data(), GL_STREAM_DRAW);
  glEnableVertexAttribArray(0);
  glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 24, reinterpret_cast<void*>(0));
  glEnableVertexAttribArray(1);
  glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 24, reinterpret_cast<void*>(12));
  glDrawArrays(GL_TRIANGLES, 0, GLsizei(v.size() / 6));
}

DrawBuffer BaseDraw::AllocBuffer(Int64 bytes) {
  if (bytes <= 0) return {};
  while (glGetError() != GL_NO_ERROR) {
  }
  GLuint id = 0;
  glGenBuffers(1, &id);
  glBindBuffer(GL_ARRAY_BUFFER, id);
  glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(bytes), nullptr, GL_STATIC_DRAW);
  if (glGetError() != GL_NO_ERROR) {
    glDeleteBuffers(1, &id);
    return {};
  }
  return {id, bytes};
}

void BaseDraw::FreeBuffer(DrawBuffer& buffer) {
  if (buffer.id) glDeleteBuffers(1, &buffer.id);
  buffer = {};
}

void* BaseDraw::MapBuffer(const DrawBuffer& buffer) {
  if (!buffer) return nullptr;
  ++bufferFills_;
  glBindBuffer(GL_ARRAY_BUFFER, buffer.id);
  return glMapBufferRange(GL_ARRAY_BUFFER, 0, GLsizeiptr(buffer.size), GL_MAP_WRITE_BIT | GL_MAP_INVALIDATE_BUFFER_BIT);
}

void BaseDraw::UnmapBuffer(const DrawBuffer& buffer) {
  if (!buffer) return;
  glBindBuffer(GL_ARRAY_BUFFER, buffer.id);
  glUnmapBuffer(GL_ARRAY_BUFFER);
}

DrawProgram BaseDraw::CompileShader(const ShaderBuilder& builder) {
  DrawProgram program;
  program.id = LinkProgram(builder.GetSource(SHADERSTAGE::VERTEX), builder.GetSource(SHADERSTAGE::GEOMETRY),
                           builder.GetSource(SHADERSTAGE::FRAGMENT), program.log);
  program.failed = program.id == 0;
  return program;
}

void BaseDraw::FreeProgram(DrawProgram& program) {
  if (program.id) glDeleteProgram(program.id);
  program = {};
}

bool BaseDraw::DrawBuffered(const DrawProgram& program, const ShaderBuilder& layout, const DrawBuffer& buffer,
                            DRAWPRIMITIVE primitive, Int64 count, const std::vector<DrawLight>& lights,
                            const std::vector<DrawUniform>& uniforms, DRAWBLEND blend, float blendWeight) {
  if (program.failed || !program.id || !buffer || count <= 0) return false;
  const GLuint p = program.id;
  glUseProgram(p);
  SetStandardUniforms(p, device_->viewProj, matrix_, eye_);
  if (layout.HasLights()) {
    const Int32 n = std::min<Int32>(Int32(lights.size()), ShaderBuilder::kMaxLights);
    float dirs[3 * ShaderBuilder::kMaxLights] = {}, colors[4 * ShaderBuilder::kMaxLights] = {};
    for (Int32 i = 0; i < n; ++i) {
      // The loop's L points towards the light.
      const Vector d = lights[size_t(i)].direction.GetNormalized() * -1.0;
      dirs[3 * i] = float(d.x), dirs[3 * i + 1] = float(d.y), dirs[3 * i + 2] = float(d.z);
      const Vector& c = lights[size_t(i)].color;
      colors[4 * i] = float(c.x), colors[4 * i + 1] = float(c.y), colors[4 * i + 2] = float(c.z), colors[4 * i + 3] = 1;
    }
    glUniform1i(glGetUniformLocation(p, "lightcount"), n);
    if (n > 0) {
      glUniform3fv(glGetUniformLocation(p, "lightdir"), n, dirs);
      glUniform4fv(glGetUniformLocation(p, "lightcolor"), n, colors);
    }
  }
  for (const DrawUniform& u : uniforms) {
    const GLint loc = glGetUniformLocation(p, u.name.c_str());
    if (loc < 0) continue;
    switch (u.size) {
      case 1: glUniform1f(loc, u.value[0]); break;
      case 2: glUniform2f(loc, u.value[0], u.value[1]); break;
      case 3: glUniform3f(loc, u.value[0], u.value[1], u.value[2]); break;
      default: glUniform4f(loc, u.value[0], u.value[1], u.value[2], u.value[3]); break;
    }
  }
  glBindVertexArray(device_->vao);
  glBindBuffer(GL_ARRAY_BUFFER, buffer.id);
  const auto& inputs = layout.GetInputs();
  for (size_t i = 0; i < inputs.size(); ++i) {
    glEnableVertexAttribArray(GLuint(i));
    glVertexAttribPointer(GLuint(i), inputs[i].components, GLenum(inputs[i].dataType), GL_FALSE, inputs[i].stride,
                          reinterpret_cast<void*>(intptr_t(inputs[i].offset)));
  }
  if (blend == DRAWBLEND::ADD) {
    glEnable(GL_BLEND);
    glBlendColor(0, 0, 0, blendWeight);
    glBlendFunc(GL_CONSTANT_ALPHA, GL_ONE);
    glDepthMask(GL_FALSE);
  }
  glPointSize(primitive == DRAWPRIMITIVE::POINTS ? std::max(pointSize_, 1.0f) : 1.0f);
  glDrawArrays(primitive == DRAWPRIMITIVE::LINES ? GL_LINES : GL_POINTS, 0, GLsizei(count));
  if (blend == DRAWBLEND::ADD) {
    glDisable(GL_BLEND);
    glDepthMask(GL_TRUE);
  }
  for (size_t i = 0; i < inputs.size(); ++i) glDisableVertexAttribArray(GLuint(i));
  return glGetError() == GL_NO_ERROR;
}

std::vector<uint8_t> BaseDraw::ReadPixels() const {
  const size_t row = size_t(width_) * 4;
  std::vector<uint8_t> pixels(row * size_t(height_));
  glFinish();
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  glReadPixels(0, 0, width_, height_, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
  // GL's first row is the bottom one.
  std::vector<uint8_t> tmp(row);
  for (Int32 y = 0; y < height_ / 2; ++y) {
    uint8_t* a = pixels.data() + size_t(y) * row;
    uint8_t* b = pixels.data() + size_t(height_ - 1 - y) * row;
    std::memcpy(tmp.data(), a, row);
    std::memcpy(a, b, row);
    std::memcpy(b, tmp.data(), row);
  }
  return pixels;
}

}  // namespace zta
