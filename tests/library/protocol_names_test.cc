#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "platform/engine.h"

namespace {

TEST(ProtocolNamesTest, KnowTheControlPlanesProtocols) {
  EXPECT_STREQ(QdtGetNameByProId(0), "arp-request");
  EXPECT_STREQ(QdtGetNameByProId(12), "dns");
  EXPECT_STREQ(QdtGetNameByProId(32), "8021x");
  EXPECT_EQ(QdtGetProIdByName("arp-request"), 0u);
  EXPECT_EQ(QdtGetProIdByName("dns"), 12u);
  EXPECT_EQ(QdtGetProIdByName("8021x"), 32u);
}

TEST(ProtocolNamesTest, WhatIsNotKnown) {
  EXPECT_EQ(QdtGetNameByProId(254), nullptr);
  EXPECT_EQ(QdtGetNameByProId(255), nullptr);
  EXPECT_EQ(QdtGetNameByProId(65536), nullptr);
  EXPECT_EQ(QdtGetProIdByName("no-such-protocol"), 254u);
  EXPECT_EQ(QdtGetProIdByName("dn"), 254u);
  EXPECT_EQ(QdtGetProIdByName("dnsx"), 254u);
  EXPECT_EQ(QdtGetProIdByName("DNS"), 254u);
  EXPECT_EQ(QdtGetProIdByName(""), 254u);
  EXPECT_EQ(QdtGetProIdByName(nullptr), 254u);
}

// A key word "0" asks by number, "all" and "num..." ask for lists, and 254 is no protocol's id.
TEST(ProtocolNamesTest, EachCanBeAskedForByItsName) {
  std::set<std::string> names;
  for (uint32_t id = 0; id < 65536; ++id) {
    const char *name = QdtGetNameByProId(id);
    if (name == nullptr) continue;
    EXPECT_NE(id, 254u);
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(QdtGetProIdByName(name), id);
    EXPECT_EQ(std::strcspn(name, " \t'\""), std::strlen(name)) << name;
    EXPECT_STRNE(name, "all");
    EXPECT_NE(std::strncmp(name, "num", 3), 0) << name;
    EXPECT_FALSE(name[0] == '0' || name[0] == '\0') << name;
  }
  EXPECT_EQ(names.size(), 56u);
}

}  // namespace
