#include "host/scene/description.h"

#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>

#include "host/core/diagnostics.h"
#include "host/core/resource.h"
#include "host/scene/baseobject.h"
#include "host/scene/nodedata.h"
#include "host/scene/parameters.h"
#include "host/scene/plugins.h"

namespace zta {

// ---- Description

Description::Entry* Description::Find(const DescID& id) {
  for (auto& e : params_)
    if (e.id == id) return &e;
  return nullptr;
}

const Description::Entry* Description::Find(const DescID& id) const {
  for (const auto& e : params_)
    if (e.id == id) return &e;
  return nullptr;
}

void Description::SetParameter(const DescID& id, const BaseContainer& settings) {
  if (Entry* e = Find(id)) {
    e->settings = settings;
    return;
  }
  params_.push_back({id, settings});
}

const BaseContainer* Description::GetParameter(const DescID& id) const {
  const Entry* e = Find(id);
  return e ? &e->settings : nullptr;
}

bool Description::Hide(const DescID& id, bool hide) {
  Entry* e = Find(id);
  if (!e) return false;
  e->settings.SetBool(DESC_HIDE, hide);
  return true;
}

bool Description::IsHidden(const DescID& id) const {
  const Entry* e = Find(id);
  return e && e->settings.GetBool(DESC_HIDE);
}

const DescID* Description::FindIdent(const String& ident) const {
  for (const auto& e : params_)
    if (e.settings.GetString(DESC_IDENT) == ident) return &e.id;
  return nullptr;
}

void Description::Append(const Description& other) {
  for (const Entry& e : other.params_) SetParameter(e.id, e.settings);
}

// ---- resource files

namespace {

std::mutex g_mutex;
String g_hostFolder;
String g_moduleFolder;
// Parsed resources by name, null for a name that has none.
std::map<String, std::shared_ptr<const Description>> g_byName;
// Descriptions read before a change of folders: callers may still hold them.
std::vector<std::shared_ptr<const Description>> g_retired;

void Forget() {
  for (auto& [name, d] : g_byName)
    if (d) g_retired.push_back(d);
  g_byName.clear();
}

// Splits a line into words; a quoted text is one word, kept with its quotes.
std::vector<String> Words(const String& line) {
  std::vector<String> out;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    // '#' starts a comment, except "#<digits>", a label from the string table.
    if (i >= line.size() ||
        (line[i] == '#' && (i + 1 >= line.size() || !std::isdigit(static_cast<unsigned char>(line[i + 1])))))
      break;
    size_t j = i;
    if (line[i] == '"') {
      j = line.find('"', i + 1);
      j = j == String::npos ? line.size() : j + 1;
    } else {
      while (j < line.size() && line[j] != ' ' && line[j] != '\t' && line[j] != '\r') ++j;
    }
    out.push_back(line.substr(i, j - i));
    i = j;
  }
  return out;
}

const std::map<String, DESCKIND>& Kinds() {
  static const std::map<String, DESCKIND> kinds = {
      {"BOOL", DESCKIND::BOOL},         {"LONG", DESCKIND::LONG},       {"REAL", DESCKIND::REAL},
      {"VECTOR", DESCKIND::VECTOR},     {"STRING", DESCKIND::STRING},   {"STATICTEXT", DESCKIND::STATICTEXT},
      {"FILENAME", DESCKIND::FILENAME}, {"BUTTON", DESCKIND::BUTTON},   {"LINK", DESCKIND::LINK},
      {"TIME", DESCKIND::TIME},         {"CUSTOM", DESCKIND::CUSTOM},   {"SEPARATOR", DESCKIND::SEPARATOR},
  };
  return kinds;
}

struct Parser {
  String path;
  const StringResource* strings;
  int line = 0;
  Description desc;
  std::vector<Int32> groups;
  // The parameter whose values (ITEM lines) are being read.
  const DescID* cycle = nullptr;
  DescID cycleId;

  Error Fail(const String& what) const { return IoError(path + ":" + std::to_string(line) + ": " + what); }

  Result<String> Label(const String& w) const {
    if (w.size() >= 2 && w.front() == '"' && w.back() == '"') return w.substr(1, w.size() - 2);
    if (w.size() > 1 && w[0] == '#') {
      char* end = nullptr;
      const long id = std::strtol(w.c_str() + 1, &end, 10);
      if (*end) return Fail("bad string id " + w);
      return strings ? strings->Get(int(id)) : String();
    }
    return Fail("expected a quoted label or #id, got " + w);
  }

