// zvol render and zvol view: pictures read back and measured, the window
// under a virtual X server, and the refusals without a display or driver.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "host/ui/pngfile.h"
#include "support/run.h"
#include "support/verbs.h"

// Last: Xlib's macros (None, Bool, Status) would reach everything after it.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

using zvtest::Zvol;

namespace {

constexpr double kPi = 3.14159265358979323846;

zta::Picture Read(const std::string& path) {
  auto r = zta::ReadPng(path);
  EXPECT_TRUE(r) << (r ? "" : r.GetError().GetMessage());
  return r ? r.GetValue() : zta::Picture{};
}

// The most common colour of the picture's border, where little is drawn.
std::array<int, 3> BackgroundOf(const zta::Picture& p) {
  std::map<std::array<int, 3>, int> counts;
  auto count = [&](int x, int y) { ++counts[{p.At(x, y)[0], p.At(x, y)[1], p.At(x, y)[2]}]; };
  for (int x = 0; x < p.width; ++x) count(x, 0), count(x, p.height - 1);
  for (int y = 0; y < p.height; ++y) count(0, y), count(p.width - 1, y);
  return std::max_element(counts.begin(), counts.end(), [](auto& a, auto& b) { return a.second < b.second; })->first;
}

bool IsBackground(const zta::Picture& p, const std::array<int, 3>& b, int x, int y) {
  const uint8_t* a = p.At(x, y);
  return std::abs(a[0] - b[0]) <= 3 && std::abs(a[1] - b[1]) <= 3 && std::abs(a[2] - b[2]) <= 3;
}

// The box's orange: much more red than blue.
bool IsBoxLine(const zta::Picture& p, int x, int y) { return p.At(x, y)[0] - p.At(x, y)[2] > 80; }

double Brightness(const zta::Picture& p, int x, int y) { return (p.At(x, y)[0] + p.At(x, y)[1] + p.At(x, y)[2]) / 3.0; }

// Mean brightness of the pixels whose distance from the centre lies in [r0, r1).
double RingBrightness(const zta::Picture& p, double r0, double r1) {
  double sum = 0;
  int n = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) {
      const double r = std::hypot(x + 0.5 - p.width / 2.0, y + 0.5 - p.height / 2.0);
      if (r < r0 || r >= r1 || IsBoxLine(p, x, y)) continue;
      sum += Brightness(p, x, y);
      ++n;
    }
  return n ? sum / n : 0;
}

void Stop(pid_t pid) {
  if (pid <= 0) return;
  kill(pid, SIGTERM);
  int status = 0;
  waitpid(pid, &status, 0);
}

