#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/scenario/scenario.h"
#include "tests/layout/test_layout.h"

namespace qdt::host {
namespace {

// Scenarios of several files, in a directory of their own.
class IncludeTest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(directory_ / "parts"); }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  void Put(const std::string &file, const std::string &text) { std::ofstream(directory_ / file) << text; }
  std::string Path(const std::string &file) const { return (directory_ / file).string(); }
  Scenario Load() const { return Scenario::Load(Path("s.yaml"), layout_); }
  std::string LoadError() const {
    return ErrorOf([this] { Load(); });
  }

  const Layout layout_ = KindsLayout();
  const std::filesystem::path directory_ =
      std::filesystem::temp_directory_path() / ("include_test." + std::to_string(getpid()));
};

TEST_F(IncludeTest, FilesStandBesideTheOneThatNamesThem) {
  Put("s.yaml", "include: [parts/a.yaml]\nregions: {TIMES: {tcp: 7}}\n");
  Put("parts/a.yaml", "include: [b.yaml]\nkinds: [{index: 1, peer: {group: 1, number: 2}}]\n");
  Put("parts/b.yaml", "other: [{group: 1, number: 2, back: {index: 1}}]\n");
  const Scenario scenario = Load();
  ASSERT_EQ(scenario.tables().size(), 2u);
  EXPECT_EQ(scenario.FindTable(0)->count(), 1u);
  EXPECT_EQ(scenario.FindTable(0)->references.size(), 1u);
  EXPECT_EQ(scenario.FindTable(1)->references.size(), 1u);
  EXPECT_EQ(scenario.regions().size(), 1u);
}

TEST_F(IncludeTest, TextsIncludeFilesTooAndAListMayBeEmpty) {
  Put("parts/a.yaml", "include: []\nother: [{group: 1, number: 2}]\n");
  const Scenario scenario = Scenario::FromText(Path("text"), "include: [parts/a.yaml]", layout_);
  EXPECT_EQ(scenario.FindTable(1)->count(), 1u);
}

TEST_F(IncludeTest, ErrorsNameTheFileThatTheyAreIn) {
  Put("s.yaml", "include: [parts/a.yaml]\nother: [{group: 1, number: 2, back: {index: 9}}]\n");
  Put("parts/a.yaml", "kinds:\n  - {index: 1, byte: 256}\n");
  EXPECT_EQ(LoadError(), Path("parts/a.yaml") + ":2: kinds.byte: 256 does not fit 8 bits (0 to 255)");
  Put("parts/a.yaml", "kinds:\n  - {index: 1,\n     peer: {group: 7, number: 2}}\n");
  EXPECT_EQ(LoadError(), Path("parts/a.yaml") +
                             ":3: kinds.peer: other has no entry {group: 7, number: 2} (add it, or write 0)");
  Put("parts/a.yaml", "kinds:\n  - {index: 1, peer: {group: 1, number: 2}}\n");
  EXPECT_EQ(
      LoadError(),
      Path("s.yaml") + ":2: other.back: kinds has no entry {index: 9, marker: 327680} (add it, or write 0)");
  Put("parts/a.yaml", "kinds: [");
  EXPECT_TRUE(LoadError().starts_with(Path("parts/a.yaml") + ":1: YAML syntax: ")) << LoadError();
}

TEST_F(IncludeTest, CirclesAndFilesNamedTwiceAreRefused) {
  const std::string again = " is part of the scenario already (name each file once)";
  Put("s.yaml", "include:\n  - s.yaml\n");
  EXPECT_EQ(LoadError(), Path("s.yaml") + ":2: include: \"s.yaml\"" + again);
  Put("s.yaml", "include: [parts/a.yaml]\n");
  Put("parts/a.yaml", "include: [../parts/../s.yaml]\n");
  EXPECT_EQ(LoadError(), Path("parts/a.yaml") + ":1: include: \"../parts/../s.yaml\"" + again);
  Put("s.yaml", "include: [parts/a.yaml, parts/./a.yaml]\n");
  Put("parts/a.yaml", "other: [{group: 1, number: 2}]\n");
  EXPECT_EQ(LoadError(), Path("s.yaml") + ":1: include: \"parts/./a.yaml\"" + again);
}