  Result<double> Number(const std::vector<String>& w, size_t i) const {
    if (i >= w.size()) return Fail("a number is missing");
    char* end = nullptr;
    const double v = std::strtod(w[i].c_str(), &end);
    if (end == w[i].c_str() || *end) return Fail("expected a number, got " + w[i]);
    return v;
  }

  Result<Int32> Integer(const std::vector<String>& w, size_t i) const {
    auto v = Number(w, i);
    if (!v) return v.GetError();
    if (*v != double(Int32(*v))) return Fail("expected a whole number, got " + w[i]);
    return Int32(*v);
  }

  // KIND id IDENT "label" attributes...
  Result<void> Parameter(DESCKIND kind, const std::vector<String>& w) {
    if (w.size() < 4) return Fail("expected: " + w[0] + " <id> <IDENT> <label>");
    auto id = Integer(w, 1);
    if (!id) return id.GetError();
    if (desc.GetParameter(*id)) return Fail("parameter " + w[1] + " is described twice");
    auto label = Label(w[3]);
    if (!label) return label.GetError();
    BaseContainer bc;
    bc.SetInt32(DESC_KIND, Int32(kind));
    bc.SetString(DESC_IDENT, w[2]);
    bc.SetString(DESC_NAME, *label);
    if (!groups.empty()) bc.SetInt32(DESC_PARENTGROUP, groups.back());
    bool opensCycle = false;
    for (size_t i = 4; i < w.size(); ++i) {
      const String& a = w[i];
      if (a == "DEFAULT") {
        GeData def;
        if (kind == DESCKIND::VECTOR) {
          Vector v;
          for (int c = 0; c < 3; ++c) {
            auto n = Number(w, ++i);
            if (!n) return n.GetError();
            v[c] = *n;
          }
          def = GeData(v);
        } else if (kind == DESCKIND::STRING || kind == DESCKIND::FILENAME || kind == DESCKIND::STATICTEXT) {
          if (++i >= w.size()) return Fail("a default text is missing");
          auto text = Label(w[i]);
          if (!text) return text.GetError();
          def = GeData(*text);
        } else {
          auto n = Number(w, ++i);
          if (!n) return n.GetError();
          if (kind == DESCKIND::BOOL) def = GeData(*n != 0.0);
          else if (kind == DESCKIND::LONG) def = GeData(Int32(*n));
          else if (kind == DESCKIND::REAL) def = GeData(Float(*n));
          else if (kind == DESCKIND::TIME) def = GeData(BaseTime(Float(*n)));
          else return Fail("a " + w[0] + " has no default");
        }
        bc.SetData(DESC_DEFAULT, def);
      } else if (a == "MIN" || a == "MAX" || a == "STEP") {
        auto n = Number(w, ++i);
        if (!n) return n.GetError();
        bc.SetFloat(a == "MIN" ? DESC_MIN : a == "MAX" ? DESC_MAX : DESC_STEP, *n);
      } else if (a == "UNIT") {
        if (++i >= w.size()) return Fail("a unit is missing");
        const String& u = w[i];
        DESCUNIT unit = u == "METER" ? DESCUNIT::METER : u == "PERCENT" ? DESCUNIT::PERCENT
                        : u == "DEGREE" ? DESCUNIT::DEGREE : u == "REAL" ? DESCUNIT::REAL : DESCUNIT(-1);
        if (Int32(unit) < 0) return Fail("unknown unit " + u);
        bc.SetInt32(DESC_UNIT, Int32(unit));
      } else if (a == "HIDDEN") {
        bc.SetBool(DESC_HIDE, true);
      } else if (a == "ACCEPT") {
        BaseContainer accept;
        while (i + 1 < w.size() && std::isdigit(static_cast<unsigned char>(w[i + 1][0]))) {
          auto t = Integer(w, ++i);
          if (!t) return t.GetError();
          accept.SetBool(*t, true);
        }
        if (accept.GetCount() == 0) return Fail("ACCEPT needs type ids");
        bc.SetContainer(DESC_ACCEPT, accept);
      } else if (a == "TYPE") {
        auto t = Integer(w, ++i);
        if (!t) return t.GetError();
        bc.SetInt32(DESC_CUSTOMTYPE, *t);
      } else if (a == "CYCLE") {
        if (kind != DESCKIND::LONG) return Fail("only a LONG takes CYCLE");
        opensCycle = true;
      } else {
        return Fail("unknown attribute " + a);
      }
    }
    if (kind == DESCKIND::CUSTOM && !bc.GetDataPointer(DESC_CUSTOMTYPE)) return Fail("a CUSTOM needs TYPE <id>");
    desc.SetParameter(*id, bc);
    if (opensCycle) {
      cycleId = DescID(*id);
      cycle = &cycleId;
    }
    return OK();
  }