// Waits until `ready` holds, for at most `seconds`.
template <typename Fn>
bool WaitFor(Fn&& ready, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    if (ready()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return ready();
}

void WriteSphereScene(const std::string& path, double radius) {
  std::ofstream out(path);
  out << R"({"format": "zelmar-scene", "version": 1, "objects": [
    {"type": "Osphere", "name": "ball", "parameters": {"PRIM_SPHERE_RAD": )"
      << radius << R"(, "PRIM_SPHERE_SUB": 32}}]})";
}

// Pixels in the columns [x0, x1) that show something: neither background nor box.
int Covered(const zta::Picture& p, int x0, int x1) {
  const auto bg = BackgroundOf(p);
  int n = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = x0; x < x1; ++x) n += !IsBackground(p, bg, x, y) && !IsBoxLine(p, x, y) ? 1 : 0;
  return n;
}

// A virtual X server on a display number of its own choosing, for one test.
class VirtualDisplay {
 public:
  VirtualDisplay() {
    // Xvfb writes the number it took to descriptor 3.
    int fds[2];
    if (pipe(fds) != 0) return;
    pid_ = zvtest::Spawn({"/usr/bin/Xvfb", "-displayfd", "3", "-screen", "0", "640x480x24", "-nolisten", "tcp"},
                         {.passFd = fds[1]});
    close(fds[1]);
    std::string number;
    char ch = 0;
    while (pid_ > 0 && read(fds[0], &ch, 1) == 1 && ch != '\n') number += ch;
    close(fds[0]);
    if (!number.empty()) name_ = ":" + number;
  }
  ~VirtualDisplay() { Stop(pid_); }
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;
  const std::string& Name() const { return name_; }

 private:
  pid_t pid_ = -1;
  std::string name_;
};

// `zvol view` on a virtual display, writing what it shows to a PNG and what
// it says to a file.
class ViewProcess {
 public:
  ViewProcess(const zvtest::Files& f, const VirtualDisplay& display, std::vector<std::string> args)
      : shot_(f("shot.png")), log_(f("view.log")), display_(display.Name()) {
    args.insert(args.begin(), {ZV_BIN_DIR "/zvol", "view"});
    args.insert(args.end(), {"--snapshot", shot_});
    pid_ = zvtest::Spawn(args, {.err = log_}, {"DISPLAY=" + display_});
  }
  ~ViewProcess() { Stop(pid_); }
  ViewProcess(const ViewProcess&) = delete;
  ViewProcess& operator=(const ViewProcess&) = delete;

  // Waits for a picture newer than the last one taken; false after `seconds`.
  bool NextPicture(zta::Picture& out, double seconds = 30) {
    const bool ok = WaitFor(
        [&] {
          std::error_code ec;
          const auto t = std::filesystem::last_write_time(shot_, ec);
          return !ec && (!seen_ || t != last_);
        },
        seconds);
    if (!ok) return false;
    // The window may draw more than once for one change: the last picture counts.
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    last_ = std::filesystem::last_write_time(shot_);
    seen_ = true;
    out = Read(shot_);
    return out.width > 0;
  }

  // What the viewer said so far, line by line.
  std::vector<std::string> Said() const {
    std::ifstream in(log_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  // Presses and releases `key` in the viewer's window.
  bool Press(KeySym key) const {
    Display* x = XOpenDisplay(display_.c_str());
    if (!x) return false;
    const Window window = FindWindow(x, DefaultRootWindow(x));
    bool sent = false;
    if (window) {
      XKeyEvent e{};
      e.display = x;
      e.window = window;
      e.root = DefaultRootWindow(x);
      e.keycode = XKeysymToKeycode(x, key);
      e.same_screen = True;
      e.type = KeyPress;
      sent = XSendEvent(x, window, True, KeyPressMask, reinterpret_cast<XEvent*>(&e)) != 0;
      e.type = KeyRelease;
      sent = XSendEvent(x, window, True, KeyReleaseMask, reinterpret_cast<XEvent*>(&e)) != 0 && sent;
      XFlush(x);
    }
    XCloseDisplay(x);
    return sent;
  }

 private:
  // The window whose title starts with "zvol view", below `w`.
  static Window FindWindow(Display* x, Window w) {
    char* title = nullptr;
    if (XFetchName(x, w, &title) && title) {
      const bool match = std::string(title).starts_with("zvol view");
      XFree(title);
      if (match) return w;
    }
    Window root = 0, parent = 0, *children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(x, w, &root, &parent, &children, &count)) return 0;
    Window found = 0;
    for (unsigned int i = 0; i < count && !found; ++i) found = FindWindow(x, children[i]);
    if (children) XFree(children);
    return found;
  }

  std::string shot_, log_, display_;
  pid_t pid_ = -1;
  std::filesystem::file_time_type last_;
  bool seen_ = false;
};

// Two Volume Builders side by side, each making a level set of its sphere.
// The spheres carry a Phong tag, whose angle `rightPhong` sets on the right one.
void WriteTwoBuilders(const std::string& path, double rightRadius, const std::string& rightName = "right",
                      double rightPhong = 0.5) {
  auto builder = [](const std::string& name, double x, double radius, double phong) {
    return R"({"type": "ovolumebuilder", "name": ")" + name + R"(", "position": [)" + std::to_string(x) +
           R"(, 0, 0], "parameters": {"6000": {"float": 8.0}, "6016": {"itemtree": [{"flags": 8388911, "link": ")" +
           name + R"(/ball"}]}}, "children": [{"type": "Osphere", "name": "ball", "parameters": {"PRIM_SPHERE_RAD": )" +
           std::to_string(radius) + R"(, "PRIM_SPHERE_SUB": 24}, "tags": [{"type": "Tphong", "parameters": )" +
           R"({"PHONGTAG_PHONG_ANGLE": )" + std::to_string(phong) + "}}]}]}";
  };
  const std::string text = R"({"format": "zelmar-scene", "version": 1, "objects": [)" +
                           builder("left", -150, 80, 0.5) + ", " + builder(rightName, 150, rightRadius, rightPhong) +
                           "]}";
  // Written beside and renamed: the viewer never reads half a file.
  std::ofstream(path + ".part") << text;
  std::filesystem::rename(path + ".part", path);
}

