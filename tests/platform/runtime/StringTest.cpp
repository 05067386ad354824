#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "runtime/String.h"

namespace {

TEST(String, Operations) {
  Brix::String empty;
  EXPECT_EQ(empty.size(), 0u);
  EXPECT_EQ(empty, Brix::String(static_cast<char const*>(nullptr)));

  Brix::String s("Vxlan1");
  EXPECT_EQ(s.size(), 6u);
  EXPECT_EQ(s.view(), "Vxlan1");
  EXPECT_EQ(std::string(s.data(), s.size()), "Vxlan1");
  EXPECT_TRUE(s.startsWith("Vx"));
  EXPECT_TRUE(s.startsWith(""));
  EXPECT_FALSE(s.startsWith("Vxlan10"));
  EXPECT_TRUE(s.endsWith("an1"));
  EXPECT_FALSE(s.endsWith("Vx"));

  EXPECT_EQ(s.addLeft("Ethernet-"), Brix::String("Ethernet-Vxlan1"));
  EXPECT_EQ(s.addRight(".100"), Brix::String("Vxlan1.100"));
  EXPECT_EQ(s, Brix::String("Vxlan1")) << "addLeft and addRight leave the string alone";
  s.append("/").append("2");
  s += "x";
  EXPECT_EQ(s.view(), "Vxlan1/2x");

  EXPECT_LT(Brix::String("a").compare("b"), 0);
  EXPECT_GT(Brix::String("b").compare("a"), 0);
  EXPECT_EQ(Brix::String("ab").compare("ab"), 0);
  EXPECT_LT(Brix::String("ab").compare("abc"), 0);
  EXPECT_TRUE(Brix::String("Vxlan10") < Brix::String("Vxlan2"));
  EXPECT_NE(Brix::String("a"), Brix::String("A"));
}

TEST(BoundedString, RejectsMoreThanItsMaximumLength) {
  using VrfName = Brix::BoundedString<100>;
  EXPECT_EQ(VrfName::maxLength(), 100u);
  std::string const hundred(100, 'v');
  EXPECT_EQ(VrfName(std::string_view(hundred)).size(), 100u);
  EXPECT_EQ(VrfName(Brix::String(hundred)).size(), 100u);
  EXPECT_TRUE(VrfName(std::string_view()).empty());

  for (auto const& tooLong : {std::string(101, 'v'), std::string(1000, 'v')}) {
    try {
      VrfName name{std::string_view(tooLong)};
      FAIL() << "accepted " << tooLong.size() << " bytes";
    } catch (Brix::RangeException const& e) {
      EXPECT_STREQ(e.what(), "Vok::String::bytes > maxLength() not allowed");
    }
  }
  EXPECT_THROW(VrfName(Brix::String(std::string(101, 'v'))), Brix::RangeException);

  // The limit is in bytes, not characters: 50 two-byte characters fit, 51 do not.
  std::string twoByte;
  for (int i = 0; i < 50; ++i) twoByte += "\xc3\xa9";
  EXPECT_EQ(VrfName(std::string_view(twoByte)).size(), 100u);
  twoByte += "\xc3\xa9";
  EXPECT_THROW(VrfName(std::string_view(twoByte)), Brix::RangeException);
}

}  // namespace
