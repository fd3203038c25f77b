#include "host/session/dialogue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/netconf/rpc_error.h"
#include "host/session/fields.h"
#include "host/session/link.h"

namespace qdt::host {
namespace {

constexpr char kBase[] = "urn:ietf:params:xml:ns:netconf:base:1.0";
const std::string kReply = std::string("<rpc-reply xmlns=\"") + kBase + "\" message-id=\"1\">";

std::string FieldsOf(const std::vector<std::string> &fields) {
  std::string text;
  for (const std::string &field : fields) AppendField(field, &text);
  return text;
}

// A session whose client has said hello with this version of the base.
class DialogueTest : public testing::Test {
 protected:
  void Greet(const std::string &version) {
    Tell(kTellWelcome, {"7", "400", "urn:ietf:params:netconf:base:1.0"});
    EXPECT_EQ(Written(),
              std::string("<hello xmlns=\"") + kBase +
                  "\"><capabilities><capability>urn:ietf:params:netconf:base:1.0</capability></capabilities>"
                  "<session-id>7</session-id></hello>]]>]]>");
    dialogue_.FromClient(std::string("<hello xmlns='") + kBase +
                         "'><capabilities><capability>urn:ietf:params:netconf:base:" + version +
                         "</capability></capabilities></hello>]]>]]>");
  }
  void Tell(uint32_t word, const std::vector<std::string> &fields) {
    dialogue_.FromAgent({word, FieldsOf(fields)});
  }

  // What the client gets.
  std::string Written() {
    std::string out;
    out.swap(dialogue_.toClient());
    dialogue_.Written();
    return out;
  }
  // What omad is asked: "WORD|FIELD|FIELD;..."
  std::string Asked() {
    FrameReader reader;
    reader.Append(dialogue_.toAgent().data(), dialogue_.toAgent().size());
    dialogue_.toAgent().clear();
    std::string text;
    for (Frame frame; reader.Next(&frame) == FrameReader::State::kFrame;) {
      text += std::to_string(frame.word);
      const auto fields = ReadFields(frame.text, 100);
      for (const std::string &field : *fields) text += '|' + field;
      text += ';';
    }
    return text;
  }
  void Rpc(const std::string &body) {
    dialogue_.FromClient(std::string("<rpc xmlns='") + kBase + "' message-id='1'>" + body + "</rpc>]]>]]>");
  }
  std::string Error(const std::string &rest) {
    return kReply + "<rpc-error><error-type>" + rest + "</rpc-error></rpc-reply>]]>]]>";
  }

