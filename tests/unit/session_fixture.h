#ifndef TESTS_UNIT_SESSION_FIXTURE_H_
#define TESTS_UNIT_SESSION_FIXTURE_H_

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "qdt/session.h"
#include "tests/unit/view_test.h"

namespace qdt::test {

// What the tests of sessions share: records written by byte offset, and the keys that they lead to.

constexpr uint32_t kSessionTable = 65;

// Addresses at which nothing is: the first page, and one that no processor maps.
constexpr uint64_t kWildAddresses[] = {0x10, 0xDEAD00000000BEE0};

// Key of an IPv4 session's direction.
inline Record Ipv4Key(uint32_t source, uint32_t destination, uint16_t sourcePort, uint16_t destinationPort,
                      uint8_t protocol, uint16_t vpn = 0) {
  return Record(16)
      .U32(0, source)
      .U32(4, destination)
      .U16(8, sourcePort)
      .U16(10, destinationPort)
      .U8(12, protocol)
      .U8(13, 0xEE)  // not looked at
      .U16(14, vpn);
}

// 2001:db8::SOURCE to 2001:db8::DESTINATION.
inline Record Ipv6Key(uint32_t source, uint32_t destination, uint16_t sourcePort, uint16_t destinationPort,
                      uint8_t protocol, uint16_t vpn = 0) {
  return Record(40)
      .U32(0, 0x20010DB8)
      .U32(12, source)
      .U32(16, 0x20010DB8)
      .U32(28, destination)
      .U16(32, sourcePort)
      .U16(34, destinationPort)
      .U8(36, protocol)
      .U8(37, 0xEE)  // not looked at
      .U16(38, vpn);
}

constexpr uint8_t kIpv6Flag = 0x01, kValidFlag = 0x20;

class SessionTest : public ViewTest {
 protected:
  // Keeps what a record leads to where it is for as long as the test runs.
  const void *Keep(const Record &record) { return kept_.emplace_back(record).data(); }

  // A valid session of this key.
  Record Session(const Record &positiveKey, uint16_t agingTime = 300) {
    const bool ipv6 = positiveKey.bytes().size() == 40;
    return Record(192)
        .U8(8, ipv6 ? kValidFlag | kIpv6Flag : kValidFlag)
        .U16(10, agingTime)
        .Address(112, Keep(positiveKey));
  }

  // Lets the table hold the record; its address there.
  void *Add(const Record &session) {
    return platform.AddEntry(kSessionTable, Key(static_cast<uint32_t>(next_++)), session.bytes());
  }

  omcc_request request_;

 private:
  std::deque<Record> kept_;
  int next_ = 0;
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_SESSION_FIXTURE_H_
