#ifndef SRC_OM_ENGINE_ACL_H_
#define SRC_OM_ENGINE_ACL_H_

#include <cstring>

#include "src/om/engine/layout.h"

// The engine's access-control lists: groups of rules of one kind, each rule with what it matches, what it
// does and, in a table of its own, what it has counted.
namespace qdt {

// Key of the ACL group table.
struct AclGroupKey {
  uint32_t groupType;
  uint32_t groupId;
};
QDT_RECORD_SIZE(AclGroupKey, 8);
QDT_FIELD_AT(AclGroupKey, groupType, 0, 4);
QDT_FIELD_AT(AclGroupKey, groupId, 4, 4);

// What the rules of an ACL group match, by the group's type.
enum AclGroupType : uint32_t {
  kAclGroupL4 = 0,       // AclL4Match
  kAclGroupL4V6 = 1,     // AclL4V6Match
  kAclGroupL2 = 2,       // AclL2Match
  kAclGroupL2L4 = 3,     // AclL2L4Match, or AclL4V6Match when its tail is marked as IPv6
  kAclGroupL4Ports = 4,  // AclL4Tail, without addresses
};

// Entry of the ACL group table. A lookup finds the data, a walk delivers the key as well.
struct AclGroupData {
  uint32_t reserved0[4];
  uint32_t instanceId;
  uint32_t groupId;
  uint32_t groupType;
  uint32_t reserved28;
};
QDT_RECORD_SIZE(AclGroupData, 32);
QDT_FIELD_AT(AclGroupData, instanceId, 16, 4);
QDT_FIELD_AT(AclGroupData, groupId, 20, 4);
QDT_FIELD_AT(AclGroupData, groupType, 24, 4);

struct AclGroupEntry {
  AclGroupKey key;
  AclGroupData data;
};
QDT_RECORD_SIZE(AclGroupEntry, 40);
QDT_FIELD_AT(AclGroupEntry, key, 0, 8);
QDT_FIELD_AT(AclGroupEntry, data, 8, 32);

// An address inside AclAction, which stands at a multiple of 4 bytes in a rule's record.
using PackedAddress [[gnu::aligned(4)]] = uint64_t;

// What happens to a packet that a rule matches. Flags are 1 for yes.
struct AclAction {
  uint32_t deny : 1, remark8021p : 1, remarkDscp : 1, car : 1, stat : 1, redirectNextHop : 1, redirectCp : 1,
      mirror : 1, newDscp : 6, observeIndex : 2, new8021p : 3, redirectNextHopV6 : 1, matchStat : 1,
      loadBalanceRedirect : 1, : 1, iptablesAccept : 1, : 4, reserved28 : 4;
  uint32_t carId;
  uint32_t redirectIp;
  uint32_t redirectIpv6[4];
  uint16_t redirectFwdIf;
  uint16_t statId;
  uint16_t loadBalanceFwdIf;
  uint16_t redirectToLocalPort;
  uint16_t domainId;
  uint16_t reserved38;
  PackedAddress boundStat;  // address of the rule's entry in the ACL statistics table
};
QDT_RECORD_SIZE(AclAction, 48);
QDT_FIELD_AT(AclAction, carId, 4, 4);
QDT_FIELD_AT(AclAction, redirectIp, 8, 4);
QDT_FIELD_AT(AclAction, redirectIpv6, 12, 16);
QDT_FIELD_AT(AclAction, redirectFwdIf, 28, 2);
QDT_FIELD_AT(AclAction, statId, 30, 2);
QDT_FIELD_AT(AclAction, loadBalanceFwdIf, 32, 2);
QDT_FIELD_AT(AclAction, redirectToLocalPort, 34, 2);
QDT_FIELD_AT(AclAction, domainId, 36, 2);
QDT_FIELD_AT(AclAction, boundStat, 40, 8);

// What a rule matches, as key and mask alike. Addresses and ports are shown as the engine keeps them, as
// plain numbers.
struct AclL4Tail {
  uint16_t srcPort, dstPort;
  uint8_t protocol, tos;
  uint8_t ttlExpired : 1, domain : 1, fragment : 2, isIpv4 : 1,
      isIpv6 : 1, : 2;  // for IPv6 the first is reserved
  uint8_t tcpFlags;
  uint16_t vrfIndex;
  uint16_t srcUserGroup, dstUserGroup;  // reserved for IPv6
  uint16_t reserved14;
};
QDT_RECORD_SIZE(AclL4Tail, 16);
QDT_FIELD_AT(AclL4Tail, srcPort, 0, 2);
QDT_FIELD_AT(AclL4Tail, dstPort, 2, 2);
QDT_FIELD_AT(AclL4Tail, protocol, 4, 1);
QDT_FIELD_AT(AclL4Tail, tos, 5, 1);
QDT_FIELD_AT(AclL4Tail, tcpFlags, 7, 1);
QDT_FIELD_AT(AclL4Tail, vrfIndex, 8, 2);
QDT_FIELD_AT(AclL4Tail, srcUserGroup, 10, 2);
QDT_FIELD_AT(AclL4Tail, dstUserGroup, 12, 2);

struct AclL4Match {
  uint32_t dstAddress, srcAddress;
  AclL4Tail tail;
};
QDT_RECORD_SIZE(AclL4Match, 24);
QDT_FIELD_AT(AclL4Match, dstAddress, 0, 4);
QDT_FIELD_AT(AclL4Match, srcAddress, 4, 4);
QDT_FIELD_AT(AclL4Match, tail, 8, 16);

struct AclL4V6Match {
  uint32_t srcAddress[4], dstAddress[4];
  AclL4Tail tail;
};
QDT_RECORD_SIZE(AclL4V6Match, 48);
QDT_FIELD_AT(AclL4V6Match, srcAddress, 0, 16);
QDT_FIELD_AT(AclL4V6Match, dstAddress, 16, 16);
QDT_FIELD_AT(AclL4V6Match, tail, 32, 16);

struct AclL2Match {
  MacAddress dmac, smac;
  uint16_t etherType, vlanId;
  uint32_t dot1p : 3, : 29;
  uint32_t reserved20;
};
QDT_RECORD_SIZE(AclL2Match, 24);
QDT_FIELD_AT(AclL2Match, dmac, 0, 6);
QDT_FIELD_AT(AclL2Match, smac, 6, 6);
QDT_FIELD_AT(AclL2Match, etherType, 12, 2);
QDT_FIELD_AT(AclL2Match, vlanId, 14, 2);

struct AclL2L4Match {
  AclL2Match l2;
  AclL4Match l4;
};
QDT_RECORD_SIZE(AclL2L4Match, 48);
QDT_FIELD_AT(AclL2L4Match, l2, 0, 24);
QDT_FIELD_AT(AclL2L4Match, l4, 24, 24);
static_assert(offsetof(AclL2L4Match, l4.tail) == offsetof(AclL4V6Match, tail),
              "the tail tells which of the two a rule holds");

template <typename Match>
struct AclKeyAndMask {
  Match key, mask;
};
QDT_FIELD_AT(AclKeyAndMask<AclL4Match>, mask, 24, 24);
QDT_FIELD_AT(AclKeyAndMask<AclL4V6Match>, mask, 48, 48);
QDT_FIELD_AT(AclKeyAndMask<AclL2Match>, mask, 24, 24);
QDT_FIELD_AT(AclKeyAndMask<AclL2L4Match>, mask, 48, 48);
QDT_FIELD_AT(AclKeyAndMask<AclL4Tail>, mask, 16, 16);

// What a rule matches, behind its priority and the type of its group.
struct AclRuleContent {
  uint32_t reserved0[2];
  uint16_t priority;
  uint16_t groupType;
  uint32_t reserved12;
  uint8_t match[192];  // AclKeyAndMask of what the group type says

