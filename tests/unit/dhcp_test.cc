#include <string>

#include "tests/unit/view_test.h"

// The view of DHCP-snooping bindings.
namespace qdt::test {
namespace {

constexpr uint32_t kBindings = 82;

class DhcpTest : public ViewTest {};

Record Binding(uint32_t type, uint8_t protocol) {
  Record binding(44);
  binding.Copy(0, "\xA0\x0B\xC1\x0D\xE2\x0F").U16(6, 40006).U32(8, 0x0A010007);
  for (uint8_t i = 0; i < 16; ++i) binding.U8(12 + i, 0x20 + i);  // network order
  return binding.U32(28, static_cast<uint32_t>(-2000000001))
      .U8(32, protocol)
      .U8(33, 233)
      .U8(34, 234)
      .U8(35, 0xEE)
      .U32(36, type)
      .U32(40, 3000000040u);
}

std::string BindingText(const std::string &type, const std::string &protocol) {
  return "  FwdIfIndex    :  -2000000001\n"
         "  Vlan          :  40006\n"
         "  Ipv4Addr      :  10.1.0.7\n"
         "  Ipv6Addr      :  2021:2223:2425:2627:2829:2a2b:2c2d:2e2f\n"
         "  IsPrefix      :  233\n"
         "  PrefixLen     :  234\n"
         "  Mac           :  a0:0b:c1:0d:e2:0f\n"
         "  BindType      :  " +
         type +
         "\n"
         "  ClientReqTime :  3000000040\n"
         "  ProtoType     :  " +
         protocol + "\n\n";
}

TEST_F(DhcpTest, Lists) {
  ExpectLists(
      "56", kBindings, NqeTableSearchDhcpSnpBind, {Binding(0, 0), Binding(1, 1), Binding(2, 2)},
      {BindingText("Static", "Dhcp"), BindingText("Dynamic", "Dhcpv6"), BindingText("Dynamic", "Nd")});
  EXPECT_EQ(platform.walks.front(), "next 82 88");
  EXPECT_EQ(platform.allocations.back().path, "src/om/nqe_cli/nqe_cli_tbl_query_dhcpsnp");
}

TEST_F(DhcpTest, EveryOtherProtocolIsNeighbourDiscovery) {
  for (const uint8_t protocol : {2, 3, 128, 255}) {
    EXPECT_EQ(FormatText(NqeTableFormatDhcpSnpBind, Binding(0, protocol)), BindingText("Static", "Nd"));
  }
}

TEST_F(DhcpTest, EveryOtherTypeIsDynamic) {
  for (const uint32_t type : {1u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(FormatText(NqeTableFormatDhcpSnpBind, Binding(type, 0)), BindingText("Dynamic", "Dhcp"));
  }
}

TEST_F(DhcpTest, NothingBound) {
  EXPECT_EQ(FormatText(NqeTableFormatDhcpSnpBind, Record(44)),
            "  FwdIfIndex    :  0\n"
            "  Vlan          :  0\n"
            "  Ipv4Addr      :  0.0.0.0\n"
            "  Ipv6Addr      :  ::\n"
            "  IsPrefix      :  0\n"
            "  PrefixLen     :  0\n"
            "  Mac           :  00:00:00:00:00:00\n"
            "  BindType      :  Static\n"
            "  ClientReqTime :  0\n"
            "  ProtoType     :  Dhcp\n\n");
}

TEST_F(DhcpTest, LengthsAndRoom) {
  ExpectFormatsEach(NqeTableFormatDhcpSnpBind, Binding(1, 1));
  ExpectBoundedByRoom(NqeTableFormatDhcpSnpBind, Binding(1, 1));
}

}  // namespace
}  // namespace qdt::test
