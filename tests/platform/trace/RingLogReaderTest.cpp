#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/RingLogDir.h"
#include "trace/DualLog.h"
#include "trace/RingLogReader.h"

namespace {

using RingLog::Format::FileHeader;
using RingLog::Format::RecordHeader;

template <int Level>
void emit(RingLog::TraceHandle* rl, std::uint32_t n) {
  DUAL_LOG(rl, nullptr, Level, "level {level} record {n} of {name}", std::uint8_t{Level}, n, Brix::String("Vxlan1"));
}

int countAt(RingLog::DecodedFile const& f, int level) {
  int n = 0;
  for (auto const& r : f.records) n += r.level == level;
  return n;
}

bool anyErrorHas(RingLog::DecodedFile const& f, std::string const& what) {
  for (auto const& e : f.errors)
    if (e.find(what) != std::string::npos) return true;
  return false;
}

// A file with ten records at each of levels 0, 5 and 6, read back as bytes.
class DamagedFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RingLog::SizeSpec sizes{};
    sizes.size[0] = 1;
    sizes.size[5] = 8;
    sizes.size[6] = 8;
    std::unique_ptr<RingLog::TraceHandle> rl(RingLog::initialize_handle("damaged.rl", &sizes, nullptr, 0, 0));
    ASSERT_NE(rl->file(), nullptr) << rl->error();
    for (std::uint32_t n = 0; n < 10; ++n) {
      emit<0>(rl.get(), n);
      emit<5>(rl.get(), n);
      emit<6>(rl.get(), n);
    }
    std::ifstream in(rl->fileName(), std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    std::memcpy(&header, bytes.data(), sizeof header);
    auto f = RingLog::decode(bytes);
    ASSERT_TRUE(f.ok()) << f.errors.front();
    ASSERT_EQ(f.records.size(), 30u);
  }

  // The file offset of record `k` (0 first) of a level's ring, which has not wrapped.
  std::size_t recordAt(int level, int k) const {
    std::size_t off = header.rings[level].offset;
    for (int i = 0; i < k; ++i) {
      RecordHeader r{};
      std::memcpy(&r, bytes.data() + off, sizeof r);
      off += r.size;
    }
    return off;
  }

  TestSupport::RingLogDir dir;
  std::string bytes;
  FileHeader header{};
};

// Each damage is reported, and the decoder still gives the records it can trust: per level,
// the records before the damage.
TEST_F(DamagedFileTest, DamageIsReportedAndEndsOnlyWhatItTouches) {
  auto patch = [this](std::size_t at, std::uint32_t v) {
    std::string b = bytes;
    std::memcpy(b.data() + at, &v, sizeof v);
    return b;
  };
  std::string badMagic = bytes;
  badMagic[0] = 'X';
  struct Case {
    char const* what;
    std::string file;
    std::string error;
    std::array<int, 3> counts;  // at levels 0, 5 and 6; -1: not looked at
  };
  for (auto const& c : std::vector<Case>{
           {"truncated", bytes.substr(0, recordAt(6, 4) + 20), "file truncated", {10, 10, 4}},
           {"header cut", bytes.substr(0, sizeof(FileHeader) - 1), "", {0, 0, 0}},
           {"record size",
            patch(recordAt(5, 3) + offsetof(RecordHeader, size), 12),
            "level 5: record at byte",
            {10, 3, 10}},
           {"undescribed", patch(recordAt(6, 0), 999), "message id 999, which is not described", {10, 10, 0}},
           {"magic", badMagic, "not a ring file", {0, 0, 0}},
           {"description", patch(header.descOffset, 3), "has a bad size 3", {-1, -1, -1}},
       }) {
    auto f = RingLog::decode(c.file);
    EXPECT_TRUE(anyErrorHas(f, c.error)) << c.what << ": " << (f.ok() ? "no error" : f.errors.front());
    EXPECT_FALSE(f.ok()) << c.what;
    for (int i = 0; i < 3; ++i) {
      if (c.counts[i] >= 0) {
        EXPECT_EQ(countAt(f, std::array{0, 5, 6}[i]), c.counts[i]) << c.what << " level " << i;
      }
    }
  }
  std::string lastOfLevel6;
  for (auto const& r : RingLog::decode(bytes.substr(0, recordAt(6, 4) + 20)).records) {
    if (r.level == 6) lastOfLevel6 = r.text;
  }
  EXPECT_EQ(lastOfLevel6, "level 6 record 3 of Vxlan1");
  EXPECT_TRUE(anyErrorHas(RingLog::decodeFile(dir.path() + "/none.rl"), "cannot read"));
}

// Whatever bytes are damaged, the decoder reads only inside the file and gives sound records.
TEST_F(DamagedFileTest, RandomDamageNeverReadsOutsideTheFile) {
  std::mt19937 rng(20240611);
  std::size_t ringsEnd = header.rings[6].offset + header.rings[6].capacity;
  std::uniform_int_distribution<std::size_t> region(0, 2);
  for (int round = 0; round < 400; ++round) {
    std::string b = bytes;
    for (int k = 0; k < 4; ++k) {
      std::size_t lo = 0, hi = sizeof(FileHeader);
      if (auto r = region(rng); r == 1) {
        lo = header.descOffset, hi = header.descOffset + header.descUsed;
      } else if (r == 2) {
        lo = header.rings[0].offset, hi = ringsEnd;
      }
      b[std::uniform_int_distribution<std::size_t>(lo, hi - 1)(rng)] = static_cast<char>(rng());
    }
    if (round % 4 == 0) b.resize(std::uniform_int_distribution<std::size_t>(0, b.size())(rng));
    auto f = RingLog::decode(b);
    for (std::size_t k = 0; k < f.records.size(); ++k) {
      ASSERT_TRUE(f.records[k].level >= 0 && f.records[k].level < 10);
      if (k) {
        ASSERT_LT(f.records[k - 1].seq, f.records[k].seq);
      }
    }
  }
}

}  // namespace
