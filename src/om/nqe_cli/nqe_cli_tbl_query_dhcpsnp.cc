#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/engine/dhcp_snooping.h"
#include "src/om/nqe_cli/table_view.h"

// View of the DHCP-snooping bindings.
using qdt::Address;
using qdt::DhcpSnoopingBinding;

static const char *ProtocolName(uint8_t protocol) {
  switch (protocol) {
    case qdt::kBoundByDhcp:
      return "Dhcp";
    case qdt::kBoundByDhcpv6:
      return "Dhcpv6";
    default:
      return "Nd";
  }
}

NQE_TABLE_SEARCH(DhcpSnpBind) { return search.NextOf<DhcpSnoopingBinding>(qdt::kTableDhcpSnooping); }

NQE_TABLE_FORMAT_EACH(DhcpSnpBind, DhcpSnoopingBinding) {
  text.Print<
      "  FwdIfIndex    :  %d\n"
      "  Vlan          :  %u\n"
      "  Ipv4Addr      :  %s\n"
      "  Ipv6Addr      :  %s\n"
      "  IsPrefix      :  %d\n"
      "  PrefixLen     :  %d\n"
      "  Mac           :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  BindType      :  %s\n"
      "  ClientReqTime :  %u\n"
      "  ProtoType     :  %s\n\n">(e.fwdIfIndex, e.vlanId, Address(e.ipv4Address), Address(e.ipv6Address),
                                   e.isPrefix, e.prefixLength, qdt::Mac(e.mac),
                                   e.type == qdt::kStaticBinding ? "Static" : "Dynamic", e.requestTime,
                                   ProtocolName(e.protocol));
}
