#ifndef HOST_WIRE_SERVER_H_
#define HOST_WIRE_SERVER_H_

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "host/wire/protocol.h"

namespace qdt::host {

// What the server bears. Each limit is said once in the system log, by its name here, when it is first met.
struct ServerLimits {
  // Connections at a time. At this number the least busy one of the user who holds most makes room for a new
  // one (WhoMakesRoom); only when that user's own requests fill all places is one more refused.
  size_t clients = 128;
  // A client that asks nothing for this long, or has not sent a request as a whole or not taken a reply as a
  // whole so long after it was begun, is dropped. One that rests between two requests may stay.
  std::chrono::milliseconds patience{30'000};
};

// Answers command lines on a listening socket. One thread, one poll loop, nothing in it blocks: requests and
// replies wait in per-client buffers. A client's next request is looked at only when its last reply is out,
// so that what the engine holds for one client is bounded by one request and one reply; and clients take
// turns, one request each.
class Server {
 public:
  // `listener` is a listening stream socket that does not block and outlives the server; `run` is called on
  // the serving thread and does not throw anything but HostError.
  Server(int listener, EngineChannel run, ServerLimits limits = {});
  ~Server();

  // Has Serve call `work` every `period`, on the serving thread between two requests, from one period after
  // this call on. A call that is late by whole periods is made once, not once a period: work that has to
  // keep pace looks at a clock. `work` is short (clients wait meanwhile) and does not throw.
  void AddTick(std::chrono::milliseconds period, std::function<void()> work);

  // The same for work that is too long to be done at once: each call does a piece of it and returns whether
  // more is left. What is left is done piece by piece, with a look at the clients after each.
  void AddSteps(std::chrono::milliseconds period, std::function<bool()> step);

  // Has Serve call `work` whenever `fd`, which outlives the server, is readable or has failed, between two
  // requests. `work` takes away what made it so, is short and does not throw.
  void AddWatch(int fd, std::function<void()> work);

  // Serves until `stop` is readable (a signalfd, a pipe). Throws HostError when the system cannot wait.
  void Serve(int stop);

 private:
  struct Connection;
  struct Watch {
    int fd;
    std::function<void()> work;
  };
  struct Tick {
    std::chrono::milliseconds period;
    std::function<bool()> step;
    std::chrono::steady_clock::time_point due;
    bool more = false;
  };

  bool ListEntries(int stop);
  void Accept();
  // Room for a connection of `user`; false when there is none.
  bool MakeRoom(uid_t user);
  void Read(Connection *client);
  // Runs the client's next request if it is complete and the last reply is out.
  void Advance(Connection *client);
  void Reply(Connection *client, EngineReply reply);
  void Flush(Connection *client);
  EngineReply RunOne(const Frame &request);
  int PollTimeout() const;
  void RunTicks();
  void DropStalled();

  int listener_;
  EngineChannel run_;
  ServerLimits limits_;
  std::vector<pollfd> entries_;  // what a turn waits for: the end, the listener, watches and clients
  std::list<Connection> clients_;
  std::vector<Watch> watches_;
  std::vector<Tick> ticks_;
  std::chrono::steady_clock::time_point
      acceptAgain_{};                                // not before, when the process had no descriptor left
  bool clientsSaid_ = false, patienceSaid_ = false;  // in the system log
};

}  // namespace qdt::host

#endif  // HOST_WIRE_SERVER_H_
