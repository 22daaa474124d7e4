// The start table: each plug-in adds its row here when it lands, in the fixed
// order of the module's start.
#include "modules/volumes/source/main.h"

namespace zelmar {

const std::vector<RegistrationRow>& GetRegistrationTable() {
  static const std::vector<RegistrationRow> rows = {};
  return rows;
}

}  // namespace zelmar