// The last line the viewer said that starts with `lead`, without it; empty for none.
std::string LastSaid(const std::vector<std::string>& lines, const std::string& lead) {
  for (auto it = lines.rbegin(); it != lines.rend(); ++it)
    if (it->starts_with(lead)) return it->substr(lead.size());
  return "";
}

// Three level-set spheres of growing radius as a numbered series, imported as a Volume Sequence.
void WriteSequence(const zvtest::Files& f) {
  const char* radii[] = {"0.3", "0.5", "0.7"};
  for (int i = 0; i < 3; ++i)
    ASSERT_EQ(Zvol({"sphere", "--radius", radii[i], "--voxel-size", "0.03", "-o",
                    f("ball_000" + std::to_string(i) + ".vdb")})
                  .status,
              0);
  ASSERT_EQ(Zvol({"import", f("ball_0000.vdb"), "--sequence", "-o", f("seq.json")}).status, 0);
}

}  // namespace

TEST(RenderVerb, LevelSetSphereFromTheFrontCoversItsProjectedDisc) {
  zvtest::Files f;
  ASSERT_EQ(Zvol({"sphere", "--radius", "1", "--voxel-size", "0.01", "--half-width", "2", "-o", f("s.vdb")}).status, 0);
  const auto r = Zvol({"render", f("s.vdb"), "-o", f("s.png"), "--size", "400x400", "--camera", "0,0,4:0,0,0"});
  zvtest::ExpectOk(r);
  const zta::Picture p = Read(f("s.png"));
  const auto bg = BackgroundOf(p);
  ASSERT_EQ(p.width, 400);
  ASSERT_EQ(p.height, 400);
  // A sphere of radius 1 seen from 4 units under a 30 degree field of view.
  const double focal = 200.0 / std::tan(15.0 * kPi / 180.0);
  const double radius = focal / std::sqrt(16.0 - 1.0);
  double area = 0, cx = 0, cy = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x)
      if (!IsBackground(p, bg, x, y) && !IsBoxLine(p, x, y)) area += 1, cx += x + 0.5, cy += y + 0.5;
  EXPECT_NEAR(area / (kPi * radius * radius), 1.0, 0.03) << area << " pixels";
  EXPECT_NEAR(cx / area, 200.0, 1.0);
  EXPECT_NEAR(cy / area, 200.0, 1.0);
  // Lit, not flat: the surface has light and shade.
  EXPECT_GT(Brightness(p, 200, 200) + 1, 0.0);
  double lo = 255, hi = 0;
  for (int y = 120; y < 280; y += 4)
    for (int x = 120; x < 280; x += 4) lo = std::min(lo, Brightness(p, x, y)), hi = std::max(hi, Brightness(p, x, y));
  EXPECT_GT(hi - lo, 60.0);
}

