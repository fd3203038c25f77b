#ifndef TOOLS_OMAD_DAEMON_H_
#define TOOLS_OMAD_DAEMON_H_

#include <poll.h>

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/alarms.h"
#include "host/agent/engine_watch.h"
#include "host/agent/event_log.h"
#include "host/agent/record.h"
#include "host/agent/worker.h"
#include "host/nacm/rules.h"
#include "host/omcc/model.h"
#include "tools/omad/client.h"
#include "tools/omad/options.h"
#include "tools/omad/own_state.h"
#include "tools/omad/state_data.h"

namespace qdt::omad {

// A client's call of an operation.
struct Call {
  std::string space;
  std::string operation;
  std::vector<host::Parameter> parameters;
};

// Serves the processes of sessions: one thread, one poll loop, in which nothing waits for a client. Commands
// and walks through the engine's data are done by the worker, one after the other, in the order in which they
// came; each session has one at a time.
class Daemon {
 public:
  Daemon(const Options &options, const host::Model &model, host::Record *record,
         std::vector<std::string> worker);

  // Serves the connections of `listener` until a signal that ends it comes from `signals` (a signalfd);
  // `onSignal` is asked first what others mean. Throws HostError when the system cannot wait.
  void Serve(int listener, int signals, const std::function<void(int signal)> &onSignal);

  // Tells all who have subscribed to it.
  void Publish(host::Event event);

  // Reads the rules again. What is wrong with them, when the old ones stay; empty otherwise.
  std::string ReadRules();

 private:
  using Clock = Client::Clock;
  // Of a session's command, what is written down when it is done.
  struct Work {
    Who who;
    host::WorkerJob job;
    std::optional<Call> command;  // none for a walk and a look
    bool changes = false;
    bool looks = false;  // for nobody, but for the alarms
  };

  // daemon.cc: connections.
  bool ListEntries(int listener, int signals);
  void Accept(int listener);
  void Advance(Client *client);
  void Take(Client *client, const host::Frame &frame);
  void Hello(Client *client, const host::Frame &frame);
  std::string UserOf(const Client &client, const std::string &named) const;
  // Why there is no room for another session of this user, of which an alarm may be raised; empty when there
  // is.
  std::string NoRoomFor(const std::string &user);
  std::vector<host::StateSource> OwnSources();
  void EndIdle();
  void Sweep();
  int Timeout() const;
  Client *Find(uint32_t session);
  void LookAtEngine();
  void TakeLook(const host::WorkerAnswer &answer);
  void StartWork();
  void FinishWork();
  void RecordUnanswered();
  void SayLost(const char *why);
  template <typename Action>
  void WriteDone(const Action &write);
  void Write(host::Record::Severity severity, const char *event, const Who &who,
             std::vector<std::pair<const char *, std::string>> values, const std::string &text);
  // Says so when the line before was lost.
  void WatchRecord();

  // operations.cc: what clients ask for.
  void TakeCall(Client *client, const host::Frame &frame);
  void Run(Client *client, const Call &call, const lysc_node *operation);
  void RunCommand(Client *client, const Call &call, bool changes);
  void Get(Client *client, const Call &call);
  void GetSchema(Client *client, const Call &call);
  void KillSession(Client *client, const Call &call);
  void WalkOn(Client *client);
  void TellRecords(Client *client, std::vector<host::StateRecord> records, std::string next);
  void TellAnswer(Client *client, const Work &work, const host::WorkerAnswer &answer);
  void Refuse(Client *client, const host::RpcError &error);
  void RecordCommand(const Who &who, const Call &call, const std::string &result);

  // subscriptions.cc: what clients hear of (RFC 5277).
  void Subscribe(Client *client, const Call &call);
  // Tells the subscriber its next event, when there is one and the last is taken.
  void TellEvent(Client *client);
  // Those whose time is over.
  void EndSubscriptions();
  bool MayReceive(const Client &client, const host::Event &event) const;
  void PublishSession(const Client &client, bool begins);
  void PublishRules();

  const Options &options_;
  const host::Model &model_;
  host::Record *record_;
  host::NacmRules rules_;
  Counters counters_;
  const std::vector<std::string> capabilities_;
  host::AlarmList alarms_;
  host::EngineWatch watch_;
  StateData state_;
  host::EventLog events_;
  host::AgentWorker worker_;
  std::vector<pollfd> entries_;  // what a turn waits for: signals, the listener, the worker, sessions
  std::list<Client> clients_;
  std::deque<Work> waiting_;
  std::optional<Work> running_;
  size_t waitingCommands_ = 0;
  uint32_t lastNumber_ = 0;
  Clock::time_point acceptAgain_{};
  Clock::time_point nextLook_ = Clock::now();
  bool lookWaits_ = false;  // or is under way
  uint32_t lostLooks_ = 0;  // with the worker, one after the other
  bool recordFailureSaid_ = false;
  bool sessionsUsedUp_ = false;  // there is an alarm of it
};

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_DAEMON_H_
