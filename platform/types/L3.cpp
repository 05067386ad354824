#include "types/L3.h"

namespace L3 {

std::ostream& operator<<(std::ostream& os, VrfName const& name) { return os << name.view(); }

}  // namespace L3