  // ITEM value IDENT "label" [ICON id]
  Result<void> Item(const std::vector<String>& w) {
    if (!cycle) return Fail("ITEM outside a CYCLE");
    if (w.size() < 4) return Fail("expected: ITEM <value> <IDENT> <label>");
    auto value = Integer(w, 1);
    if (!value) return value.GetError();
    auto label = Label(w[3]);
    if (!label) return label.GetError();
    BaseContainer bc = *desc.GetParameter(*cycle);
    BaseContainer names = bc.GetContainer(DESC_CYCLE), idents = bc.GetContainer(DESC_CYCLEIDENT),
                  icons = bc.GetContainer(DESC_CYCLEICONS);
    if (names.GetDataPointer(*value)) return Fail("value " + w[1] + " is listed twice");
    names.SetString(*value, *label);
    idents.SetString(*value, w[2]);
    if (w.size() >= 6 && w[4] == "ICON") {
      auto icon = Integer(w, 5);
      if (!icon) return icon.GetError();
      icons.SetInt32(*value, *icon);
    } else if (w.size() > 4) {
      return Fail("unknown attribute " + w[4]);
    }
    bc.SetContainer(DESC_CYCLE, names);
    bc.SetContainer(DESC_CYCLEIDENT, idents);
    if (icons.GetCount()) bc.SetContainer(DESC_CYCLEICONS, icons);
    desc.SetParameter(*cycle, bc);
    return OK();
  }

  Result<void> Line(const std::vector<String>& w, const std::function<Result<const Description*>(const String&)>& include) {
    const String& k = w[0];
    if (k == "DESCRIPTION") return w.size() == 2 ? OK() : Result<void>(Fail("expected: DESCRIPTION <name>"));
    if (k == "INCLUDE") {
      if (w.size() != 2) return Fail("expected: INCLUDE <name>");
      auto other = include(w[1]);
      if (!other) return other.GetError();
      desc.Append(**other);
      return OK();
    }
    if (k == "END") {
      if (cycle) cycle = nullptr;
      else if (!groups.empty()) groups.pop_back();
      else return Fail("END without GROUP or CYCLE");
      return OK();
    }
    if (cycle && k != "ITEM") return Fail("expected ITEM or END in the values of a CYCLE");
    if (k == "ITEM") return Item(w);
    if (k == "GROUP") {
      if (w.size() < 4) return Fail("expected: GROUP <id> <IDENT> <label>");
      auto id = Integer(w, 1);
      if (!id) return id.GetError();
      auto label = Label(w[3]);
      if (!label) return label.GetError();
      BaseContainer bc;
      bc.SetInt32(DESC_KIND, Int32(DESCKIND::GROUP));
      bc.SetString(DESC_IDENT, w[2]);
      bc.SetString(DESC_NAME, *label);
      if (!groups.empty()) bc.SetInt32(DESC_PARENTGROUP, groups.back());
      desc.SetParameter(*id, bc);
      groups.push_back(*id);
      return OK();
    }
    auto kind = Kinds().find(k);
    if (kind == Kinds().end()) return Fail("unknown keyword " + k);
    return Parameter(kind->second, w);
  }
};

String ProgramFolder() {
  char buf[4096];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
  if (n <= 0) return {};
  buf[n] = 0;
  return std::filesystem::path(buf).parent_path().string();
}

String FindResource(const String& name, bool moduleFirst) {
  std::vector<String> folders;
  String module, host;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    module = g_moduleFolder;
  }
  host = GetHostDescriptionFolder();
  if (moduleFirst && !module.empty()) folders.push_back(module + "/description");
  folders.push_back(host);
  if (!moduleFirst && !module.empty()) folders.push_back(module + "/description");
  for (const String& f : folders) {
    const String path = f + "/" + name + ".res";
    std::error_code ec;
    if (std::filesystem::is_regular_file(path, ec)) return path;
  }
  return {};
}

Result<Description> ParseFile(const String& path, int depth);

// A resource by name, parsed once; an error when it cannot be read.
Result<const Description*> LoadByName(const String& name, bool moduleFirst, int depth) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_byName.find(name);
    if (it != g_byName.end()) {
      if (it->second) return it->second.get();
      return IoError("description " + name + " cannot be read");
    }
  }
  if (depth > 16) return IoError("descriptions include each other without end at " + name);
  const String path = FindResource(name, moduleFirst);
  if (path.empty()) {
    std::lock_guard<std::mutex> lock(g_mutex);
    // Said once: a type registered with a resource it does not ship.
    DiagnosticOutput("no description resource @.res", name);
    g_byName[name] = nullptr;
    return IoError("no description resource " + name + ".res");
  }
  auto parsed = ParseFile(path, depth);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!parsed) {
    // Said once: a broken resource would otherwise speak at every node made.
    DiagnosticOutput("@", parsed.GetError().GetMessage());
    g_byName[name] = nullptr;
    return parsed.GetError();
  }
  auto& slot = g_byName[name];
  slot = std::make_shared<const Description>(std::move(parsed.GetValue()));
  return slot.get();
}

