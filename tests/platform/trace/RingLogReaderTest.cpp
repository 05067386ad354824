#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>

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

TEST_F(DamagedFileTest, TruncatedFileGivesTheRecordsItStillHolds) {
  std::string cut = bytes.substr(0, recordAt(6, 4) + 20);
  auto f = RingLog::decode(cut);
  EXPECT_TRUE(anyErrorHas(f, "file truncated")) << f.errors.front();
  EXPECT_TRUE(anyErrorHas(f, "level 6"));
  EXPECT_EQ(countAt(f, 0), 10);
  EXPECT_EQ(countAt(f, 5), 10);
  EXPECT_EQ(countAt(f, 6), 4);
  std::string lastOfLevel6;
  for (auto const& r : f.records) {
    if (r.level == 6) lastOfLevel6 = r.text;
  }
  EXPECT_EQ(lastOfLevel6, "level 6 record 3 of Vxlan1");

  for (std::size_t size : {std::size_t{0}, sizeof(FileHeader) - 1, std::size_t{4200}}) {
    auto g = RingLog::decode(bytes.substr(0, size));
    EXPECT_FALSE(g.ok()) << size;
    if (size < sizeof(FileHeader)) {
      EXPECT_TRUE(g.records.empty());
    }
  }
}

TEST_F(DamagedFileTest, DamagedRecordEndsItsLevelOnly) {
  std::uint32_t badSize = 12;
  std::memcpy(bytes.data() + recordAt(5, 3) + offsetof(RecordHeader, size), &badSize, sizeof badSize);
  auto f = RingLog::decode(bytes);
  EXPECT_TRUE(anyErrorHas(f, "level 5: record at byte")) << (f.ok() ? "" : f.errors.front());
  EXPECT_EQ(countAt(f, 5), 3);
  EXPECT_EQ(countAt(f, 0), 10);
  EXPECT_EQ(countAt(f, 6), 10);
}

TEST_F(DamagedFileTest, RecordOfAnUndescribedMessageIsReported) {
  std::int32_t id = 999;
  std::memcpy(bytes.data() + recordAt(6, 0), &id, sizeof id);
  auto f = RingLog::decode(bytes);
  EXPECT_TRUE(anyErrorHas(f, "message id 999, which is not described"));
  EXPECT_EQ(countAt(f, 6), 0);
  EXPECT_EQ(countAt(f, 5), 10);
}

TEST_F(DamagedFileTest, DamagedHeaderOrDescriptionIsReported) {
  std::string badMagic = bytes;
  badMagic[0] = 'X';
  auto f = RingLog::decode(badMagic);
  EXPECT_TRUE(anyErrorHas(f, "not a ring file"));
  EXPECT_TRUE(f.records.empty());

  std::string badDesc = bytes;
  std::uint32_t size = 3;
  std::memcpy(badDesc.data() + header.descOffset, &size, sizeof size);
  auto g = RingLog::decode(badDesc);
  EXPECT_TRUE(anyErrorHas(g, "has a bad size 3"));
  EXPECT_FALSE(g.ok());

  auto missing = RingLog::decodeFile(dir.path() + "/none.rl");
  EXPECT_TRUE(anyErrorHas(missing, "cannot read"));
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