TEST(RenderVerb, FogSphereGrowsBrighterTowardsItsCentre) {
  zvtest::Files f;
  ASSERT_EQ(Zvol({"sphere", "--radius", "1", "--voxel-size", "0.05", "-o", f("s.vdb")}).status, 0);
  ASSERT_EQ(Zvol({"convert", "sdf2fog", f("s.vdb"), "-o", f("fog.vdb")}).status, 0);
  zvtest::ExpectOk(Zvol({"render", f("fog.vdb"), "-o", f("fog.png"), "--size", "300x300", "--camera", "front"}));
  const zta::Picture p = Read(f("fog.png"));
  // The sphere fills about half the picture's height from the front.
  const double centre = RingBrightness(p, 0, 15), middle = RingBrightness(p, 40, 50), rim = RingBrightness(p, 62, 68);
  const std::array<int, 3> b = BackgroundOf(p);
  const double background = (b[0] + b[1] + b[2]) / 3.0;
  EXPECT_GT(centre, middle + 5) << centre << " " << middle;
  EXPECT_GT(middle, rim + 5) << middle << " " << rim;
  EXPECT_GT(rim, background) << rim << " " << background;
  EXPECT_LT(centre, 254.0) << "the densest column stays short of white";
}

TEST(RenderVerb, VectorLinesPointTheWayOfTheirColours) {
  zvtest::Files f;
  ASSERT_EQ(Zvol({"sphere", "--radius", "1", "--voxel-size", "0.1", "--half-width", "2", "-o", f("s.vdb")}).status, 0);
  // Gradients of a level set point outward: right on the right, up at the top.
  ASSERT_EQ(Zvol({"derive", "gradient", f("s.vdb"), "-o", f("g.vdb")}).status, 0);
  zvtest::ExpectOk(Zvol({"render", f("g.vdb"), "-o", f("g.png"), "--size", "300x300", "--camera", "0,0,8:0,0,0"}));
  const zta::Picture p = Read(f("g.png"));
  const auto bg = BackgroundOf(p);
  const double focal = 150.0 / std::tan(15.0 * kPi / 180.0);
  const double sphere = focal / std::sqrt(64.0 - 1.0);
  double redRight = 0, redLeft = 0, greenTop = 0, greenBottom = 0;
  int right = 0, left = 0, top = 0, bottom = 0;
  // Beyond the sphere there are only lines, reaching out from it.
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) {
      const double dx = x + 0.5 - 150, dy = 150 - (y + 0.5);
      if (std::hypot(dx, dy) < sphere * 1.3 || IsBackground(p, bg, x, y) || IsBoxLine(p, x, y)) continue;
      const uint8_t* c = p.At(x, y);
      if (dx > std::abs(dy)) redRight += c[0], ++right;
      if (-dx > std::abs(dy)) redLeft += c[0], ++left;
      if (dy > std::abs(dx)) greenTop += c[1], ++top;
      if (-dy > std::abs(dx)) greenBottom += c[1], ++bottom;
    }
  ASSERT_GT(right, 50);
  ASSERT_GT(left, 50);
  ASSERT_GT(top, 50);
  ASSERT_GT(bottom, 50);
  EXPECT_GT(redRight / right, redLeft / left + 80);
  EXPECT_GT(greenTop / top, greenBottom / bottom + 80);
}

TEST(RenderVerb, ScenesDrawTheirPolygonsAtTheFrameAsked) {
  zvtest::Files f;
  WriteSphereScene(f("ball.json"), 100);
  zvtest::ExpectOk(Zvol({"render", f("ball.json"), "-o", f("b.png"), "--size", "200x200", "--camera", "front",
                         "--frame", "0"}));
  const zta::Picture p = Read(f("b.png"));
  const auto bg = BackgroundOf(p);
  EXPECT_FALSE(IsBackground(p, bg, 100, 100));
  EXPECT_TRUE(IsBackground(p, bg, 2, 100));
}

