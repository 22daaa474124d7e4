#include "support/module_env.h"

static ::testing::Environment* const g_moduleEnv = ::testing::AddGlobalTestEnvironment(new zvtest::ModuleEnvironment);