  Dialogue dialogue_{[](const std::string &path, const Bindings &, const std::string &tree) {
    if (path == "[") throw RpcError(RpcError::Layer::kProtocol, "invalid-value", "no path");
    return tree;
  }};
};

TEST_F(DialogueTest, ACommandIsAskedAndItsTextToldBack) {
  Greet("1.0");
  Rpc("<tbl-usage xmlns='u'><a>1 &lt; 2</a></tbl-usage>");
  EXPECT_EQ(Asked(), "2|u|tbl-usage|a|1 < 2;");
  EXPECT_FALSE(dialogue_.WantsClient());
  dialogue_.FromAgent({kTellText, "a <b"});
  dialogue_.FromAgent({kTellText, ">\n"});
  EXPECT_EQ(Written(), "");
  Tell(kTellTextEnd, {"u", "text"});
  EXPECT_EQ(Written(), kReply + "<text xmlns=\"u\">a &lt;b&gt;\n</text></rpc-reply>]]>]]>");
  EXPECT_TRUE(dialogue_.WantsClient());
}

TEST_F(DialogueTest, TheSecondOfTwoMessagesWaits) {
  Greet("1.0");
  const std::string rpc = std::string("<rpc xmlns='") + kBase + "' message-id='1'><x xmlns='u'/></rpc>]]>]]>";
  dialogue_.FromClient(rpc + rpc);
  EXPECT_EQ(Asked(), "2|u|x;");
  Tell(kTellOk, {});
  EXPECT_EQ(Asked(), "");
  EXPECT_EQ(Written(), kReply + "<ok/></rpc-reply>]]>]]>");
  EXPECT_EQ(Asked(), "2|u|x;");
}

TEST_F(DialogueTest, AnswersCarryTheRequestsAttributes) {
  Greet("1.0");
  dialogue_.FromClient(
      std::string("<nc:rpc xmlns:nc='") + kBase +
      "' message-id='&quot;&lt;' xmlns:x='v' x:y='2' z='3'><nc:close-session/></nc:rpc>]]>]]>");
  EXPECT_EQ(Written(),
            std::string("<rpc-reply xmlns=\"") + kBase + "\" xmlns:nc=\"" + kBase +
                "\" xmlns:x=\"v\" message-id=\"&quot;&lt;\" x:y=\"2\" z=\"3\"><ok/></rpc-reply>]]>]]>");
  EXPECT_TRUE(dialogue_.over());
  EXPECT_EQ(Asked(), "5;");
}

TEST_F(DialogueTest, DataIsAskedForPieceByPiece) {
  Greet("1.1");
  const std::string rpc =
      std::string("<rpc xmlns='") + kBase +
      "' message-id='1'><get><filter><top xmlns='u'><list><e><n/></e></list></top></filter></get></rpc>";
  dialogue_.FromClient("\n#" + std::to_string(rpc.size()) + "\n" + rpc + "\n##\n");
  EXPECT_EQ(Asked(), std::string("2|") + kBase + "|get|want|{u}top/list;");
  Tell(kTellData, {"e:id", "u", "top/list", "<e><id>1</id><n>1</n><m>1</m></e>"});
  EXPECT_EQ(Asked(), "") << "not before the piece is out";
  std::string whole = Written();
  EXPECT_EQ(Asked(), "3;");
  Tell(kTellData, {"e:id", "u", "top/list", "<e><id>2</id><n>2</n></e>", "u", "top/other", "<x/>"});
  Tell(kTellDataEnd, {});
  whole += Written();
  std::string text;
  MessageReader reader(1000);
  reader.ExpectChunks();
  reader.Append(whole);
  EXPECT_EQ(reader.Next(&text), MessageReader::State::kMessage);
  EXPECT_EQ(text,
            kReply +
                "<data><top xmlns=\"u\"><list><e><id>1</id><n>1</n></e><e><id>2</id><n>2</n></e></list></top>"
                "</data></rpc-reply>");
}

TEST_F(DialogueTest, AnErrorWithinDataIsTold) {
  Greet("1.0");
  Rpc("<get/>");
  EXPECT_EQ(Asked(), std::string("2|") + kBase + "|get;");
  Tell(kTellData, {"", "u", "top", "<a/>"});
  Tell(kTellError, {"<rpc-error/>"});
  EXPECT_EQ(Written(), kReply + "<data><top xmlns=\"u\"><a/></top></data><rpc-error/></rpc-reply>]]>]]>");
  Rpc("<get/>");
  Tell(kTellDataEnd, {});
  EXPECT_EQ(Written(), kReply + "<data/></rpc-reply>]]>]]>");
}

TEST_F(DialogueTest, MessagesThatAreNone) {
  Greet("1.0");
  for (const char *message : {"", "x", "<unclosed>", "<!DOCTYPE a><a/>"}) {
    dialogue_.FromClient(std::string(message) + "]]>]]>");
    const std::string answer = Written();
    EXPECT_NE(answer.find("<error-tag>operation-failed</error-tag>"), answer.npos) << answer;
  }
  dialogue_.FromClient(std::string("<rpc message-id='9' xmlns='") + kBase + "'><a>" + std::string(500, 'x') +
                       "</a></rpc>]]>]]>");
  EXPECT_EQ(
      Written(),
      std::string("<rpc-reply xmlns=\"") + kBase +
          "\" message-id=\"9\"><rpc-error><error-type>rpc</error-type><error-tag>too-big</error-tag>"
          "<error-severity>error</error-severity><error-message xml:lang=\"en\">a message has at most 400 "
          "bytes</error-message></rpc-error></rpc-reply>]]>]]>");
  EXPECT_EQ(Asked(), "");
  EXPECT_FALSE(dialogue_.over());
}

TEST_F(DialogueTest, BrokenChunksEndTheSession) {
  Greet("1.1");
  dialogue_.FromClient("no chunk");
  const std::string answer = Written();
  EXPECT_NE(answer.find("<error-tag>malformed-message</error-tag>"), answer.npos) << answer;
  EXPECT_TRUE(dialogue_.over());
}

TEST_F(DialogueTest, RequestsThatAreNone) {
  Greet("1.0");
  for (const auto &[rpc, error] : std::vector<std::pair<std::string, std::string>>{
           {"", "missing-element"},
           {"<a xmlns='u'/><b xmlns='u'/>", "unknown-element"},
           {"<a xmlns='u'><b><c/></b></a>", "unknown-element"},
           {"<a xmlns='u'><b xmlns='v'/></a>", "unknown-namespace"},
           {"<a xmlns='u' x='1'/>", "unknown-attribute"},
           {"<get><filter type='regex'/></get>", "bad-attribute"},
           {"<get><filter type='xpath'/></get>", "missing-attribute"}}) {
    Rpc(rpc);
    const std::string answer = Written();
    EXPECT_NE(answer.find("<error-tag>" + error + "</error-tag>"), answer.npos) << rpc << ": " << answer;
  }
  dialogue_.FromClient(std::string("<rpc xmlns='") + kBase + "'><get/></rpc>]]>]]>");
  const std::string answer = Written();
  EXPECT_NE(answer.find("<error-tag>missing-attribute</error-tag>"), answer.npos) << answer;
  EXPECT_EQ(Asked(), "");
}

TEST_F(DialogueTest, HellosThatAreNone) {
  for (const char *hello : {"", "GET / HTTP/1.1\r\n\r\n", "<hello/>",
                            "<hello xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'/>"}) {
    Dialogue dialogue(nullptr);
    dialogue.FromAgent({kTellWelcome, FieldsOf({"7", "200"})});
    dialogue.toClient().clear();
    dialogue.Written();
    dialogue.FromClient(std::string(hello) + "]]>]]>");
    EXPECT_TRUE(dialogue.over()) << hello;
    EXPECT_NE(dialogue.farewell(), "") << hello;
    EXPECT_EQ(dialogue.toClient(), "") << hello;
  }
}

TEST_F(DialogueTest, ANotificationWaitsForTheAnswer) {
  Greet("1.0");
  Rpc("<create-subscription xmlns='urn:ietf:params:xml:ns:netconf:notification:1.0'><stream>NETCONF</stream>"
      "<filter><e xmlns='u'/></filter></create-subscription>");
  EXPECT_EQ(Asked(), "2|urn:ietf:params:xml:ns:netconf:notification:1.0|create-subscription|stream|NETCONF;");
  Tell(kTellOk, {});
  Written();
  Rpc("<get/>");
  Asked();
  Tell(kTellData, {"", "u", "top", "<a/>"});
  Tell(kTellEvent, {"2026-11-22T10:00:00Z", "<e xmlns=\"u\"><x>1</x></e>"});
  Tell(kTellDataEnd, {});
  EXPECT_EQ(Written(),
            kReply +
                "<data><top xmlns=\"u\"><a/></top></data></rpc-reply>]]>]]>"
                "<notification "
                "xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\"><eventTime>2026-11-22T10:00:00Z"
                "</eventTime><e xmlns=\"u\"><x>1</x></e></notification>]]>]]>");
  EXPECT_EQ(Asked(), "4;");
  Tell(kTellEvent, {"2026-11-22T10:00:00Z", "<f xmlns=\"u\"/>"});
  EXPECT_EQ(Written(), "") << "the filter does not select it";
  EXPECT_EQ(Asked(), "4;");
  dialogue_.FromAgent({kTellEvent, FieldsOf({"2026-11-22T10:00:00Z", "<f xmlns=\"u\"/>", ""})});
  EXPECT_NE(Written().find("<f xmlns=\"u\"/></notification>"), std::string::npos)
      << "it does not matter here";
  EXPECT_EQ(Asked(), "4;");
}

TEST_F(DialogueTest, ANotificationThatWaitsIsTheOnlyOne) {
  Greet("1.0");
  Rpc("<get/>");
  Asked();
  Tell(kTellData, {"", "u", "top", "<a/>"});
  EXPECT_NE(Written().find("<a/>"), std::string::npos);
  EXPECT_EQ(Asked(), "3;");
  Tell(kTellEvent, {"2026-11-22T10:00:00Z", "<e xmlns=\"u\"/>"});
  Tell(kTellData, {"", "u", "top", "<b/>"});
  EXPECT_EQ(Written(), "<b/>");
  EXPECT_EQ(Asked(), "3;");
  Tell(kTellDataEnd, {});
  EXPECT_NE(Written().find("</rpc-reply>]]>]]><notification"), std::string::npos);
  EXPECT_EQ(Asked(), "4;");
}

TEST_F(DialogueTest, APathThatIsNoneIsRefusedAtOnce) {
  Greet("1.0");
  Rpc("<create-subscription xmlns='urn:ietf:params:xml:ns:netconf:notification:1.0'>"
      "<filter type='xpath' select='['/></create-subscription>");
  EXPECT_NE(Written().find("<error-tag>invalid-value</error-tag>"), std::string::npos);
  EXPECT_EQ(Asked(), "");
}

TEST_F(DialogueTest, TheEndIsTold) {
  Greet("1.0");
  Tell(kTellBye, {"idle for 600 s"});
  EXPECT_TRUE(dialogue_.over());
  EXPECT_EQ(dialogue_.farewell(), "idle for 600 s");
}

}  // namespace
}  // namespace qdt::host
