#pragma once
// The remesher (1039863): a menu command that gives the selected polygon
// objects a new, even surface by way of voxels, either live (a Volume Mesher
// over a Volume Builder holding the sources) or baked into one polygon object.
#include "host/core/result.h"
#include "host/scene/basecontainer.h"
#include "host/scene/commanddata.h"
#include "host/scene/plugins.h"
#include "host/ui/modaldialog.h"

namespace zta {
class BaseDocument;
}

namespace zelmar {

enum : zta::Int32 {
  ID_VOLUMEREMESHER = 1039863,

  REMESH_VOXEL_SIZE = 2220,
  REMESH_SUBDIVISION = 2221,
  REMESH_SMOOTHING = 2222,
  REMESH_LIVE = 2223,
};

// The menu state of an active entry.
inline constexpr zta::Int32 kCommandEnabled = 0x40000000;

class VolumeRemesherSettingsDialog final : public zta::GeModalDialog {
 public:
  explicit VolumeRemesherSettingsDialog(zta::BaseContainer& settings) : settings_(settings) {}
  // The gadgets' values into the settings.
  void StoreValues();

 protected:
  bool InitValues() override;

 private:
  zta::BaseContainer& settings_;
};

class VolumeRemesherCommand final : public zta::CommandData {
 public:
  // The "VolumeRemesher-" row of the start table.
  static bool Register();

  bool Execute(zta::BaseDocument* doc) override;
  zta::Int32 GetState(zta::BaseDocument* doc) override;

  // The settings of the next run (kept between runs, as the dialog left them).
  zta::BaseContainer& GetSettings() { return settings_; }
  // The remesh with the stored settings, without the dialog.
  zta::Result<void> RunRemesh(zta::BaseDocument* doc);

 private:
  zta::Result<void> BuildLiveSetup(zta::BaseDocument* doc);
  zta::Result<void> BakeRemesh(zta::BaseDocument* doc);

  zta::BaseContainer settings_;
};

}  // namespace zelmar
