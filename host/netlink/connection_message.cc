#include "host/netlink/connection_message.h"

#include <endian.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <netinet/in.h>

namespace qdt::host {
namespace {

uint16_t Short(const nlattr *attribute) { return be16toh(Number<uint16_t>(attribute)); }
uint32_t Word(const nlattr *attribute) { return be32toh(Number<uint32_t>(attribute)); }

bool ReadTuple(const nlattr *nest, Family family, Tuple *tuple) {
  const Attributes<CTA_TUPLE_MAX> parts(nest);
  const Attributes<CTA_IP_MAX> ip(parts[CTA_TUPLE_IP]);
  const Attributes<CTA_PROTO_MAX> proto(parts[CTA_TUPLE_PROTO]);
  *tuple = {};
  tuple->family = family;
  const nlattr *source = ip[family == kIpv4 ? CTA_IP_V4_SRC : CTA_IP_V6_SRC];
  const nlattr *destination = ip[family == kIpv4 ? CTA_IP_V4_DST : CTA_IP_V6_DST];
  if (Payload(source).size() != BytesOf(family) || Payload(destination).size() != BytesOf(family))
    return false;
  tuple->source = IpOf(source, family);
  tuple->destination = IpOf(destination, family);
  tuple->protocol = Number<uint8_t>(proto[CTA_PROTO_NUM]);
  tuple->zone = Short(parts[CTA_TUPLE_ZONE]);
  const bool v4 = proto.Has(CTA_PROTO_ICMP_ID), v6 = proto.Has(CTA_PROTO_ICMPV6_ID);
  if (v4 || v6) {
    tuple->sourcePort = Short(proto[v4 ? CTA_PROTO_ICMP_ID : CTA_PROTO_ICMPV6_ID]);
    const auto type = Number<uint8_t>(proto[v4 ? CTA_PROTO_ICMP_TYPE : CTA_PROTO_ICMPV6_TYPE]);
    const auto code = Number<uint8_t>(proto[v4 ? CTA_PROTO_ICMP_CODE : CTA_PROTO_ICMPV6_CODE]);
    tuple->destinationPort = static_cast<uint16_t>(type << 8 | code);
  } else {
    tuple->sourcePort = Short(proto[CTA_PROTO_SRC_PORT]);
    tuple->destinationPort = Short(proto[CTA_PROTO_DST_PORT]);
  }
  return true;
}

bool ReadHead(const Message &message, uint16_t subsystem, Family *family) {
  const auto *head = message.Head<nfgenmsg>();
  return head != nullptr && NFNL_SUBSYS_ID(message.type) == subsystem && FamilyOf(head->nfgen_family, family);
}

// Builds attributes one behind the other.
class Request {
 public:
  void Add(uint16_t type, const void *bytes, size_t size) {
    const nlattr head{static_cast<uint16_t>(NLA_HDRLEN + size), type};
    Append(&head, sizeof head);
    Append(bytes, size);
    bytes_.resize(NLA_ALIGN(bytes_.size()));
  }
  template <typename T>
  void AddNumber(uint16_t type, T number) {
    Add(type, &number, sizeof number);
  }
  void AddNest(uint16_t type, const Request &nest) {
    Add(type | NLA_F_NESTED, nest.bytes_.data(), nest.bytes_.size());
  }
  void Append(const void *bytes, size_t size) {
    const auto *from = static_cast<const uint8_t *>(bytes);
    bytes_.insert(bytes_.end(), from, from + size);
  }
  std::vector<uint8_t> Take() { return std::move(bytes_); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace

const uint16_t kDeleteConnection = NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_DELETE;

bool ReadConnection(const Message &message, ConnectionMessage *connection) {
  Family family;
  if (!ReadHead(message, NFNL_SUBSYS_CTNETLINK, &family)) return false;
  const Attributes<CTA_MAX> values(message.Rest<nfgenmsg>());
  *connection = {};
  if (!ReadTuple(values[CTA_TUPLE_ORIG], family, &connection->original) ||
      !ReadTuple(values[CTA_TUPLE_REPLY], family, &connection->reply))
    return false;
  if (values.Has(CTA_ZONE)) connection->original.zone = connection->reply.zone = Short(values[CTA_ZONE]);
  Tuple master;
  if (values.Has(CTA_TUPLE_MASTER) && ReadTuple(values[CTA_TUPLE_MASTER], family, &master)) {
    master.zone = connection->original.zone;
    connection->master = master;
  }
  connection->status = Word(values[CTA_STATUS]);
  connection->id = Number<uint32_t>(values[CTA_ID]);  // kept as it is
  if (values.Has(CTA_TIMEOUT)) connection->timeout = Word(values[CTA_TIMEOUT]);
  const Attributes<CTA_PROTOINFO_MAX> info(values[CTA_PROTOINFO]);
  const Attributes<CTA_PROTOINFO_TCP_MAX> tcp(info[CTA_PROTOINFO_TCP]);
  if (tcp.Has(CTA_PROTOINFO_TCP_STATE)) connection->tcpState = Number<uint8_t>(tcp[CTA_PROTOINFO_TCP_STATE]);
  const Attributes<CTA_TIMESTAMP_MAX> times(values[CTA_TIMESTAMP]);
  connection->start = be64toh(Number<uint64_t>(times[CTA_TIMESTAMP_START]));
  connection->gone = NFNL_MSG_TYPE(message.type) == IPCTNL_MSG_CT_DELETE;
  return true;
}

bool ReadExpectation(const Message &message, Expectation *expectation) {
  Family family;
  if (!ReadHead(message, NFNL_SUBSYS_CTNETLINK_EXP, &family)) return false;
  const Attributes<CTA_EXPECT_MAX> values(message.Rest<nfgenmsg>());
  *expectation = {};
  if (!ReadTuple(values[CTA_EXPECT_TUPLE], family, &expectation->tuple) ||
      !ReadTuple(values[CTA_EXPECT_MASK], family, &expectation->mask))
    return false;
  expectation->tuple.zone = Short(values[CTA_EXPECT_ZONE]);
  expectation->id = Number<uint32_t>(values[CTA_EXPECT_ID]);
  expectation->timeout = Word(values[CTA_EXPECT_TIMEOUT]);
  expectation->gone = NFNL_MSG_TYPE(message.type) == IPCTNL_MSG_EXP_DELETE;
  return true;
}

std::vector<uint8_t> DeletionOf(const Tuple &original, uint32_t id) {
  const bool v4 = original.family == kIpv4;
  Request ip, proto, tuple, whole;
  ip.Add(v4 ? CTA_IP_V4_SRC : CTA_IP_V6_SRC, original.source.data(), BytesOf(original.family));
  ip.Add(v4 ? CTA_IP_V4_DST : CTA_IP_V6_DST, original.destination.data(), BytesOf(original.family));
  proto.AddNumber(CTA_PROTO_NUM, original.protocol);
  if (original.protocol == IPPROTO_ICMP || original.protocol == IPPROTO_ICMPV6) {
    const bool isV4 = original.protocol == IPPROTO_ICMP;
    proto.AddNumber(isV4 ? CTA_PROTO_ICMP_ID : CTA_PROTO_ICMPV6_ID, htobe16(original.sourcePort));
    proto.AddNumber(isV4 ? CTA_PROTO_ICMP_TYPE : CTA_PROTO_ICMPV6_TYPE,
                    static_cast<uint8_t>(original.destinationPort >> 8));
    proto.AddNumber(isV4 ? CTA_PROTO_ICMP_CODE : CTA_PROTO_ICMPV6_CODE,
                    static_cast<uint8_t>(original.destinationPort));
  } else {
    proto.AddNumber(CTA_PROTO_SRC_PORT, htobe16(original.sourcePort));
    proto.AddNumber(CTA_PROTO_DST_PORT, htobe16(original.destinationPort));
  }
  tuple.AddNest(CTA_TUPLE_IP, ip);
  tuple.AddNest(CTA_TUPLE_PROTO, proto);
  const nfgenmsg head{static_cast<uint8_t>(v4 ? AF_INET : AF_INET6), NFNETLINK_V0, 0};
  whole.Append(&head, sizeof head);
  whole.AddNest(CTA_TUPLE_ORIG, tuple);
  if (original.zone != 0) whole.AddNumber(CTA_ZONE, htobe16(original.zone));
  whole.AddNumber(CTA_ID, id);
  return whole.Take();
}

}  // namespace qdt::host
