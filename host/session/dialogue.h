#ifndef HOST_SESSION_DIALOGUE_H_
#define HOST_SESSION_DIALOGUE_H_

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/netconf/framing.h"
#include "host/session/data_writer.h"
#include "host/session/request.h"
#include "host/wire/protocol.h"

namespace qdt::host {

class RpcError;

// One NETCONF session (RFC 6241, RFC 6242) between a client and omad, without the files that they are reached
// by. It holds at most one message of the client, one answer of omad (of state data: one piece), and what has
// to be written; it asks for no more until that is out.
class Dialogue {
 public:
  explicit Dialogue(SelectXpath selectXpath) : selectXpath_(std::move(selectXpath)) {}

  // What a client sends, and that it sends no more.
  void FromClient(std::string_view bytes);
  void ClientEnded();
  // What omad says.
  void FromAgent(Frame frame);

  // To be written; whoever does so takes away what is out and calls Written.
  std::string &toClient() { return toClient_; }
  std::string &toAgent() { return toAgent_; }
  void Written();

  // Whether bytes of the client, or frames of omad, are of use now.
  bool WantsClient() const;
  bool WantsAgent() const { return toClient_.size() < kMostUnwritten; }
  // Nothing more comes when what has to be written is out.
  bool over() const { return over_; }
  // Why, where the client cannot be told; empty for a regular end.
  const std::string &farewell() const { return farewell_; }

 private:
  static constexpr size_t kMostUnwritten = 256 << 10;

  void Advance();
  void Welcome(const std::vector<std::string> &fields);
  void TakeHello(const std::string &message);
  void TakeMessage(MessageReader::State state, std::string message);
  void TakeRequest(const std::string &message);
  void CheckFilter() const;
  void Call();
  void Ask(uint32_t word, std::string_view fields);
  void End(std::string why);

  // Pieces of an answer, which begins with its attributes.
  void BeginReply();
  void Say(std::string_view piece);
  void EndReply();
  void Reply(std::string_view content);
  void ReplyError(const RpcError &error);
  void ReplyErrorXml(const std::string &xml);
  void ReplyMalformed(const std::string &what);

  void TakeAnswer(Frame frame);
  void TakeData(const std::string &text);
  void EndData();
  bool IsWanted(const std::string &event) const;
  void TakeEvent(const std::string &text);
  void SayEvent();

  const SelectXpath selectXpath_;
  std::optional<MessageReader> reader_;
  MessageFramer framer_;
  std::string toClient_, toAgent_;
  std::string attributes_;  // of the answer to come
  std::optional<Request> request_;
  std::unique_ptr<DataWriter> data_;
  DataFilter subscription_;
  std::unique_ptr<XmlElement> subscriptionRpc_;  // what the filter of the subscription stands in
  std::string text_;                             // of an answer, as far as it has come
  std::string event_;                            // a notification that waits for the end of an answer
  bool greeted_ = false;
  bool chunks_ = false;      // the client knows base:1.1
  bool waiting_ = false;     // for omad's answer
  bool wantsNext_ = false;   // the next piece is asked for when this one is out
  bool replying_ = false;    // an answer has begun
  bool wantsEvent_ = false;  // likewise
  bool clientEnded_ = false;
  bool over_ = false;
  std::string farewell_;
};

}  // namespace qdt::host

#endif  // HOST_SESSION_DIALOGUE_H_
