#include <string>

#include "tests/unit/view_test.h"

// The view of DNS domains.
namespace qdt::test {
namespace {

constexpr uint32_t kDomains = 90;

class DnsTest : public ViewTest {};

Record Domain(const std::string &name, uint8_t matchType = 228, uint8_t id = 232) {
  return Record(136)
      .Copy(0, name)
      .U8(128, matchType)
      .U8(129, 0xEE)
      .U16(130, 0xEEEE)
      .U8(132, id)
      .U8(133, 0xEE)
      .U16(134, 0xEEEE);
}

std::string DomainText(const std::string &name) {
  return "  DomainID           :  232\n  DomainMatchType    :  228\n  Domain             :  " + name + "\n\n";
}

TEST_F(DnsTest, Lists) {
  ExpectLists("66", kDomains, NqeTableSearchDnsDomain,
              {Domain("a.example"), Domain(""), Domain("*.example.org")},
              {DomainText("a.example"), DomainText(""), DomainText("*.example.org")});
  EXPECT_EQ(platform.walks.front(), "next 90 272");
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_dnsdomain");
}

TEST_F(DnsTest, ANameEndsAtItsNulOrTheEndOfItsField) {
  const std::string longest(127, 'd');
  EXPECT_EQ(FormatText(NqeTableFormatDnsDomain, Domain(longest)), DomainText(longest));
  const std::string unterminated(128, 'e');
  EXPECT_EQ(FormatText(NqeTableFormatDnsDomain, Domain(unterminated)), DomainText(unterminated));
  EXPECT_EQ(FormatText(NqeTableFormatDnsDomain, Domain(std::string("a.b\0c", 5))), DomainText("a.b"));
}

TEST_F(DnsTest, IdAndMatchType) {
  EXPECT_EQ(FormatText(NqeTableFormatDnsDomain, Domain("x", 255, 0)),
            "  DomainID           :  0\n  DomainMatchType    :  255\n  Domain             :  x\n\n");
  EXPECT_EQ(FormatText(NqeTableFormatDnsDomain, Domain("x", 0, 255)),
            "  DomainID           :  255\n  DomainMatchType    :  0\n  Domain             :  x\n\n");
}

TEST_F(DnsTest, LengthsAndRoom) {
  ExpectFormatsEach(NqeTableFormatDnsDomain, Domain("a.example"));
  ExpectBoundedByRoom(NqeTableFormatDnsDomain, Domain(std::string(128, 'e')));
}

}  // namespace
}  // namespace qdt::test
