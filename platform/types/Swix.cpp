#include "types/Swix.h"

namespace Swix {

std::ostream& operator<<(std::ostream& os, FString const& s) { return os << s.view(); }

}  // namespace Swix