TEST_F(IncludeTest, ATableStandsInOneFile) {
  Put("s.yaml", "include: [parts/a.yaml]\nkinds: [{index: 1}]\nother: [{group: 3, number: 4}]\n");
  Put("parts/a.yaml", "\nother: [{group: 1, number: 2}]\n");
  EXPECT_EQ(LoadError(), Path("s.yaml") + ":3: other: stands at " + Path("parts/a.yaml") +
                             ":2 already (put everything there)");
  Put("s.yaml", "regions: {TIMES: {tcp: 1}}\ninclude: [parts/a.yaml]\n");
  Put("parts/a.yaml", "regions: {TIMES: {tcp: 2}}\n");
  EXPECT_EQ(LoadError(), Path("parts/a.yaml") + ":1: regions: stands at " + Path("s.yaml") +
                             ":1 already (put everything there)");
}

TEST_F(IncludeTest, WhatIsNoFile) {
  const std::string at = Path("s.yaml") + ":2: include: ";
  Put("s.yaml", "\ninclude: [parts/none.yaml]\n");
  EXPECT_EQ(LoadError(), at + Path("parts/none.yaml") + ": No such file or directory (name a readable file)");
  Put("s.yaml", "\ninclude: [parts]\n");
  EXPECT_EQ(LoadError(), at + Path("parts") + ": not a regular file (name a YAML file)");
  for (const char *list : {"parts/a.yaml", "{a: b}", ""}) {
    Put("s.yaml", std::string("\ninclude: ") + list + "\n");
    EXPECT_EQ(LoadError(), at + "not a list of files (write [FILE, ...])");
  }
  for (const char *entry : {"[a]", "{a: b}", "\"\"", "~"}) {
    Put("s.yaml", std::string("\ninclude: [") + entry + "]\n");
    EXPECT_EQ(LoadError(), at + "not the name of a file");
  }
  Put("s.yaml", "\nincludes: [parts/a.yaml]\n");
  EXPECT_EQ(LoadError(), Path("s.yaml") + ":2: includes: no such table (did you mean include?)");
}

// A key that takes addresses of three kinds.
Layout AddressLayout(const std::string &fields) {
  static const std::string filler = FillerTables(1);
  const std::string text =
      "tables:\n  hosts: {id: 0, name: CAP_TABLE_HOSTS, key_size: 18, record_size: 24, capacity: 300,\n"
      "          key: {address: 0 address, kind: 16 u16}, fields: {" +
      fields + "}}\n";
  return ReadLayouts({{"a.yaml", text}, {"filler.yaml", filler}});
}

std::string KeyOf(const std::string &entry, uint32_t i = 0) {
  static const Layout layout = AddressLayout("value: 0 u32");
  return Hex(Scenario::FromText("s.yaml", "hosts: [" + entry + "]", layout).FindTable(0)->key(i));
}

TEST(AddressKeyTest, HoldsWhateverIsWritten) {
  EXPECT_EQ(KeyOf("{address: 192.0.2.17, kind: 0}"), "110200c0 00000000 00000000 00000000 0000");
  EXPECT_EQ(KeyOf("{address: '2001:db8::17', kind: 1}"), "20010db8 00000000 00000000 00000017 0100");
  EXPECT_EQ(KeyOf("{address: 02:00:5e:00:53:01, kind: 7}"), "02005e00 53010000 00000000 00000000 0700");
}

TEST(AddressKeyTest, CountsAsItsKindDoes) {
  EXPECT_EQ(KeyOf("{repeat: 3, address: {from: 192.0.2.254, step: 1}, kind: 0}", 2),
            "000300c0 00000000 00000000 00000000 0000");
  EXPECT_EQ(KeyOf("{repeat: 2, address: {from: '2001:db8::ff', step: 1}, kind: 1}", 1),
            "20010db8 00000000 00000000 00000100 0100");
  EXPECT_EQ(KeyOf("{repeat: 2, address: {from: 02:00:5e:00:53:ff, step: 1}, kind: 2}", 1),
            "02005e00 54000000 00000000 00000000 0200");
}

TEST(AddressKeyTest, RefusesEverythingElse) {
  const std::string wanted = " is not an address (write an IPv4, IPv6 or MAC address)";
  for (const char *text : {"7", "192.0.2", "2001:db8::17::1", "02:00:5e:00:53"}) {
    EXPECT_EQ(ErrorOf([&] { KeyOf(std::string("{address: '") + text + "', kind: 0}"); }),
              std::string("s.yaml:1: hosts.address: \"") + text + "\"" + wanted);
  }
  EXPECT_EQ(ErrorOf([] { KeyOf("{kind: 0}"); }),
            "s.yaml:1: hosts.address: missing (it is part of the entry's key)");
  EXPECT_EQ(ErrorOf([] { AddressLayout("value: 0 address"); }),
            "a.yaml:3: hosts.value: address is for keys (a record tells which kind it holds)");
}

}  // namespace
}  // namespace qdt::host
