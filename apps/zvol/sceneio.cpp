#include "sceneio.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "host/scene/scenefile.h"
#include "host/scene/scenejson.h"

namespace zvol {

zta::UnitScaleData ParseUnit(const std::string& text, const char* option) {
  static const std::pair<const char*, zta::DOCUMENTUNIT> units[] = {
      {"km", zta::DOCUMENTUNIT::KM}, {"m", zta::DOCUMENTUNIT::M},    {"cm", zta::DOCUMENTUNIT::CM},
      {"mm", zta::DOCUMENTUNIT::MM}, {"um", zta::DOCUMENTUNIT::UM},  {"nm", zta::DOCUMENTUNIT::NM},
      {"mi", zta::DOCUMENTUNIT::MILE}, {"yd", zta::DOCUMENTUNIT::YARD}, {"ft", zta::DOCUMENTUNIT::FOOT},
      {"in", zta::DOCUMENTUNIT::INCH}};
  size_t at = 0;
  while (at < text.size() && (std::isdigit(static_cast<unsigned char>(text[at])) || text[at] == '.')) ++at;
  double scale = 1.0;
  if (at > 0) {
    char* end = nullptr;
    const std::string number = text.substr(0, at);
    scale = std::strtod(number.c_str(), &end);
    if (end != number.c_str() + number.size() || !std::isfinite(scale) || scale <= 0.0)
      throw CLI::ValidationError(option, "expected a positive scale before the unit, got '" + text + "'");
  }
  while (at < text.size() && text[at] == ' ') ++at;
  const std::string name = text.substr(at);
  for (const auto& [n, unit] : units)
    if (name == n) return zta::UnitScaleData(scale, unit);
  throw CLI::ValidationError(option, "unknown unit '" + text + "' (km, m, cm, mm, um, nm, mi, yd, ft, in, with an optional scale such as 10m)");
}

void RequireSceneFile(const std::string& path, const char* option) {
  const std::string ext = std::filesystem::path(path).extension().string();
  if (ext == std::string(".") + zta::kSceneFileSuffix || zta::IsJsonScenePath(path)) return;
  throw CLI::ValidationError(option, "'" + path + "' is neither a ." + zta::kSceneFileSuffix + " nor a ." +
                                         zta::kSceneJsonSuffix + " scene file");
}

void SaveScene(const Context& ctx, zta::BaseDocument* doc, const std::string& path) {
  Step step(ctx, "write " + std::filesystem::path(path).filename().string());
  if (zta::IsJsonScenePath(path)) Check(zta::SaveDocumentJson(doc, path, ctx.thread));
  else Check(zta::SaveDocument(doc, path, ctx.thread));
}

}  // namespace zvol
