#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "host/agent/handlers.h"
#include "host/base/host_error.h"
#include "host/omcc/model.h"
#include "host/omcc/omcc.h"
#include "platform/engine.h"
#include "platform/memory.h"

namespace qdt::host {
namespace {

constexpr char kInfo[] = "/tavrix-software-fwd:software-fwd/fwd-statistics-infos/fwd-statistics-info";

std::string RefusalOf(const Model &model, const char *rpc, const std::vector<Parameter> &parameters) {
  try {
    model.MakeRequest(rpc, parameters);
  } catch (const HostError &error) {
    return error.what();
  }
  return "accepted";
}

TEST(Request, HandsParametersOverAsTheirTypesSay) {
  const Model model;
  const OwnedTree tree = model.MakeRequest(
      "debug-pkt",
      {{"enable", "true"}, {"invert", "false"}, {"packet-number", "4294967295"}, {"eth-type", "0800"}});
  omcc_request *request = AsRequest(tree.get());

  const char *text = nullptr;
  EXPECT_EQ(omcc_parse_str(request, "eth-type", &text), 0);
  EXPECT_STREQ(text, "0800");
  EXPECT_EQ(omcc_parse_str(request, "packet-number", &text), 0);
  EXPECT_STREQ(text, "4294967295");

  uint64_t number = 7;
  EXPECT_EQ(omcc_parse_uint(request, "packet-number", &number), 0);
  EXPECT_EQ(number, 4294967295u);
  number = 7;
  EXPECT_EQ(omcc_parse_uint(request, "enable", &number), -1) << "no number";
  EXPECT_EQ(omcc_parse_uint(request, "time-out", &number), -1) << "absent";
  EXPECT_EQ(number, 7u);

  uint8_t flag = 7;
  EXPECT_EQ(omcc_parse_bool(request, "packet-number", &flag), -1) << "no flag";
  EXPECT_EQ(omcc_parse_bool(request, "inner", &flag), -1) << "absent";
  EXPECT_EQ(flag, 7);
  EXPECT_EQ(omcc_parse_bool(request, "enable", &flag), 0);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(omcc_parse_bool(request, "invert", &flag), 0);
  EXPECT_EQ(flag, 0);

  const char *untouched = "untouched";
  EXPECT_EQ(omcc_parse_str(request, "source-ip", &untouched), -1);
  EXPECT_STREQ(untouched, "untouched");
}

TEST(Request, IsCheckedAgainstTheModel) {
  const Model model;
  EXPECT_EQ(RefusalOf(model, "query-session", {{"protocol", "255"}, {"type", "ipv6"}}), "accepted");
  EXPECT_EQ(RefusalOf(model, "query-session", {{"type", "whatever"}}),
            "\"whatever\" is no value for \"type\" (it takes ipv4|ipv6)");
  EXPECT_EQ(RefusalOf(model, "trace-pkt-query", {}), "trace-pkt-query needs the parameter \"index\"");
  EXPECT_EQ(RefusalOf(model, "reset-session", {{"inside-source-ip", "10.7"}}),
            "\"10.7\" is no value for \"inside-source-ip\" (it takes an IPv4 or IPv6 address)");
  EXPECT_EQ(RefusalOf(model, "query-session", {{"protocol", "256"}}),
            "\"256\" is no value for \"protocol\" (it takes 0..255)");
  EXPECT_EQ(RefusalOf(model, "frag-reass", {{"colour", "blue"}}),
            "frag-reass has no parameter \"colour\"; it takes: source-ip, destination-ip, type");
  EXPECT_EQ(RefusalOf(model, "tbl-usage", {{"text", "x"}}),
            "tbl-usage has no parameter \"text\"; it takes none");
  EXPECT_EQ(RefusalOf(model, "arpmiss", {{"next-hop", "1.2.3.4"}, {"next-hop", "1.2.3.5"}}),
            "the parameter \"next-hop\" is given twice");
  EXPECT_EQ(RefusalOf(model, "no-such", {}), "there is no operation \"no-such\"");
}

TEST(Document, IsWrittenAsTheModelOrdersIt) {
  const Model model;
  omcc_doc *doc = omcc_new_doc();
  ASSERT_NE(doc, nullptr);
  omcc_node *node = omcc_new_node(omcc_doc_root(doc), kInfo, 2);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(omcc_new_leaf_str(node, "cpu-id", "3"), 0);
  EXPECT_EQ(omcc_new_leaf_str(node, "slot-id", "2"), 0);
  EXPECT_EQ(omcc_new_leaf_str(node, "fwd-memory-usage", "41"), 0);
  char *text = omcc_format_doc(doc, 2);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text,
               "<software-fwd xmlns=\"urn:tavrix:params:xml:ns:yang:tavrix-software-fwd\">\n"
               "  <fwd-statistics-infos>\n"
               "    <fwd-statistics-info>\n"
               "      <slot-id>2</slot-id>\n"
               "      <cpu-id>3</cpu-id>\n"
               "      <fwd-memory-usage>41</fwd-memory-usage>\n"
               "    </fwd-statistics-info>\n"
               "  </fwd-statistics-infos>\n"
               "</software-fwd>\n");
  free_ex(g_mallocHandle, text);
  omcc_free_doc(doc);
}

TEST(Document, RefusesWhatTheModelDoesNotHave) {
  EXPECT_EQ(omcc_new_doc(), nullptr) << "without a model";
  const Model model;
  omcc_doc *doc = omcc_new_doc();
  EXPECT_EQ(omcc_new_node(omcc_doc_root(doc), "/tavrix-software-fwd:no-such", 2), nullptr);
  EXPECT_EQ(omcc_new_node(nullptr, kInfo, 2), nullptr);
  omcc_node *node = omcc_new_node(omcc_doc_root(doc), kInfo, 2);
  EXPECT_EQ(omcc_new_leaf_str(nullptr, "slot-id", "0"), -1);
  EXPECT_EQ(omcc_new_leaf_str(omcc_doc_root(doc), "slot-id", "0"), -1);
  EXPECT_EQ(omcc_new_leaf_str(node, "colour", "0"), -1);
  EXPECT_EQ(omcc_new_leaf_str(node, "slot-id", "many"), -1);
  EXPECT_EQ(omcc_new_leaf_str(node, "slot-id", "0"), 0);
  EXPECT_EQ(omcc_format_doc(doc, 2), nullptr) << "a list's entry without a key";
  omcc_free_doc(doc);
}

TEST(Document, MayBeEmpty) {
  const Model model;
  omcc_doc *doc = omcc_new_doc();
  char *text = omcc_format_doc(doc, 2);
  EXPECT_STREQ(text, "");
  free_ex(g_mallocHandle, text);
  omcc_free_doc(doc);
}

TEST(Handlers, AreThoseOfTheModel) {
  const Model model;
  std::set<std::string> rpcs;
  for (const lysc_node_action *rpc = model.module()->compiled->rpcs; rpc != nullptr; rpc = rpc->next)
    rpcs.insert(rpc->name);
  std::set<std::string> handlers;
  for (const Handler &handler : Handlers()) {
    handlers.insert(handler.rpc);
    EXPECT_EQ(FindHandler(handler.rpc), &handler);
    EXPECT_EQ(FindHandler(handler.function), &handler);
  }
  EXPECT_EQ(handlers, rpcs);
  EXPECT_EQ(FindHandler("no-such"), nullptr);
}

int32_t SendTwice(AgentRequest) { return QdtOmSendMsg("one\n") + QdtOmSendMsg("\x01two\n"); }
int32_t SendNothing(AgentRequest) { return -1; }

TEST(Handlers, AnswersAreJoinedInTheirOrder) {
  EXPECT_EQ(QdtOmSendMsg("to nobody"), -1);
  const HandlerAnswer both = RunHandler({"x", "X", SendTwice, nullptr}, nullptr);
  EXPECT_EQ(both.result, 0);
  EXPECT_TRUE(both.sent);
  EXPECT_EQ(both.text, "one\n?two\n");
  const HandlerAnswer none = RunHandler({"x", "X", SendNothing, nullptr}, nullptr);
  EXPECT_EQ(none.result, -1);
  EXPECT_FALSE(none.sent);
  EXPECT_EQ(none.text, "");
}

}  // namespace
}  // namespace qdt::host
