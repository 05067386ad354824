// The ring-file decoder on damaged files: whatever the bytes, it says what is wrong and gives
// what it can trust, and never reads outside them.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "trace/RingLogReader.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto const file = RingLog::decode(std::string_view(reinterpret_cast<char const*>(data), size));
  // Every record text is read through, so that a bad length in it would show.
  std::size_t total = 0;
  for (auto const& r : file.records) total += r.text.size();
  for (auto const& m : file.messages) total += m.text.size() + m.function.size();
  return total == static_cast<std::size_t>(-1) ? 1 : 0;
}
