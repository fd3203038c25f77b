#ifndef TOOLS_OMAD_CLIENT_H_
#define TOOLS_OMAD_CLIENT_H_

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/c_callback.h"
#include "host/base/fd.h"
#include "host/netconf/rpc_error.h"
#include "host/wire/protocol.h"

namespace qdt::omad {

// Where a walk through the state data stands.
struct DataWalk {
  struct Part {
    size_t source;
    std::string condition;  // for its sink
  };
  std::vector<Part> parts;  // that are left, the next one last
  std::string from;         // within it
};

// Which events a session wants: where it stands in the log is all that is held for it.
struct Subscription {
  uint64_t next = 0;                   // number of the event
  std::optional<uint64_t> replayedTo;  // the end of what is told of the past, as long as that goes on
  std::optional<std::chrono::system_clock::time_point> stop;
};

// Why a session is over, in the words of RFC 6470.
struct SessionEnd {
  const char *reason = "dropped";
  uint32_t killedBy = 0;
};

// Whose session it is.
struct Who {
  uint32_t number = 0;  // the session's; 0 as long as it has not said hello
  std::string user;
  std::string address;
};

// The process of one session, as omad sees it. It takes what is told when it likes; what is held for it is
// one answer, one piece of data or one event.
class Client : public Who {
 public:
  using Clock = std::chrono::steady_clock;

  Client(host::UniqueFd socket, uid_t owner) : owner(owner), socket_(std::move(socket)) {}

  int fd() const { return socket_.get(); }
  short Events() const;
  // False when the process is gone.
  bool Flush();
  bool Read();
  // The next frame; false when there is none yet. Sets `broken` for bytes that are none.
  bool Next(host::Frame *frame);

  void Tell(uint32_t word, std::initializer_list<std::string_view> fields);
  // `fields` as they are.
  void TellText(uint32_t word, std::string_view text);
  void TellError(const host::RpcError &error);
  void Bye(std::string_view why, SessionEnd how = {"other"});

  // Whether all that was told is taken.
  bool Idle() const { return sent_ == out_.size(); }

  const uid_t owner;
  std::chrono::system_clock::time_point since;
  Clock::time_point moved = Clock::now();  // when the client last asked for something
  bool asking = false;                     // a command waits or runs
  std::optional<DataWalk> walk;
  std::optional<Subscription> subscription;
  bool eventUnderWay = false;  // told, and not yet passed on
  bool broken = false;
  bool closing = false;
  std::string ended;  // why
  SessionEnd end;

 private:
  host::UniqueFd socket_;
  host::FrameReader in_;
  std::string out_;
  size_t sent_ = 0;
};

// Does something for a session. Where memory is short the session is cut off: what it is told would not be
// whole.
template <typename Work>
void OrBreak(Client *client, const Work &work) {
  if (!host::UnlessShort(false, [&] { return work(), true; })) client->broken = true;
}

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_CLIENT_H_
