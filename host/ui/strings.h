#pragma once
// Texts of the running module's string table, by number.
#include "host/core/resource.h"
#include "host/core/types.h"

namespace zta {

// The module hands its table over at start and null at end. The table must
// outlive its use here.
void SetModuleStrings(const StringResource* strings);
// The text numbered `id`, or "" when there is none (or no table).
String LoadString(Int32 id);
// LoadString with each "#" replaced by the next argument, as the host's
// resources write parameters.
String LoadString(Int32 id, const String& p1, const String& p2 = String());

}  // namespace zta