TEST(RenderVerb, BadInputIsRefusedAndLeavesNoPicture) {
  zvtest::Files f;
  ASSERT_EQ(Zvol({"sphere", "-o", f("s.vdb")}).status, 0);
  zvtest::ExpectRefused(Zvol({"render", f("missing.vdb"), "-o", f("a.png")}), "could not be found", f("a.png"));
  zvtest::ExpectRefused(Zvol({"render", f("s.vdb"), "-o", f("a.png"), "--grid", "nosuch"}), "no grid 'nosuch'",
                        f("a.png"));
  EXPECT_EQ(Zvol({"render", f("s.vdb"), "-o", f("a.png"), "--size", "0x10"}).status, 2);
  EXPECT_EQ(Zvol({"render", f("s.vdb"), "-o", f("a.png"), "--camera", "sideways"}).status, 2);
  EXPECT_EQ(Zvol({"render", f("s.vdb"), "-o", f("a.jpg")}).status, 2);
  EXPECT_EQ(Zvol({"render", f("s.vdb"), "-o", f("a.png"), "--frame", "3"}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(f("a.png")));
  // A picture that stood there stays when the new one cannot be made.
  zvtest::ExpectOk(Zvol({"render", f("s.vdb"), "-o", f("a.png"), "--size", "64x64"}));
  const auto before = std::filesystem::file_size(f("a.png"));
  EXPECT_EQ(Zvol({"render", f("missing.vdb"), "-o", f("a.png")}).status, 1);
  EXPECT_EQ(std::filesystem::file_size(f("a.png")), before);
}

TEST(RenderVerb, WithoutDriverOrDisplayBothVerbsSayItInOneLine) {
  zvtest::Files f;
  ASSERT_EQ(Zvol({"sphere", "-o", f("s.vdb")}).status, 0);
  // libglvnd finds no vendor library: no GL driver at all.
  const auto noDriver = zvtest::Run({ZV_BIN_DIR "/zvol", "render", f("s.vdb"), "-o", f("a.png")},
                                    {"__EGL_VENDOR_LIBRARY_FILENAMES=/nonexistent.json", "__EGL_VENDOR_LIBRARY_DIRS=/nonexistent"});
  zvtest::ExpectRefused(noDriver, "no OpenGL driver", f("a.png"));
  const auto noDisplay = zvtest::Run({ZV_BIN_DIR "/zvol", "view", f("s.vdb")}, {"DISPLAY=", "WAYLAND_DISPLAY="});
  zvtest::ExpectRefused(noDisplay, "no display", f("nothing"));
}

TEST(ViewVerb, WindowShowsTheObjectAndRedrawsWhenTheSceneChanges) {
  if (!std::filesystem::exists("/usr/bin/Xvfb")) GTEST_SKIP() << "Xvfb is not installed";
  zvtest::Files f;
  const VirtualDisplay x;
  if (x.Name().empty()) FAIL() << "Xvfb did not start";
  const std::string display = x.Name();
  WriteSphereScene(f("ball.json"), 50);
  const pid_t view = zvtest::Spawn(
      {ZV_BIN_DIR "/zvol", "view", f("ball.json"), "--size", "320x240", "--snapshot", f("shot.png")}, {},
      {"DISPLAY=" + display});
  ASSERT_GT(view, 0);
  const bool shown = WaitFor([&] { return std::filesystem::exists(f("shot.png")); }, 30);
  if (!shown) {
    Stop(view);
    FAIL() << "the window drew nothing";
  }
  const zta::Picture first = Read(f("shot.png"));
  const auto bgFirst = BackgroundOf(first);
  int drawn = 0;
  for (int y = 100; y < 140; ++y)
    for (int xx = 140; xx < 180; ++xx) drawn += !IsBackground(first, bgFirst, xx, y) ? 1 : 0;
  EXPECT_GT(drawn, 1200) << "the centre shows the object";
  // Touched alone: drawn again, the same.
  auto shotTime = std::filesystem::last_write_time(f("shot.png"));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  std::filesystem::last_write_time(f("ball.json"), std::filesystem::file_time_type::clock::now());
  EXPECT_TRUE(WaitFor([&] { return std::filesystem::last_write_time(f("shot.png")) != shotTime; }, 20));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(Read(f("shot.png")).rgba, first.rgba);
  // A smaller ball on disk: the window reads the scene again and redraws.
  const auto firstTime = std::filesystem::last_write_time(f("shot.png"));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  WriteSphereScene(f("ball.json"), 10);
  std::filesystem::last_write_time(f("ball.json"), std::filesystem::file_time_type::clock::now());
  const bool redrawn = WaitFor([&] { return std::filesystem::last_write_time(f("shot.png")) != firstTime; }, 20);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const zta::Picture second = Read(f("shot.png"));
  const auto bgSecond = BackgroundOf(second);
  Stop(view);
  ASSERT_TRUE(redrawn);
  int covered = 0, coveredBefore = 0;
  for (int y = 0; y < first.height; ++y)
    for (int xx = 0; xx < first.width; ++xx) {
      coveredBefore += !IsBackground(first, bgFirst, xx, y);
      covered += !IsBackground(second, bgSecond, xx, y);
    }
  // The view frames what it first saw: the new ball covers a quarter of the width it did.
  EXPECT_LT(covered * 10, coveredBefore);
  EXPECT_GT(covered, 0);
}

TEST(RenderVerb, FramesOfASequenceShowTheirOwnSpheres) {
  zvtest::Files f;
  WriteSequence(f);
  int area[3] = {0, 0, 0};
  for (int frame = 0; frame < 3; ++frame) {
    const std::string png = f("f" + std::to_string(frame) + ".png");
    zvtest::ExpectOk(Zvol({"render", f("seq.json"), "-o", png, "--frame", std::to_string(frame), "--size", "200x200",
                           "--camera", "0,0,3:0,0,0"}));
    const zta::Picture p = Read(png);
    area[frame] = Covered(p, 0, p.width);
  }
  ASSERT_GT(area[0], 100);
  // Discs grow with the square of the radius: 0.3, 0.5, 0.7.
  EXPECT_NEAR(double(area[1]) / area[0], 25.0 / 9.0, 0.15 * 25.0 / 9.0);
  EXPECT_NEAR(double(area[2]) / area[1], 49.0 / 25.0, 0.15 * 49.0 / 25.0);
}

TEST(ViewVerb, ArrowKeysStepThroughTheFramesOfASequence) {
  if (!std::filesystem::exists("/usr/bin/Xvfb")) GTEST_SKIP() << "Xvfb is not installed";
  zvtest::Files f;
  WriteSequence(f);
  VirtualDisplay display;
  ASSERT_FALSE(display.Name().empty()) << "Xvfb did not start";
  ViewProcess view(f, display, {f("seq.json"), "--size", "240x240", "--frame", "1"});
  zta::Picture first, back, before, after, forward;
  ASSERT_TRUE(view.NextPicture(first)) << "the window drew nothing";
  ASSERT_TRUE(view.Press(XK_Left));
  ASSERT_TRUE(view.NextPicture(back));
  EXPECT_EQ(LastSaid(view.Said(), "frame "), "0");
  ASSERT_TRUE(view.Press(XK_Right));
  ASSERT_TRUE(view.NextPicture(before));
  ASSERT_TRUE(view.Press(XK_Right));
  ASSERT_TRUE(view.NextPicture(forward));
  EXPECT_EQ(LastSaid(view.Said(), "frame "), "2");
  const int a0 = Covered(back, 0, back.width), a1 = Covered(first, 0, first.width);
  const int a2 = Covered(forward, 0, forward.width);
  ASSERT_GT(a0, 100);
  // The camera stays: the frames' discs keep the ratios of their radii squared.
  EXPECT_NEAR(double(a1) / a0, 25.0 / 9.0, 0.15 * 25.0 / 9.0);
  EXPECT_NEAR(double(a2) / a1, 49.0 / 25.0, 0.15 * 49.0 / 25.0);
  // Back where it started: the same picture.
  EXPECT_EQ(before.rgba, first.rgba);
}

TEST(ViewVerb, AChangedParameterRebuildsOnlyTheObjectItFeeds) {
  if (!std::filesystem::exists("/usr/bin/Xvfb")) GTEST_SKIP() << "Xvfb is not installed";
  zvtest::Files f;
  WriteTwoBuilders(f("two.json"), 80);
  VirtualDisplay display;
  ASSERT_FALSE(display.Name().empty()) << "Xvfb did not start";
  ViewProcess view(f, display, {f("two.json"), "--size", "400x200"});
  zta::Picture first, smaller, renamed, broken;
  ASSERT_TRUE(view.NextPicture(first)) << "the window drew nothing";
  EXPECT_EQ(LastSaid(view.Said(), "display buffers filled: "), "left, right");
  const auto leftHalf = [](const zta::Picture& p) {
    std::vector<uint8_t> half;
    for (int y = 0; y < p.height; ++y)
      for (int x = 0; x < p.width / 2; ++x) half.insert(half.end(), p.At(x, y), p.At(x, y) + 4);
    return half;
  };

  // The right sphere at half its radius: only the right builder's buffers are filled again.
  WriteTwoBuilders(f("two.json"), 40);
  ASSERT_TRUE(view.NextPicture(smaller));
  auto said = view.Said();
  EXPECT_TRUE(LastSaid(said, "read ").ends_with("again: changed right/ball")) << LastSaid(said, "read ");
  EXPECT_EQ(LastSaid(said, "display buffers filled: "), "right");
  EXPECT_EQ(leftHalf(smaller), leftHalf(first)) << "the left object stays as it was";
  const int before = Covered(first, 200, 400), after = Covered(smaller, 200, 400);
  EXPECT_GT(after, 0);
  EXPECT_NEAR(double(after) / before, 0.25, 0.08) << after << " of " << before;

  // A tag's changed parameter is set in place; again only the right builder fills its buffers.
  zta::Picture retagged;
  const auto fillLines = [](const std::vector<std::string>& lines) {
    return std::count_if(lines.begin(), lines.end(), [](auto& l) { return l.starts_with("display buffers filled"); });
  };
  const auto fillsBefore = fillLines(said);
  WriteTwoBuilders(f("two.json"), 40, "right", 0.9);
  ASSERT_TRUE(view.NextPicture(retagged));
  said = view.Said();
  EXPECT_EQ(fillLines(said), fillsBefore + 1);
  EXPECT_TRUE(LastSaid(said, "read ").ends_with("again: changed right/ball")) << LastSaid(said, "read ");
  EXPECT_EQ(LastSaid(said, "display buffers filled: "), "right");
  EXPECT_EQ(leftHalf(retagged), leftHalf(first));

  // A renamed object changes the scene's shape: everything is read afresh.
  WriteTwoBuilders(f("two.json"), 40, "other", 0.9);
  ASSERT_TRUE(view.NextPicture(renamed));
  said = view.Said();
  EXPECT_TRUE(LastSaid(said, "read ").ends_with("again: changed left, other")) << LastSaid(said, "read ");
  EXPECT_EQ(LastSaid(said, "display buffers filled: "), "left, other");
  EXPECT_EQ(renamed.rgba, smaller.rgba);

  // A file that does not read keeps the picture and fills nothing.
  const auto fills = fillLines(said);
  std::ofstream(f("two.json.part")) << R"({"format": "zelmar-scene", "objects": [)";
  std::filesystem::rename(f("two.json.part"), f("two.json"));
  ASSERT_TRUE(view.NextPicture(broken));
  said = view.Said();
  EXPECT_TRUE(LastSaid(said, "cannot read the changed file: ").size() > 0);
  EXPECT_EQ(fillLines(said), fills);
  EXPECT_EQ(broken.rgba, smaller.rgba);
}
