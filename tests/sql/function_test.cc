#include "tests/sql/sql_fixture.h"

namespace qdt::host {
namespace {

// They ask no arena.
class FunctionTest : public testing::Test {
 protected:
  std::string Ask(const std::string &expressions) { return database_.Ask("SELECT " + expressions); }

  Database database_;
};

TEST_F(FunctionTest, InPrefix) {
  EXPECT_EQ(Ask("in_prefix('192.0.2.9', '192.0.2.0/24'), in_prefix('192.0.3.9', '192.0.2.0/24'), "
                "in_prefix('192.0.2.9', '192.0.2.9'), in_prefix('192.0.2.9', '0.0.0.0/0')"),
            "1|0|1|1\n");
  EXPECT_EQ(Ask("in_prefix('192.0.2.0/25', '192.0.2.0/24'), in_prefix('192.0.0.0/16', '192.0.2.0/24')"),
            "1|0\n");
  EXPECT_EQ(Ask("in_prefix('2001:db8::1', '2001:db8::/32'), in_prefix('2001:db9::1', '2001:db8::/32'), "
                "in_prefix('2001:db8::1', '192.0.2.0/24'), in_prefix('192.0.2.9', '::/0')"),
            "1|0|0|0\n");
  EXPECT_EQ(
      Ask("in_prefix(NULL, '192.0.2.0/24'), in_prefix('192.0.2.9', NULL), in_prefix('x', '192.0.2.0/24'), "
          "in_prefix('192.0.2.9', '192.0.2.0/33'), in_prefix('', ''), in_prefix(5, 7), in_prefix(x'ff00', "
          "'::/0')"),
      "NULL|NULL|NULL|NULL|NULL|NULL|NULL\n");
}

TEST_F(FunctionTest, PrefixLength) {
  EXPECT_EQ(Ask("prefix_length('192.0.2.0/24'), prefix_length('255.255.255.0'), prefix_length('0.0.0.0'), "
                "prefix_length('255.255.255.255'), prefix_length('2001:db8::/48'), prefix_length('ffff::')"),
            "24|24|0|32|48|16\n");
  EXPECT_EQ(
      Ask("prefix_length('255.0.255.0'), prefix_length(NULL), prefix_length('/24'), prefix_length('x')"),
      "NULL|NULL|NULL|NULL\n");
}

TEST_F(FunctionTest, Mac) {
  EXPECT_EQ(Ask("mac('02:00:5E:00:53:01'), mac('02-00-5e-00-53-01'), mac('0200.5e00.5301'), "
                "mac('0200-5e00-5301'), mac('02005e005301')"),
            "02:00:5e:00:53:01|02:00:5e:00:53:01|02:00:5e:00:53:01|02:00:5e:00:53:01|02:00:5e:00:53:01\n");
  EXPECT_EQ(Ask("mac(NULL), mac(''), mac('x'), mac('02:00:5e:00:53'), mac('02:00:5e:00:53:01:'), "
                "mac('0:200:5e:00:53:01'), mac(':02005e005301'), mac('02005e0053010')"),
            "NULL|NULL|NULL|NULL|NULL|NULL|NULL|NULL\n");
}

TEST_F(FunctionTest, IpSorts) {
  EXPECT_EQ(Ask("ip('192.0.2.9'), ip('2001:db8::9'), ip(NULL), ip('x'), ip('1.2.3')"),
            "192.000.002.009|[2001:0db8:0000:0000:0000:0000:0000:0009]|NULL|NULL|NULL\n");
  EXPECT_EQ(
      database_.Ask("SELECT group_concat(column1, ' ') FROM (SELECT column1 FROM (VALUES ('2001:db8::1'), "
                    "('203.0.113.1'), ('::1'), ('9.0.0.1'), ('192.0.2.100'), ('192.0.2.9'), ('fe80::1')) "
                    "ORDER BY ip(column1))"),
      "9.0.0.1 192.0.2.9 192.0.2.100 203.0.113.1 ::1 2001:db8::1 fe80::1\n");
}

TEST_F(FunctionTest, Ago) {
  // A second may pass between the two.
  EXPECT_EQ(Ask("ago(3600) IN (datetime('now', '-1 hour'), datetime('now', '-3599 seconds'), datetime('now', "
                "'-3601 seconds'))"),
            "1\n");
  EXPECT_EQ(Ask("ago(NULL), ago('x'), ago(1e300), ago(9223372036854775807), ago(-9e99)"),
            "NULL|NULL|NULL|NULL|NULL\n");
}

TEST_F(FunctionTest, TheirNumberOfArgumentsIsFixed) {
  EXPECT_EQ(Ask("ip()"), "error: wrong number of arguments to function ip()");
  EXPECT_EQ(Ask("in_prefix('x')"), "error: wrong number of arguments to function in_prefix()");
}

}  // namespace
}  // namespace qdt::host