Result<Description> ParseFile(const String& path, int depth) {
  std::ifstream in(path);
  if (!in) return IoError("description " + path + " cannot be read");
  // Labels written as #id come from the string table beside the file's folder.
  StringResource strings;
  const String resFolder = std::filesystem::path(path).parent_path().parent_path().string();
  const bool haveStrings = bool(strings.Load(resFolder));
  Parser p{path, haveStrings ? &strings : nullptr};
  String text;
  auto include = [&](const String& name) { return LoadByName(name, false, depth + 1); };
  while (std::getline(in, text)) {
    ++p.line;
    const std::vector<String> w = Words(text);
    if (w.empty()) continue;
    if (auto r = p.Line(w, include); !r) return r.GetError();
  }
  if (p.cycle || !p.groups.empty()) return p.Fail("END is missing at the end of the file");
  return std::move(p.desc);
}

// The resource name of a type: a plug-in's registered name, or a host type's.
String ResourceNameOf(Int32 type, bool& plugin) {
  if (const PluginInfo* info = FindPlugin(type)) {
    plugin = true;
    return info->description;
  }
  plugin = false;
  const char* name = HostDescriptionName(type);
  return name ? String(name) : String();
}

}  // namespace

Result<Description> ParseDescription(const String& path) { return ParseFile(path, 0); }

bool Description::LoadDescription(const String& resourceName) {
  auto loaded = LoadByName(resourceName, true, 0);
  if (!loaded) return false;
  Append(**loaded);
  return true;
}

bool Description::LoadDescription(Int32 type) {
  const Description* d = GetTypeDescription(type);
  if (!d) return false;
  Append(*d);
  return true;
}

const Description* GetTypeDescription(Int32 type) {
  bool plugin = false;
  const String name = ResourceNameOf(type, plugin);
  if (name.empty()) return nullptr;
  auto loaded = LoadByName(name, plugin, 0);
  return loaded ? *loaded : nullptr;
}

bool GetNodeDescription(BaseList2D* node, Description& description) {
  if (!node) return false;
  Int32 flags = DESCFLAGS_NONE;
  bool handled = false;
  if (NodeData* data = node->GetNodeData()) handled = data->DescribeParameters(node, &description, flags);
  if (handled && (flags & DESCFLAGS_DESC_LOADED)) return true;
  return description.LoadDescription(node->GetType());
}

void ApplyDescriptionDefaults(BaseList2D* node) {
  const Description* d = node ? GetTypeDescription(node->GetType()) : nullptr;
  if (!d) return;
  BaseContainer* bc = node->GetDataInstance();
  for (Int32 i = 0; i < d->GetCount(); ++i) {
    const GeData* def = d->GetSettings(i).GetDataPointer(DESC_DEFAULT);
    // The base parameters of every node live in the node itself.
    if (def && !IsBuiltinParameter(node, d->GetId(i).GetId())) bc->SetData(d->GetId(i).GetId(), *def);
  }
}

void SetHostResourceFolder(const String& folder) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_hostFolder = folder;
  Forget();
}

void SetModuleResourceFolder(const String& folder) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_moduleFolder = folder;
  Forget();
}

String GetHostDescriptionFolder() {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_hostFolder.empty()) return g_hostFolder + "/description";
  }
  if (const char* env = std::getenv("ZTA_HOST_RESOURCES")) return String(env) + "/description";
  std::error_code ec;
  const String beside = ProgramFolder() + "/res/host/description";
  if (std::filesystem::is_directory(beside, ec)) return beside;
  // A build run where it was made finds the source tree's resources. The
  // compiler may have named this file relative to the build folder, which
  // lies above the program's folder.
  const std::filesystem::path tail = std::filesystem::path(__FILE__).parent_path().parent_path() / "res" / "description";
  if (tail.is_absolute()) return tail.string();
  for (std::filesystem::path up = ProgramFolder(); !up.empty() && up != up.root_path(); up = up.parent_path()) {
    const std::filesystem::path candidate = (up / tail).lexically_normal();
    if (std::filesystem::is_directory(candidate, ec)) return candidate.string();
  }
  return tail.string();
}

}  // namespace zta
