#include "host/netconf/xml_text.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::host {
namespace {

using std::string_literals::operator""s;

TEST(XmlText, KeepsWhatADocumentCarries) {
  EXPECT_EQ(XmlText(""), "");
  EXPECT_EQ(XmlText("\n  Vrf : 1\t<&>\r\n"), "\n  Vrf : 1\t<&>\r\n");
  EXPECT_EQ(XmlText("Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb6"),
            "Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb6");
  EXPECT_EQ(XmlText("\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbd\xf4\x8f\xbf\xbd"),
            "\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbd\xf4\x8f\xbf\xbd");
}

TEST(XmlText, ReplacesEachByteThatItCannotCarry) {
  EXPECT_EQ(XmlText("a\x01\x1f\x7f"s), "a??\x7f");
  EXPECT_EQ(XmlText("a\0b"s), "a?b");
  EXPECT_EQ(XmlText("\x80\xbf"), "??") << "continuation bytes alone";
  EXPECT_EQ(XmlText("x\xc3"), "x?") << "cut at the end";
  EXPECT_EQ(XmlText("\xe2\x82x"), "??x") << "cut in the middle";
  EXPECT_EQ(XmlText("\xc0\xaf"), "??") << "two bytes for one";
  EXPECT_EQ(XmlText("\xe0\x80\xaf"), "???");
  EXPECT_EQ(XmlText("\xf0\x80\x80\xaf"), "????");
  EXPECT_EQ(XmlText("\xed\xa0\x80"), "???") << "half of a surrogate pair";
  EXPECT_EQ(XmlText("\xef\xbf\xbe\xef\xbf\xbf"), "??????") << "U+FFFE and U+FFFF";
  EXPECT_EQ(XmlText("\xf4\x90\x80\x80"), "????") << "above U+10FFFF";
  EXPECT_EQ(XmlText("\xf8\x88\x80\x80\x80\xff"), "??????");
}

}  // namespace
}  // namespace qdt::host
