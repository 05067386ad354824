// Reads a ring file back: every record of every level, with its values in place, in the order
// of the sequence numbers. A damaged or truncated file gives what can still be read, and says
// what is wrong.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace RingLog {

struct DecodedRecord {
  std::uint64_t seq;
  double time;
  int level;
  int msgId;
  std::string text;
};

// A statement as the file describes it: where it stands, its text with "%s" at each value, and
// the type codes of its values.
struct DescribedMessage {
  int msgId;
  std::uint32_t line;
  std::string function;
  std::string text;
  std::string codes;
};

struct DecodedFile {
  std::vector<DecodedRecord> records;      // by sequence number
  std::vector<DescribedMessage> messages;  // in the order the file describes them
  std::vector<std::string> errors;         // what is wrong with the file; empty when it is sound
  std::uint32_t pid = 0;
  std::uint64_t dropped = 0;  // records the writer could not write
  bool ok() const noexcept { return errors.empty(); }
};

DecodedFile decode(std::string_view bytes);
DecodedFile decodeFile(std::string const& path);

// "<time> <level> <text>", the time in seconds with six decimals.
std::string formatRecord(DecodedRecord const& r);

}  // namespace RingLog
