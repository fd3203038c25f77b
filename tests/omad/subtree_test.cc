#include "tools/omad/subtree.h"

#include <gtest/gtest.h>

#include <numeric>
#include <set>
#include <string>

#include "host/omcc/model.h"

namespace qdt::omad {
namespace {

// Four entries: slots 0 and 1, processors 0 and 1, 10 * slot + processor drops.
class SubtreeTest : public testing::Test {
 protected:
  SubtreeTest() {
    EXPECT_NE(ly_ctx_load_module(model_.context(), "ietf-netconf", nullptr, nullptr), nullptr);
    std::string xml = "<software-fwd xmlns=\"" + kSpace + "\"><fwd-statistics-infos>";
    for (const char *each : {"00", "01", "10", "11"}) {
      xml += std::string("<fwd-statistics-info><slot-id>") + each[0] + "</slot-id><cpu-id>" + each[1] +
             "</cpu-id><packet-drop-nobuff>" + each + "</packet-drop-nobuff></fwd-statistics-info>";
    }
    data_ = Parse(xml + "</fwd-statistics-infos></software-fwd>", LYD_PARSE_ONLY);
  }

  host::OwnedTree Parse(const std::string &xml, uint32_t options) {
    lyd_node *tree = nullptr;
    EXPECT_EQ(lyd_parse_data_mem(model_.context(), xml.c_str(), LYD_XML, options, 0, &tree), LY_SUCCESS);
    return host::OwnedTree(tree);
  }

  // The values that a filter within the list selects, by entry: "slot cpu [drops];".
  std::string Selected(const std::string &entry) {
    return SelectedBy("<software-fwd xmlns=\"" + kSpace + "\"><fwd-statistics-infos>" + entry +
                      "</fwd-statistics-infos></software-fwd>");
  }

  // The filter comes out of a <get>, as it does from a client.
  std::string SelectedBy(const std::string &filter) {
    const std::string xml =
        "<get xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><filter>" + filter + "</filter></get>";
    ly_in *in = nullptr;
    lyd_node *get = nullptr;
    ly_in_new_memory(xml.c_str(), &in);
    EXPECT_EQ(lyd_parse_op(model_.context(), nullptr, in, LYD_XML, LYD_TYPE_RPC_YANG, &get, nullptr),
              LY_SUCCESS);
    ly_in_free(in, 0);
    const host::OwnedTree owned(get);
    const auto *any = reinterpret_cast<const lyd_node_any *>(lyd_child(get));
    const host::OwnedTree copy = CopyOf(SelectSubtrees(any->value.tree, data_.get()));
    if (copy == nullptr) return "nothing";
    std::set<std::string> entries;
    for (const lyd_node *entry = lyd_child(lyd_child(copy.get())); entry != nullptr; entry = entry->next) {
      std::string text;
      for (const lyd_node *leaf = lyd_child(entry); leaf != nullptr; leaf = leaf->next)
        text += std::string(leaf == lyd_child(entry) ? "" : " ") + lyd_get_value(leaf);
      EXPECT_TRUE(entries.insert(text + ";").second) << "twice: " << text;
    }
    return std::accumulate(entries.begin(), entries.end(), std::string());
  }

  const std::string kSpace = "urn:tavrix:params:xml:ns:yang:tavrix-software-fwd";
  host::Model model_{"/usr/share/yuma/modules/ietf"};
  host::OwnedTree data_;
};

TEST_F(SubtreeTest, ASelectionNodeSelectsAllBelowIt) {
  EXPECT_EQ(SelectedBy("<software-fwd xmlns=\"" + kSpace + "\"/>"), "0 0 0;0 1 1;1 0 10;1 1 11;");
  EXPECT_EQ(Selected("<fwd-statistics-info/>"), "0 0 0;0 1 1;1 0 10;1 1 11;");
}

TEST_F(SubtreeTest, ContentMatchesChooseEntries) {
  EXPECT_EQ(Selected("<fwd-statistics-info><slot-id>1</slot-id></fwd-statistics-info>"), "1 0 10;1 1 11;");
  EXPECT_EQ(Selected("<fwd-statistics-info><slot-id> 1 </slot-id><cpu-id>0</cpu-id></fwd-statistics-info>"),
            "1 0 10;");
  EXPECT_EQ(
      Selected("<fwd-statistics-info><packet-drop-nobuff>11</packet-drop-nobuff></fwd-statistics-info>"),
      "1 1 11;");
  EXPECT_EQ(Selected("<fwd-statistics-info><slot-id>2</slot-id></fwd-statistics-info>"), "nothing");
}

TEST_F(SubtreeTest, KeysComeWithWhatIsSelected) {
  EXPECT_EQ(Selected("<fwd-statistics-info><slot-id>1</slot-id><packet-drop-nobuff/></fwd-statistics-info>"),
            "1 0 10;1 1 11;");
  EXPECT_EQ(Selected("<fwd-statistics-info><slot-id/></fwd-statistics-info>"), "0 0;0 1;1 0;1 1;");
}

TEST_F(SubtreeTest, SeveralFiltersAreJoined) {
  EXPECT_EQ(Selected("<fwd-statistics-info><slot-id>0</slot-id><cpu-id/></fwd-statistics-info>"
                     "<fwd-statistics-info><slot-id>0</slot-id><cpu-id>1</cpu-id></fwd-statistics-info>"),
            "0 0;0 1 1;");
}

TEST_F(SubtreeTest, OtherNamesAndNamespacesSelectNothing) {
  EXPECT_EQ(Selected("<fwd-memory-usage/>"), "nothing");
  EXPECT_EQ(Selected("<fwd-statistics-info><fwd-memory-usage/></fwd-statistics-info>"), "nothing");
  EXPECT_EQ(SelectedBy("<software-fwd xmlns=\"urn:other\"/>"), "nothing");
}

}  // namespace
}  // namespace qdt::omad
