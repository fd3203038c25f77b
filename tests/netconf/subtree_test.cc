#include "host/netconf/subtree.h"

#include <gtest/gtest.h>

#include <string>

namespace qdt::host {
namespace {

// Four entries: slots 0 and 1, processors 0 and 1, 10 * slot + processor drops.
std::string Data() {
  std::string xml = "<top xmlns='u'><list>";
  for (const char *each : {"00", "01", "10", "11"}) {
    xml += std::string("<entry><slot>") + each[0] + "</slot><cpu>" + each[1] + "</cpu><drops>" + each +
           "</drops></entry>";
  }
  return xml + "</list></top>";
}

bool IsKeyOfEntry(const XmlElement &leaf) {
  return leaf.parent->name == "entry" && (leaf.name == "slot" || leaf.name == "cpu");
}

// The values that a filter selects, by entry: "slot cpu [drops];".
std::string SelectedBy(const std::string &filter) {
  const auto data = ReadXml(Data());
  const auto read = ReadXml("<filter>" + filter + "</filter>");
  if (!SelectSubtree(*read, IsKeyOfEntry, data.get())) return "nothing";
  std::string text;
  for (const auto &entry : data->children[0]->children) {
    for (const auto &leaf : entry->children) text += (leaf == entry->children[0] ? "" : " ") + leaf->text;
    text += ';';
  }
  return text;
}

std::string Selected(const std::string &entry) {
  return SelectedBy("<top xmlns='u'><list>" + entry + "</list></top>");
}

TEST(Subtree, ASelectionNodeSelectsAllBelowIt) {
  EXPECT_EQ(SelectedBy("<top xmlns='u'/>"), "0 0 00;0 1 01;1 0 10;1 1 11;");
  EXPECT_EQ(SelectedBy("<top xmlns=''/>"), "0 0 00;0 1 01;1 0 10;1 1 11;");
  EXPECT_EQ(Selected("<entry/>"), "0 0 00;0 1 01;1 0 10;1 1 11;");
}

TEST(Subtree, ContentMatchesChooseEntries) {
  EXPECT_EQ(Selected("<entry><slot>1</slot></entry>"), "1 0 10;1 1 11;");
  EXPECT_EQ(Selected("<entry><slot> 1 </slot><cpu>0</cpu></entry>"), "1 0 10;");
  EXPECT_EQ(Selected("<entry><drops>11</drops></entry>"), "1 1 11;");
  EXPECT_EQ(Selected("<entry><slot>2</slot></entry>"), "nothing");
}

TEST(Subtree, KeysComeWithWhatIsSelected) {
  EXPECT_EQ(Selected("<entry><slot>1</slot><drops/></entry>"), "1 0 10;1 1 11;");
  EXPECT_EQ(Selected("<entry><drops/></entry>"), "0 0 00;0 1 01;1 0 10;1 1 11;");
  EXPECT_EQ(Selected("<entry><slot>1</slot><cpu/></entry>"), "1 0;1 1;");
}

TEST(Subtree, SeveralFiltersAreJoined) {
  EXPECT_EQ(Selected("<entry><slot>0</slot><cpu/></entry><entry><slot>0</slot><cpu>1</cpu></entry>"),
            "0 0;0 1 01;");
}

TEST(Subtree, APrefixInAValueIsWhatItStandsFor) {
  const auto selects = [](const char *value) {
    const auto data = ReadXml("<top xmlns='u'><type xmlns:p='kinds'>p:full</type></top>");
    const auto filter =
        ReadXml(std::string("<filter xmlns:q='kinds' xmlns:p='others'><top xmlns='u'><type>") + value +
                "</type></top></filter>");
    return SelectSubtree(*filter, IsKeyOfEntry, data.get());
  };
  EXPECT_TRUE(selects("q:full"));
  EXPECT_TRUE(selects("p:full"));  // as it is written
  EXPECT_FALSE(selects("q:empty"));
  EXPECT_FALSE(selects("r:full"));
  EXPECT_FALSE(selects("full"));
}

TEST(Subtree, OtherNamesAndNamespacesSelectNothing) {
  EXPECT_EQ(Selected("<other/>"), "nothing");
  EXPECT_EQ(Selected("<entry><other/></entry>"), "nothing");
  EXPECT_EQ(SelectedBy("<top xmlns='v'/>"), "nothing");
  EXPECT_EQ(SelectedBy(""), "nothing");
}

}  // namespace
}  // namespace qdt::host
