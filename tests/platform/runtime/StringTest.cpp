#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "runtime/String.h"

namespace {

TEST(String, AffixesAppendAndByteOrder) {
  Brix::String s("Vxlan1");
  EXPECT_EQ(Brix::String(), Brix::String(static_cast<char const*>(nullptr)));
  EXPECT_TRUE(s.startsWith("Vx") && s.startsWith("") && s.endsWith("an1"));
  EXPECT_FALSE(s.startsWith("Vxlan10") || s.endsWith("Vx"));
  EXPECT_EQ(s.addLeft("Ethernet-"), Brix::String("Ethernet-Vxlan1"));
  EXPECT_EQ(s.addRight(".100"), Brix::String("Vxlan1.100"));
  s.append("/").append("2");
  s += "x";
  EXPECT_EQ(s.view(), "Vxlan1/2x") << "addLeft and addRight leave the string alone";
  EXPECT_LT(Brix::String("ab").compare("abc"), 0);
  EXPECT_GT(Brix::String("b").compare("a"), 0);
  EXPECT_TRUE(Brix::String("Vxlan10") < Brix::String("Vxlan2"));
}

TEST(BoundedString, RejectsMoreBytesThanItsMaximumLength) {
  using VrfName = Brix::BoundedString<100>;
  EXPECT_EQ(VrfName(Brix::String(std::string(100, 'v'))).size(), 100u);
  try {
    VrfName name{std::string_view(std::string(101, 'v'))};
    FAIL() << "accepted 101 bytes";
  } catch (Brix::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Vok::String::bytes > maxLength() not allowed");
  }
  EXPECT_THROW(VrfName(Brix::String(std::string(101, 'v'))), Brix::RangeException);
  // Bytes, not characters: 50 two-byte characters fit, 51 do not.
  std::string twoByte;
  for (int i = 0; i < 50; ++i) twoByte += "\xc3\xa9";
  EXPECT_EQ(VrfName(std::string_view(twoByte)).size(), 100u);
  EXPECT_THROW(VrfName(std::string_view(twoByte + "\xc3\xa9")), Brix::RangeException);
}

}  // namespace
