#pragma once
// The smooth shading that the module's objects give themselves when they are
// made from a menu: a Phong tag limited to 80 degrees, made when missing.
namespace zta {
class BaseObject;
}

namespace zelmar {

// False when a missing tag cannot be made.
bool ApplyDefaultPhong(zta::BaseObject* op);

}  // namespace zelmar
