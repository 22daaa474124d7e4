#include "host/core/config.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace zta {

namespace {
std::string Trim(const std::string& s) {
  const auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return {};
  const auto e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

std::string ConfigFilePath() {
  if (const char* p = std::getenv("ZTA_CONFIG_FILE")) return p;
  if (const char* x = std::getenv("XDG_CONFIG_HOME")) return std::string(x) + "/zelmar/zta.conf";
  if (const char* h = std::getenv("HOME")) return std::string(h) + "/.config/zelmar/zta.conf";
  return {};
}
}  // namespace

std::optional<std::string> LookupConfigValue(const std::string& name) {
  if (const char* v = std::getenv(name.c_str())) return std::string(v);
  const std::string path = ConfigFilePath();
  if (path.empty()) return std::nullopt;
  std::ifstream in(path);
  std::string line;
  std::optional<std::string> found;
  while (std::getline(in, line)) {
    const auto hash = line.find('#');
    if (hash != std::string::npos) line.resize(hash);
    const auto eq = line.find('=');
    if (eq == std::string::npos) continue;
    if (Trim(line.substr(0, eq)) == name) found = Trim(line.substr(eq + 1));
  }
  return found;
}

std::optional<bool> ParseBool(const std::string& text) {
  std::string t = Trim(text);
  std::transform(t.begin(), t.end(), t.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (t == "1" || t == "true" || t == "yes" || t == "on") return true;
  if (t == "0" || t == "false" || t == "no" || t == "off") return false;
  return std::nullopt;
}

ConfigBool::ConfigBool(const char* name, bool def, const char* help) : name_(name), default_(def), help_(help) {}

bool ConfigBool::Read() const {
  if (auto v = LookupConfigValue(name_)) {
    if (auto b = ParseBool(*v)) return *b;
  }
  return default_;
}

}  // namespace zta
