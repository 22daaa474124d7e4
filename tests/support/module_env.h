#pragma once
// Starts the volume module once per test program, the way the host would.
#include <gtest/gtest.h>

#include "modules/volumes/source/main.h"

namespace zvtest {

class ModuleEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_TRUE(zelmar::StartModuleStandalone(ZV_BIN_DIR).IsOk()); }
  void TearDown() override { zelmar::StopModuleStandalone(); }
};

}  // namespace zvtest
