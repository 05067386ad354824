// The toggle file reader on any bytes: a boolean member or the default, never anything else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "entities/PlatformFunctions.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  bool malformed = false;
  (void)toggleStateFromJson(text, "BreakBridgingConfigVlanConfigVxlan", true, &malformed);
  return 0;
}
