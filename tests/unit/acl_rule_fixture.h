#ifndef TESTS_UNIT_ACL_RULE_FIXTURE_H_
#define TESTS_UNIT_ACL_RULE_FIXTURE_H_

#include <string>

#include "tests/unit/view_test.h"

// ACL rules as the engine stores them: 48 bytes of action, 208 bytes of content, and the 268-byte record in
// which the view's search puts them together.
namespace qdt::test {

constexpr size_t kRuleAction = 12, kRuleContent = 60;

// What every rule below prints of its action.
inline const std::string kActionText =
    "AclAction:\n"
    "  IfDeny                   :  1\n"
    "  Rmk8021p                 :  0\n"
    "  RmkDscp                  :  1\n"
    "  CarEn                    :  0\n"
    "  StatEn                   :  1\n"
    "  RedirectNhp              :  0\n"
    "  RedirectCP               :  1\n"
    "  Mirror                   :  0\n"
    "  NewDscp                  :  43\n"
    "  ObserveIdx               :  2\n"
    "  New8021p                 :  5\n"
    "  RedirectNhpV6            :  1\n"
    "  AclMatchStatEn           :  0\n"
    "  LoadBalanceRedirectEn    :  1\n"
    "  IptablesAccept           :  0\n"
    "  Rsv2                     :  9\n"
    "  CarId                    :  4000000001\n"
    "  RedirectIP               :  4000000002\n"
    "  RedirectIPV6[0]          :  4000000003\n"
    "  RedirectIPV6[1]          :  4000000004\n"
    "  RedirectIPV6[2]          :  4000000005\n"
    "  RedirectIPV6[3]          :  4000000006\n"
    "  RedirectFwdif            :  40001\n"
    "  StatId                   :  40002\n"
    "  LoadBalanceRedirectFwdif :  40003\n"
    "  RedirectToLocalPort      :  40004\n"
    "  DomainID                 :  40005\n";

// The 48 bytes that print it, with what is never shown set as well.
inline Record Action(const void *stat) {
  return Record(48)
      .U32(0, 1 << 0 | 1 << 2 | 1 << 4 | 1 << 6 | 43 << 8 | 2 << 14 | 5 << 16 | 1 << 19 | 1 << 21 | 9u << 28)
      .Bits(0, 22, 1)
      .Bits(0, 24, 15)
      .U32(4, 4000000001u)
      .U32(8, 4000000002u)
      .U32(12, 4000000003u)
      .U32(16, 4000000004u)
      .U32(20, 4000000005u)
      .U32(24, 4000000006u)
      .U16(28, 40001)
      .U16(30, 40002)
      .U16(32, 40003)
      .U16(34, 40004)
      .U16(36, 40005)
      .U16(38, 40006)
      .Address(40, stat);
}

// Content of a rule of priority 50001, with the header's unused words set.
inline Record Content(uint16_t groupType) {
  return Record(208).U64(0, ~uint64_t{0}).U16(8, 50001).U16(10, groupType).U32(12, ~0u);
}

// A key's and a mask's tail.
inline void PutIpv4Tail(Record &content, size_t key, size_t mask) {
  content.U16(key, 60001).U16(key + 2, 60002).U8(key + 4, 201).U8(key + 5, 202);
  content.U8(key + 6, 1 << 0 | 2 << 2 | 1 << 4 | 3 << 6).U8(key + 7, 203);
  content.U16(key + 8, 60003).U16(key + 10, 60004).U16(key + 12, 60005).U16(key + 14, 60006);
  content.U16(mask, 61001).U16(mask + 2, 61002).U8(mask + 4, 211).U8(mask + 5, 212);
  content.U8(mask + 6, 1 << 1 | 3 << 2 | 1 << 5).U8(mask + 7, 213);
  content.U16(mask + 8, 61003).U16(mask + 10, 61004).U16(mask + 12, 61005).U16(mask + 14, 61006);
}

inline void PutIpv4(Record &content, size_t key, size_t mask) {
  content.U32(key, 3232235777u).U32(key + 4, 3232235778u);
  content.U32(mask, 4294967041u).U32(mask + 4, 4294967042u);
  PutIpv4Tail(content, key + 8, mask + 8);
}

inline void PutL2(Record &content, size_t key, size_t mask) {
  content.Copy(key, {"\x00\x11\x22\x33\x44\x5f\xa0\xb1\xc2\xd3\xe4\xf5", 12});
  content.U16(key + 12, 34525).U16(key + 14, 4094).U32(key + 16, ~7u | 5).U32(key + 20, ~0u);
  content.Copy(mask, {"\xff\xfe\xfd\xfc\xfb\xfa\x0f\x1e\x2d\x3c\x4b\x5a", 12});
  content.U16(mask + 12, 65535).U16(mask + 14, 4095).U32(mask + 16, 7).U32(mask + 20, ~0u);
}

// IPv6 key at 16, mask at 64.
inline void PutIpv6(Record &content) {
  content.U32(16, 0xa0000001).U32(20, 0xa0000002).U32(24, 3).U32(28, 0xa0000004);
  content.U32(32, 0xb0000001).U32(36, 0xb0000002).U32(40, 0xb0000003).U32(44, 0);
  content.U16(48, 62001).U16(50, 62002).U8(52, 221).U8(53, 222);
  content.U8(54, 1 << 1 | 1 << 2 | 1 << 5).U8(55, 223);
  content.U16(56, 62003).U16(58, 62004).U16(60, 62005).U16(62, 62006);
  content.U32(64, 0xc0000001).U32(68, 0xc0000002).U32(72, 0xc0000003).U32(76, 0xffffffff);
  content.U32(80, 0xd0000001).U32(84, 0xd).U32(88, 0xd0000003).U32(92, 0xd0000004);
  content.U16(96, 63001).U16(98, 63002).U8(100, 231).U8(101, 232);
  content.U8(102, 1 << 0 | 2 << 2 | 1 << 4).U8(103, 233);
  content.U16(104, 63003).U16(106, 63004).U16(108, 63005).U16(110, 63006);
}

inline Record Ipv4Content() {
  Record content = Content(0);
  PutIpv4(content, 16, 40);
  return content;
}

// The record of one rule, which was asked for with these keys.
inline Record Rule(const Record &action, const Record &content, uint32_t groupType = 0, uint32_t groupId = 0,
                   uint32_t priority = 0) {
  const auto text = [](const Record &r) {
    return std::string_view(static_cast<const char *>(r.data()), r.bytes().size());
  };
  return Record(268)
      .U32(0, groupType)
      .U32(4, groupId)
      .U32(8, priority)
      .Copy(kRuleAction, text(action))
      .Copy(kRuleContent, text(content));
}

}  // namespace qdt::test

#endif  // TESTS_UNIT_ACL_RULE_FIXTURE_H_
