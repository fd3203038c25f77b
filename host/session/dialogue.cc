#include "host/session/dialogue.h"

#include <algorithm>
#include <charconv>

#include "host/netconf/rpc_error.h"
#include "host/netconf/xml_text.h"
#include "host/session/fields.h"
#include "host/session/link.h"

namespace qdt::host {
namespace {

using Layer = RpcError::Layer;

constexpr char kBase10[] = "urn:ietf:params:netconf:base:1.0";
constexpr char kBase11[] = "urn:ietf:params:netconf:base:1.1";
constexpr size_t kMostOfAnswer = 64u << 20;
constexpr size_t kMostFields = 1u << 16;

}  // namespace

void Dialogue::End(std::string why) {
  if (over_) return;
  over_ = true;
  farewell_ = std::move(why);
}

bool Dialogue::WantsClient() const {
  return reader_ && !waiting_ && !over_ && !clientEnded_ && toClient_.empty();
}

void Dialogue::Ask(uint32_t word, std::string_view fields) { toAgent_ += EncodeFrame(word, fields); }

void Dialogue::FromClient(std::string_view bytes) {
  reader_->Append(bytes);
  Advance();
}

void Dialogue::ClientEnded() {
  clientEnded_ = true;
  Advance();
}

void Dialogue::Written() {
  if (!toClient_.empty() || over_) return;
  if (wantsNext_) {
    wantsNext_ = false;
    Ask(kAskNext, {});
  }
  if (wantsEvent_) {
    wantsEvent_ = false;
    Ask(kAskEvent, {});
  }
  Advance();
}

// Takes the client's next message when there is one and its turn has come.
void Dialogue::Advance() {
  while (reader_ && !waiting_ && !over_ && toClient_.empty()) {
    std::string message;
    const MessageReader::State state = reader_->Next(&message);
    if (state == MessageReader::State::kNeedMore) {
      if (clientEnded_) End("");
      return;
    }
    TakeMessage(state, std::move(message));
  }
}

void Dialogue::TakeMessage(MessageReader::State state, std::string message) {
  if (!greeted_) {
    if (state == MessageReader::State::kMessage) return TakeHello(message);
    return End("the client sends no <hello>");
  }
  attributes_.clear();
  if (state == MessageReader::State::kBroken) {
    ReplyError(
        {Layer::kRpc, "malformed-message", "what came is no chunk of a message (RFC 6242, section 4.2)"});
    return End("the client's chunks cannot be told apart");
  }
  if (state == MessageReader::State::kTooBig) {
    if (const auto root = ReadXmlRoot(message)) attributes_ = ReplyAttributes(*root);
    return ReplyError(
        {Layer::kRpc, "too-big", "a message has at most " + std::to_string(message.size()) + " bytes"});
  }
  TakeRequest(message);
}

void Dialogue::TakeHello(const std::string &message) {
  try {
    const auto hello = ReadXml(message);
    const XmlElement *list = hello->Find(kNetconfSpace, "capabilities");
    if (!hello->Is(kNetconfSpace, "hello") || list == nullptr) return End("the client sends no <hello>");
    bool known = false;
    for (const auto &each : list->children) {
      chunks_ |= each->Value() == kBase11;
      known |= each->Value() == kBase10 || each->Value() == kBase11;
    }
    if (!known) return End("the client knows no NETCONF that is spoken here");
    if (hello->Find(kNetconfSpace, "session-id") != nullptr) return End("the client names a session-id");
  } catch (const XmlError &error) {
    return End(std::string("the client's <hello> is no XML: ") + error.what());
  }
  greeted_ = true;
  if (!chunks_) return;
  reader_->ExpectChunks();
  framer_.SendChunks();
}

void Dialogue::TakeRequest(const std::string &message) {
  try {
    auto rpc = ReadXml(message);
    attributes_ = ReplyAttributes(*rpc);
    request_ = ReadRequest(std::move(rpc));
    if (request_->Is(kNetconfSpace, "close-session")) {
      Reply("<ok/>");
      Ask(kAskLeave, {});
      return End("");
    }
    CheckFilter();
    Call();
  } catch (const XmlError &error) {
    ReplyMalformed(error.what());
  } catch (const RpcError &error) {
    ReplyError(error);
  }
}

// A path that is none is refused before there is anything to ask it of.
void Dialogue::CheckFilter() const {
  constexpr char kAny[] = "<replayComplete xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>";
  const DataFilter &filter = request_->filter;
  if (filter.kind != DataFilter::Kind::kXpath) return;
  try {
    selectXpath_(filter.xpath, filter.bindings, kAny);
  } catch (RpcError &error) {
    throw RpcError(error.At("/nc:rpc/op:" + request_->operation + "/op:filter", request_->space));
  }
}

void Dialogue::Call() {
  std::string fields;
  AppendField(request_->space, &fields);
  AppendField(request_->operation, &fields);
  for (const auto &[name, value] : request_->parameters) {
    AppendField(name, &fields);
    AppendField(value, &fields);
  }
  Ask(kAskCall, fields);
  waiting_ = true;
  text_.clear();
}

void Dialogue::Say(std::string_view piece) {
  if (!piece.empty()) framer_.Append(piece, &toClient_);
}

void Dialogue::BeginReply() {
  replying_ = true;
  Say(Joined({"<rpc-reply xmlns=\"", kNetconfSpace, "\"", attributes_, ">"}));
}

void Dialogue::EndReply() {
  Say("</rpc-reply>");
  framer_.End(&toClient_);
  replying_ = waiting_ = wantsNext_ = false;
  data_.reset();
  request_.reset();
  std::string().swap(text_);
  if (!event_.empty()) SayEvent();
}

void Dialogue::Reply(std::string_view content) {
  BeginReply();
  Say(content);
  EndReply();
}

void Dialogue::ReplyError(const RpcError &error) { ReplyErrorXml(error.Xml()); }

// What is wrong may come to light when part of the data is out.
void Dialogue::ReplyErrorXml(const std::string &xml) {
  if (!replying_) return Reply(xml);
  std::string rest;
  data_->End(&rest);
  Say(rest + "</data>" + xml);
  EndReply();
}

// Clients of base:1.0 do not know the error's name (RFC 6241, appendix A).
void Dialogue::ReplyMalformed(const std::string &what) {
  ReplyError(
      {Layer::kRpc, chunks_ ? "malformed-message" : "operation-failed", "the message is no XML: " + what});
}

void Dialogue::Welcome(const std::vector<std::string> &fields) {
  size_t limit = 0;
  if (fields.size() < 2 ||
      std::from_chars(fields[1].data(), fields[1].data() + fields[1].size(), limit).ec != std::errc())
    return End("omad speaks another protocol");
  std::string hello = Joined({"<hello xmlns=\"", kNetconfSpace, "\"><capabilities>"});
  for (size_t i = 2; i < fields.size(); ++i)
    hello += "<capability>" + XmlEscaped(fields[i]) + "</capability>";
  Say(hello + "</capabilities><session-id>" + XmlEscaped(fields[0]) + "</session-id></hello>");
  framer_.End(&toClient_);
  reader_.emplace(limit);
}

void Dialogue::FromAgent(Frame frame) {
  if (over_) return;
  switch (frame.word) {
    case kTellBye: {
      const auto fields = ReadFields(frame.text, 1);
      return End(fields && !fields->empty() ? fields->front() : "omad ends the session");
    }
    case kTellEvent:
      return TakeEvent(frame.text);
    case kTellWelcome: {
      const auto fields = ReadFields(frame.text, kMostFields);
      if (reader_ || !fields) return End("omad speaks another protocol");
      return Welcome(*fields);
    }
    default:
      if (!waiting_) return End("omad speaks another protocol");
      TakeAnswer(std::move(frame));
  }
}

void Dialogue::TakeAnswer(Frame frame) {
  switch (frame.word) {
    case kTellOk:
      if (request_->Is(kNotificationSpace, "create-subscription")) {
        subscription_ = std::move(request_->filter);
        subscriptionRpc_ = std::move(request_->rpc);
      }
      return Reply("<ok/>");
    case kTellError: {
      const auto fields = ReadFields(frame.text, 1);
      return ReplyErrorXml(fields && !fields->empty() ? fields->front() : "");
    }
    case kTellText:
      text_ += frame.text;
      if (text_.size() > kMostOfAnswer) End("an answer is too long");
      return;
    case kTellTextEnd: {
      const auto fields = ReadFields(frame.text, 2);
      if (!fields || fields->size() != 2) return End("omad speaks another protocol");
      const auto &[space, name] = std::pair((*fields)[0], (*fields)[1]);
      return Reply('<' + name + " xmlns=\"" + XmlEscaped(space) + "\">" + XmlEscaped(text_) + "</" + name +
                   '>');
    }
    case kTellData:
      return TakeData(frame.text);
    case kTellDataEnd:
      return EndData();
    default:
      End("omad speaks another protocol");
  }
}

void Dialogue::TakeData(const std::string &text) {
  const auto fields = ReadFields(text, kMostFields);
  if (!fields || fields->size() % 3 != 1) return End("omad speaks another protocol");
  std::string xml;
  try {
    if (data_ == nullptr) data_ = std::make_unique<DataWriter>(request_->filter, selectXpath_);
    for (size_t i = 1; i < fields->size(); i += 3)
      data_->Add(fields->front(), (*fields)[i], (*fields)[i + 1], (*fields)[i + 2], &xml);
  } catch (const RpcError &error) {
    return ReplyError(error);
  } catch (const XmlError &error) {
    return End(std::string("omad tells data that is no XML: ") + error.what());
  }
  if (!replying_ && !xml.empty()) {
    BeginReply();
    Say("<data>");
  }
  Say(xml);
  wantsNext_ = true;
  Written();
}

void Dialogue::EndData() {
  if (!replying_) return Reply("<data/>");
  std::string rest;
  data_->End(&rest);
  Say(rest + "</data>");
  EndReply();
}

// Whether the filter of the subscription selects anything of a notification, which is then told whole.
bool Dialogue::IsWanted(const std::string &event) const {
  if (subscription_.kind == DataFilter::Kind::kNone) return true;
  std::string selected;
  try {
    DataWriter(subscription_, selectXpath_).Add({}, {}, {}, event, &selected);
  } catch (const std::exception &) {
    return false;
  }
  return !selected.empty();
}

void Dialogue::TakeEvent(const std::string &text) {
  const auto fields = ReadFields(text, 3);
  if (!fields || fields->size() < 2 || !event_.empty()) return End("omad speaks another protocol");
  const std::string &body = fields->at(1);
  if (fields->size() == 2 && !IsWanted(body)) {
    wantsEvent_ = true;
    return Written();
  }
  event_ = Joined({"<notification xmlns=\"", kNotificationSpace, "\"><eventTime>", XmlEscaped(fields->at(0)),
                   "</eventTime>", body, "</notification>"});
  if (!replying_) SayEvent();
}

// The next one is asked for when this one is out, which may be long after it came.
void Dialogue::SayEvent() {
  Say(event_);
  framer_.End(&toClient_);
  event_.clear();
  wantsEvent_ = true;
}

}  // namespace qdt::host