  template <typename Match>
  AclKeyAndMask<Match> KeyAndMask() const {
    AclKeyAndMask<Match> copy;
    static_assert(sizeof(copy) <= sizeof(match));
    std::memcpy(&copy, match, sizeof(copy));
    return copy;
  }
};
QDT_RECORD_SIZE(AclRuleContent, 208);
QDT_FIELD_AT(AclRuleContent, priority, 8, 2);
QDT_FIELD_AT(AclRuleContent, groupType, 10, 2);
QDT_FIELD_AT(AclRuleContent, match, 16, 192);

// One rule as its view's search puts it together; the first three words are what it was asked for.
struct AclRuleRecord {
  AclGroupKey group;
  uint32_t priority;
  AclAction action;
  AclRuleContent content;
};
QDT_RECORD_SIZE(AclRuleRecord, 268);
QDT_FIELD_AT(AclRuleRecord, group, 0, 8);
QDT_FIELD_AT(AclRuleRecord, priority, 8, 4);
QDT_FIELD_AT(AclRuleRecord, action, 12, 48);
QDT_FIELD_AT(AclRuleRecord, content, 60, 208);

// Key of the ACL statistics table.
struct AclStatKey {
  AclGroupKey group;
  uint32_t statId;
};
QDT_RECORD_SIZE(AclStatKey, 12);
QDT_FIELD_AT(AclStatKey, group, 0, 8);
QDT_FIELD_AT(AclStatKey, statId, 8, 4);

// One block of a rule's counters. The engine keeps four of them apart, whose sums count.
struct AclCounters {
  uint64_t passPackets, passBytes;
  uint64_t filterPackets, filterBytes;
  uint64_t matchPackets, matchBytes;

  AclCounters &operator+=(const AclCounters &other) {
    passPackets += other.passPackets;
    passBytes += other.passBytes;
    filterPackets += other.filterPackets;
    filterBytes += other.filterBytes;
    matchPackets += other.matchPackets;
    matchBytes += other.matchBytes;
    return *this;
  }
};
QDT_RECORD_SIZE(AclCounters, 48);
QDT_FIELD_AT(AclCounters, passPackets, 0, 8);
QDT_FIELD_AT(AclCounters, passBytes, 8, 8);
QDT_FIELD_AT(AclCounters, filterPackets, 16, 8);
QDT_FIELD_AT(AclCounters, filterBytes, 24, 8);
QDT_FIELD_AT(AclCounters, matchPackets, 32, 8);
QDT_FIELD_AT(AclCounters, matchBytes, 40, 8);

// Entry of the ACL statistics table.
struct AclStatEntry {
  AclStatKey key;
  uint32_t reserved12;
  AclCounters counters[4];
};
QDT_RECORD_SIZE(AclStatEntry, 208);
QDT_FIELD_AT(AclStatEntry, key, 0, 12);
QDT_FIELD_AT(AclStatEntry, counters, 16, 192);

}  // namespace qdt

#endif  // SRC_OM_ENGINE_ACL_H_
