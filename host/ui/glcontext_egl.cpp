#define GL_GLEXT_PROTOTYPES 1
#define EGL_EGLEXT_PROTOTYPES 1
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <cstring>
#include <string>

#include "host/ui/glcontext.h"

namespace zta {

struct OffscreenContext::State {
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  GLuint framebuffer = 0;
  GLuint color = 0;
  GLuint depth = 0;
};

namespace {

bool HasExtension(const char* list, const char* name) {
  if (!list) return false;
  const size_t n = std::strlen(name);
  for (const char* p = list; (p = std::strstr(p, name)); p += n)
    if ((p == list || p[-1] == ' ') && (p[n] == ' ' || p[n] == 0)) return true;
  return false;
}

// A display that needs no window system: Mesa's surfaceless platform first,
// then the default display.
EGLDisplay OpenDisplay() {
  const char* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  if (HasExtension(clientExtensions, "EGL_MESA_platform_surfaceless")) {
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (getPlatformDisplay) {
      EGLDisplay d = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
      if (d != EGL_NO_DISPLAY) return d;
    }
  }
  return eglGetDisplay(EGL_DEFAULT_DISPLAY);
}

// One display for the life of the process, never terminated: terminating it
// unloads Mesa's driver (and LLVM with it), which the next picture would load
// again, and a terminate while another thread draws would pull the display
// from under that thread's context.
EGLDisplay SharedDisplay() {
  static const EGLDisplay display = [] {
    EGLDisplay d = OpenDisplay();
    EGLint major = 0, minor = 0;
    if (d == EGL_NO_DISPLAY || !eglInitialize(d, &major, &minor)) return EGL_NO_DISPLAY;
    return d;
  }();
  return display;
}

}  // namespace

Result<std::unique_ptr<OffscreenContext>> OffscreenContext::Create(Int32 width, Int32 height) {
  if (width <= 0 || height <= 0 || width > 16384 || height > 16384)
    return IllegalArgumentError("picture size must be between 1 and 16384 pixels a side");
  std::unique_ptr<OffscreenContext> ctx(new OffscreenContext());
  ctx->state_ = std::make_unique<State>();
  State& s = *ctx->state_;
  s.display = SharedDisplay();
  if (s.display == EGL_NO_DISPLAY)
    return IllegalStateError("no OpenGL driver: EGL found no display to draw on");
  if (!eglBindAPI(EGL_OPENGL_API)) return IllegalStateError("no OpenGL driver: EGL offers no desktop OpenGL");
  const EGLint configAttribs[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_SURFACE_TYPE, EGL_DONT_CARE, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint configCount = 0;
  const bool surfaceless = HasExtension(eglQueryString(s.display, EGL_EXTENSIONS), "EGL_KHR_surfaceless_context");
  if (!eglChooseConfig(s.display, configAttribs, &config, 1, &configCount) || configCount < 1)
    return IllegalStateError("no OpenGL driver: EGL has no OpenGL configuration");
  const EGLint contextAttribs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                                   EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
  s.context = eglCreateContext(s.display, config, EGL_NO_CONTEXT, contextAttribs);
  if (s.context == EGL_NO_CONTEXT) return IllegalStateError("no OpenGL driver: OpenGL 3.3 core is not available");
  if (!surfaceless || !eglMakeCurrent(s.display, EGL_NO_SURFACE, EGL_NO_SURFACE, s.context))
    return IllegalStateError("no OpenGL driver: the context cannot draw without a window");
  // The picture lives in a framebuffer of our own.
  glGenFramebuffers(1, &s.framebuffer);
  glBindFramebuffer(GL_FRAMEBUFFER, s.framebuffer);
  glGenRenderbuffers(1, &s.color);
  glBindRenderbuffer(GL_RENDERBUFFER, s.color);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, s.color);
  glGenRenderbuffers(1, &s.depth);
  glBindRenderbuffer(GL_RENDERBUFFER, s.depth);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, s.depth);
  if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
    return OutOfMemoryError("no room for a picture of that size");
  return ctx;
}

OffscreenContext::~OffscreenContext() {
  if (!state_) return;
  State& s = *state_;
  if (s.context != EGL_NO_CONTEXT) {
    if (s.framebuffer) {
      glDeleteFramebuffers(1, &s.framebuffer);
      glDeleteRenderbuffers(1, &s.color);
      glDeleteRenderbuffers(1, &s.depth);
    }
    eglMakeCurrent(s.display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(s.display, s.context);
  }
}

}  // namespace zta
