#include "host/base/trust.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

std::string Problem(const std::string &user) {
  try {
    TrustUser(user);
  } catch (const HostError &error) {
    return error.what();
  }
  return "";
}

TEST(Trust, RootAndOneselfAreTrustedOthersAreNot) {
  EXPECT_TRUE(IsTrusted(0));
  EXPECT_TRUE(IsTrusted(geteuid()));
  EXPECT_FALSE(IsTrusted(4711));
  EXPECT_EQ(Problem("4711"), "");
  EXPECT_TRUE(IsTrusted(4711));
  EXPECT_FALSE(IsTrusted(4712));
}

TEST(Trust, UsersAreNamedOrNumbered) {
  EXPECT_EQ(UserName(0), "root");
  EXPECT_EQ(UserName(4294000000), "4294000000");
  EXPECT_EQ(Problem("root"), "");
  for (const char *nobody : {"", "no such user", "-1", "4294967295", "4294967296", "0x10", "roo", "root:x"})
    EXPECT_EQ(Problem(nobody), "--trust: no user " + Quoted(nobody) + " is in /etc/passwd; name a number");
}

}  // namespace
}  // namespace qdt::host
