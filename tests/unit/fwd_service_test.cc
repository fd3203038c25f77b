#include <string>

#include "tests/fake_platform/fake_platform.h"

// The ingress services of a forwarding interface and the check of the ACL groups that they are bound to.
namespace qdt::test {
namespace {

constexpr size_t kL1Count = 1008, kL1Services = 1016, kL3Count = 1400, kL3Services = 1408;

class FwdServiceTest : public PlatformTest {
 protected:
  void *AddGroup(uint32_t type, uint32_t id) {
    return platform.AddEntry(24, Key(type, id), Record(40).U32(0, type).U32(4, id).bytes(), 8);
  }

  // The lines behind "IngSvcSet:".
  static std::string ServiceLines(const Record &record) {
    std::string area(20000, '#');
    EXPECT_GT(NqeTableFormatFwdif(area.data(), 20000, record.data(), record.size()), 0);
    const std::string text = area.c_str();
    const std::string title = "\nIngSvcSet:\n";
    return text.substr(text.find(title) + title.size());
  }
};

// What makes a service of types 0 to 25 intact: nothing, always, or a group of this type that it is bound to.
constexpr char kRules[] =
    "-+20"
    "22222"
    "00000"
    "22222"
    "00000"
    "++";

TEST_F(FwdServiceTest, EveryTypeGroupAndBinding) {
  constexpr uint32_t kId = 70000;
  const void *groups[3];
  for (uint32_t type = 0; type < 3; ++type) groups[type] = AddGroup(type, kId);
  int other = 0;
  for (int type = 0; type < 256; ++type) {
    for (const uint16_t groupType : {0, 2, 1}) {
      struct Binding {
        uint32_t id;
        const void *bound;
        bool right;
      };
      const Binding bindings[] = {
          {kId, groups[groupType], true},
          {kId, &other, false},
          {kId, groups[(groupType + 1) % 3], false},  // another group's entry
          {kId, nullptr, false},
          {kId + 1, groups[groupType], false},  // no such group
          {kId + 1, nullptr, false},
      };
      for (const Binding &b : bindings) {
        const char rule = type < 26 ? kRules[type] : '-';
        const bool intact = rule == '+' || (rule == '0' + groupType && b.right);
        const Record record = Record(1544)
                                  .U32(kL1Count, 1)
                                  .U8(kL1Services, static_cast<uint8_t>(type))
                                  .U16(kL1Services + 2, groupType)
                                  .U32(kL1Services + 4, b.id)
                                  .Address(kL1Services + 8, b.bound);
        platform.searches.clear();
        ASSERT_EQ(ServiceLines(record), "  [ 0]L1Svc=" + std::to_string(type) + ", 0, " +
                                            std::to_string(groupType) + ", " + std::to_string(b.id) +
                                            (intact ? ", aptr(OK)\n" : ", aptr(Error)\n"));
        // Types that have no group, or are none, are not looked up.
        ASSERT_EQ(platform.searches.size(), rule == '0' || rule == '2' ? 1u : 0u) << type;
      }
    }
  }
}

TEST_F(FwdServiceTest, LooksUpTypeAndId) {
  AddGroup(2, 0x01020304);
  ServiceLines(Record(1544)
                   .U32(kL1Count, 1)
                   .U8(kL1Services, 4)
                   .U16(kL1Services + 2, 0xABCD)
                   .U32(kL1Services + 4, 0x11223344));
  EXPECT_EQ(platform.searches, (std::vector<std::string>{"search 24 cdab000044332211"}));
}

TEST_F(FwdServiceTest, FailingLookupIsAnError) {
  const void *group = AddGroup(2, 5);
  const Record record = Record(1544)
                            .U32(kL1Count, 1)
                            .U8(kL1Services, 2)
                            .U16(kL1Services + 2, 2)
                            .U32(kL1Services + 4, 5)
                            .Address(kL1Services + 8, group);
  EXPECT_EQ(ServiceLines(record), "  [ 0]L1Svc=2, 0, 2, 5, aptr(OK)\n");
  for (const int32_t code : {-1, -7, 1, 2}) {
    platform.FailTable(24, code);
    EXPECT_EQ(ServiceLines(record), "  [ 0]L1Svc=2, 0, 2, 5, aptr(Error)\n") << code;
  }
}

// The entry's address is that of the group's data, behind its key.
TEST_F(FwdServiceTest, BoundToTheGroupsDataNotItsKey) {
  const char *group = static_cast<const char *>(AddGroup(2, 5));
  const Record record = Record(1544)
                            .U32(kL1Count, 1)
                            .U8(kL1Services, 2)
                            .U16(kL1Services + 2, 2)
                            .U32(kL1Services + 4, 5)
                            .Address(kL1Services + 8, group - 8);
  EXPECT_EQ(ServiceLines(record), "  [ 0]L1Svc=2, 0, 2, 5, aptr(Error)\n");
}

// All 24 and 4 entries set, each with values of its own.
Record ManyServices(int32_t l1Count, int32_t l3Count) {
  Record record(1544);
  record.U32(kL1Count, static_cast<uint32_t>(l1Count)).U32(kL3Count, static_cast<uint32_t>(l3Count));
  for (uint32_t i = 0; i < 24; ++i) {
    const size_t at = kL1Services + 16 * i;
    record.U8(at, 24).U8(at + 1, static_cast<uint8_t>(100 + i)).U16(at + 2, static_cast<uint16_t>(200 + i));
    record.U32(at + 4, 300 + i);
  }
  for (uint32_t i = 0; i < 4; ++i) {
    const size_t at = kL3Services + 16 * i;
    record.U8(at, static_cast<uint8_t>(250 + i)).U8(at + 1, static_cast<uint8_t>(i));
    record.U16(at + 2, static_cast<uint16_t>(400 + i)).U32(at + 4, 500 + i);
  }
  return record;
}

constexpr char kL3Lines[] =
    "  [ 0]L3Svc=250, 0, 400, 500, aptr(unknown)\n"
    "  [ 1]L3Svc=251, 1, 401, 501, aptr(unknown)\n"
    "  [ 2]L3Svc=252, 2, 402, 502, aptr(unknown)\n"
    "  [ 3]L3Svc=253, 3, 403, 503, aptr(unknown)\n";

std::string L1Lines(int count) {
  std::string lines;
  for (int i = 0; i < count; ++i) {
    lines += std::string("  [") + (i < 10 ? " " : "") + std::to_string(i) + "]L1Svc=24, " +
             std::to_string(100 + i) + ", " + std::to_string(200 + i) + ", " + std::to_string(300 + i) +
             ", aptr(OK)\n";
  }
  return lines;
}

TEST_F(FwdServiceTest, CountsAreBoundedByTheArrays) {
  EXPECT_EQ(ServiceLines(ManyServices(0, 0)), "");
  EXPECT_EQ(ServiceLines(ManyServices(1, 0)), "  [ 0]L1Svc=24, 100, 200, 300, aptr(OK)\n");
  EXPECT_EQ(ServiceLines(ManyServices(24, 4)), L1Lines(24) + kL3Lines);
  EXPECT_EQ(ServiceLines(ManyServices(25, 5)), L1Lines(24) + kL3Lines);
  EXPECT_EQ(ServiceLines(ManyServices(30, 9)), L1Lines(24) + kL3Lines);
  EXPECT_EQ(ServiceLines(ManyServices(INT32_MAX, INT32_MAX)), L1Lines(24) + kL3Lines);
  EXPECT_EQ(ServiceLines(ManyServices(11, 0)), L1Lines(11));
  EXPECT_EQ(ServiceLines(ManyServices(0, 3)).size(), 3 * std::string(kL3Lines).size() / 4);
}

TEST_F(FwdServiceTest, CountsBelowZeroPrintNothing) {
  EXPECT_EQ(ServiceLines(ManyServices(-1, -1)), "");
  EXPECT_EQ(ServiceLines(ManyServices(INT32_MIN, 4)), kL3Lines);
  EXPECT_EQ(ServiceLines(ManyServices(2, INT32_MIN)), L1Lines(2));
}

TEST_F(FwdServiceTest, FieldsAreUnsigned) {
  const Record record = Record(1544)
                            .U32(kL1Count, 1)
                            .U32(kL3Count, 1)
                            .U8(kL1Services, 255)
                            .U8(kL1Services + 1, 255)
                            .U16(kL1Services + 2, 65535)
                            .U32(kL1Services + 4, 4294967295u)
                            .U8(kL3Services, 128)
                            .U8(kL3Services + 1, 254)
                            .U16(kL3Services + 2, 65534)
                            .U32(kL3Services + 4, 4294967294u);
  EXPECT_EQ(ServiceLines(record),
            "  [ 0]L1Svc=255, 255, 65535, 4294967295, aptr(Error)\n"
            "  [ 0]L3Svc=128, 254, 65534, 4294967294, aptr(unknown)\n");
}

}  // namespace
}  // namespace qdt::test
