// Feeds a NETCONF session whatever a stranger may send. The first byte chooses what omad answers and whether
// the client knows base:1.1; 0xff stands for "the bytes that follow come in a read of their own".
//
// What must hold for all of it: nothing is read or written past what there is, what the session keeps and
// writes is bounded, and every message is answered in whole messages.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "host/netconf/xml.h"
#include "host/session/dialogue.h"
#include "host/session/fields.h"
#include "host/session/link.h"

namespace {

using namespace qdt::host;  // NOLINT: a program of its own

constexpr char kHello[] =
    "<hello xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"><capabilities><capability>"
    "urn:ietf:params:netconf:base:1.";
constexpr size_t kLimit = 4096;

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string FieldsOf(std::initializer_list<std::string_view> fields) {
  std::string text;
  for (const std::string_view field : fields) AppendField(field, &text);
  return text;
}

// omad, as far as a session can tell.
class Agent {
 public:
  explicit Agent(uint8_t choice) : choice_(choice) {}

  void Answer(Dialogue *dialogue) {
    reader_.Append(dialogue->toAgent().data(), dialogue->toAgent().size());
    dialogue->toAgent().clear();
    Frame frame;
    while (reader_.Next(&frame) == FrameReader::State::kFrame && !dialogue->over()) {
      Require(frame.text.size() < 4 * kLimit);
      if (frame.word == kAskCall) Call(dialogue, frame);
      if (frame.word == kAskNext) dialogue->FromAgent({kTellDataEnd, {}});
      if (frame.word == kAskEvent) eventUnderWay_ = false;
    }
  }

 private:
  void Call(Dialogue *dialogue, const Frame &frame) {
    const auto fields = ReadFields(frame.text, kCallFields);
    Require(fields && fields->size() >= 2 && fields->size() % 2 == 0);
    // Before the answer, to whoever has subscribed or not.
    if ((choice_ & 8) != 0 && !eventUnderWay_) {
      eventUnderWay_ = true;
      dialogue->FromAgent({kTellEvent, FieldsOf({"2026-11-22T10:00:00Z", "<e xmlns=\"u\"><k>1</k></e>"})});
    }
    switch (choice_ >> 1 & 3) {
      case 0:
        return dialogue->FromAgent({kTellOk, {}});
      case 1:
        dialogue->FromAgent({kTellText, "a <text> & more"});
        return dialogue->FromAgent({kTellTextEnd, FieldsOf({"u", "text"})});
      case 2:
        return dialogue->FromAgent(
            {kTellData, FieldsOf({"e:k;", "u", "top/list", "<e><k>1</k><v>2</v></e><e><k>2</k></e>", "v", "",
                                  "<other xmlns=\"v\">x</other>"})});
      default:
        return dialogue->FromAgent({kTellError, FieldsOf({"<rpc-error/>"})});
    }
  }

  const uint8_t choice_;
  bool eventUnderWay_ = false;
  FrameReader reader_;
};

// What a client gets must be messages of XML, in the frames that it knows. What one that sends a hello of its
// own knows is not told here.
class Client {
 public:
  Client(bool chunks, bool greets) : chunks_(chunks), greets_(greets), reader_(1u << 24) {}

  void Take(Dialogue *dialogue) {
    std::string bytes;
    bytes.swap(dialogue->toClient());
    Require(bytes.size() < 4u << 20);
    if (greets_) Read(bytes);
    dialogue->Written();
  }
  void End() const { Require(reader_.Empty()); }

 private:
  void Read(const std::string &bytes) {
    reader_.Append(bytes);
    std::string message;
    MessageReader::State state;
    while ((state = reader_.Next(&message)) != MessageReader::State::kNeedMore) {
      Require(state == MessageReader::State::kMessage);
      ReadXml(message, {.depth = 200});
      if (chunks_) reader_.ExpectChunks();
    }
  }

  const bool chunks_;
  const bool greets_;
  MessageReader reader_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  // A block of its own, so that a sanitizer sees every byte read past it.
  const std::string input(reinterpret_cast<const char *>(data + 1), size - 1);
  const bool chunks = (data[0] & 1) != 0;
  const bool greets = (data[0] & 0x80) == 0;
  Dialogue dialogue([](const std::string &, const Bindings &, const std::string &tree) { return tree; });
  Agent agent(data[0]);
  Client client(chunks, greets);
  dialogue.FromAgent(
      {kTellWelcome, FieldsOf({"1", std::to_string(kLimit), "urn:ietf:params:netconf:base:1.0"})});
  client.Take(&dialogue);
  if (greets)
    dialogue.FromClient(kHello + std::string(chunks ? "1" : "0") +
                        "</capability></capabilities></hello>]]>]]>");
  std::string_view rest = input;
  for (int turn = 0; turn < 1000 && !dialogue.over(); ++turn) {
    agent.Answer(&dialogue);
    client.Take(&dialogue);
    if (!dialogue.WantsClient()) continue;
    if (rest.empty()) {
      dialogue.ClientEnded();
      break;
    }
    const size_t end = std::min(rest.find('\xff'), rest.size());
    const auto piece = std::make_unique<std::string>(rest.substr(0, end));
    dialogue.FromClient(*piece);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  client.Take(&dialogue);
  client.End();
  return 0;
}
