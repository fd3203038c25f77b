#include "host/agent/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string_view>

#include "host/agent/engine_state.h"
#include "host/agent/engine_watch.h"
#include "host/base/program.h"
#include "host/library/services.h"
#include "host/omcc/libyang_memory.h"
#include "host/session/fields.h"
#include "host/session/link.h"
#include "host/wire/protocol.h"

extern char **environ;

namespace qdt::host {
namespace {

// Words of the frames between agent and worker. A request's word is the handler's place in Handlers(), its
// text the rpc; or, with this mark, a source's place, and as fields where the walk goes on and which entries
// are wanted; or the word of a look.
constexpr uint32_t kWalk = 1u << 16;
constexpr uint32_t kLook = 1u << 17;

enum ReplyWord : uint32_t {
  kPart,     // the next piece of the answer
  kSent,     // the answer is complete: the text is the handler's result
  kSaidWhy,  // likewise, and the answer only says what was wrong
  kSilent,   // likewise, and the handler has sent nothing
  kWalked,   // the records are complete: the text is where the walk goes on
  kRefused,  // not run: the text says why
  kGone,     // not run: the engine is gone and this worker ends
};

constexpr size_t kPartSize = kFrameLimit / 2;
constexpr size_t kMostOfAnswer = 64u << 20;
constexpr auto kPatience = std::chrono::seconds(120);  // that a handler may take
constexpr int kEndMilliseconds = 5000;                 // that a worker with nothing to do may take to end

bool Send(int channel, uint32_t word, std::string_view text) {
  const std::string frame = EncodeFrame(word, text);
  for (size_t at = 0; at < frame.size();) {
    const ssize_t sent = send(channel, frame.data() + at, frame.size() - at, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    at += static_cast<size_t>(sent);
  }
  return true;
}

// False when the other side is gone or sends no frames.
bool Receive(int channel, FrameReader *reader, Frame *frame) {
  while (true) {
    const FrameReader::State state = reader->Next(frame);
    if (state != FrameReader::State::kNeedMore) return state == FrameReader::State::kFrame;
    char bytes[65536];
    const ssize_t count = recv(channel, bytes, sizeof(bytes), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    reader->Append(bytes, static_cast<size_t>(count));
  }
}

OwnedTree FromXml(const Model &model, const std::string &xml) {
  ly_in *in = nullptr;
  if (ly_in_new_memory(xml.c_str(), &in) != LY_SUCCESS) return nullptr;
  lyd_node *tree = nullptr;
  lyd_parse_op(model.context(), nullptr, in, LYD_XML, LYD_TYPE_RPC_YANG, &tree, nullptr);
  ly_in_free(in, 0);
  return OwnedTree(tree);
}

bool SendParts(int channel, std::string_view text) {
  for (size_t at = 0; at < text.size(); at += kPartSize) {
    if (!Send(channel, kPart, text.substr(at, kPartSize))) return false;
  }
  return true;
}

bool RunHandlerJob(int channel, const Model &model, const Frame &frame) {
  const OwnedTree request = FromXml(model, frame.text);
  if (frame.word >= Handlers().size() || request == nullptr) throw HostError("the agent sent no request");
  const HandlerAnswer answer = RunHandler(Handlers()[frame.word], request.get());
  const uint32_t word = !answer.sent ? kSilent : answer.refused ? kSaidWhy : kSent;
  return SendParts(channel, answer.text) && Send(channel, word, std::to_string(answer.result));
}

bool RunWalkJob(int channel, const Frame &frame) {
  const size_t source = frame.word & ~kWalk;
  if (source >= EngineStateSources().size()) throw HostError("the agent asks for no state data");
  const auto fields = ReadFields(frame.text, 2);
  if (!fields || fields->size() != 2) throw HostError("the agent does not say where a walk stands");
  StateSink sink(kPieceSize, (*fields)[1]);
  const std::string next = EngineStateSources()[source].walk((*fields)[0], &sink);
  std::string records;
  for (const StateRecord &record : sink.records()) {
    for (const std::string *field : {&record.space, &record.path, &record.body})
      AppendField(*field, &records);
  }
  return SendParts(channel, records) && Send(channel, kWalked, next);
}

bool RunJob(int channel, const Model &model, const Frame &frame) {
  if (frame.word == kLook)
    return SendParts(channel, EngineLook::Take(model).Text()) && Send(channel, kWalked, {});
  return (frame.word & kWalk) != 0 ? RunWalkJob(channel, frame) : RunHandlerJob(channel, model, frame);
}

}  // namespace

void RunWorker(int channel, const Model &model, const std::function<std::unique_ptr<Arena>()> &attach) {
  std::unique_ptr<Arena> arena;
  FrameReader reader;
  Frame frame;
  while (Receive(channel, &reader, &frame)) {
    try {
      if (arena == nullptr) arena = attach();
      if (!arena->EngineAlive()) {
        Send(channel, kGone, {});
        return;
      }
      if (!RunJob(channel, model, frame)) return;
    } catch (const std::exception &error) {
      if (!Send(channel, kRefused, LineOf(error))) return;
    }
  }
}

WorkerJob WorkerJob::Run(const Handler &handler, const lyd_node *request) {
  return {static_cast<uint32_t>(&handler - Handlers().data()), Printed(request, LYD_PRINT_SHRINK)};
}

WorkerJob WorkerJob::Look() { return {kLook, {}}; }

WorkerJob WorkerJob::Walk(size_t source, const std::string &from, const std::string &condition) {
  std::string text;
  AppendField(from, &text);
  AppendField(condition, &text);
  return {kWalk | static_cast<uint32_t>(source), std::move(text)};
}

AgentWorker::~AgentWorker() {
  if (pid_ >= 0 && !busy_) AwaitEnd();
  End();
}

void AgentWorker::Start() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw SystemError("cannot start a worker");
  UniqueFd ours(ends[0]);
  const UniqueFd theirs(ends[1]);
  std::vector<char *> words;
  for (const std::string &word : command_) words.push_back(const_cast<char *>(word.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, theirs.get(), STDIN_FILENO);
  // The signals that stop the agent reach its whole terminal; the worker ends with its channel.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  const int failure = posix_spawn(&pid_, words[0], &actions, &attributes, words.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    pid_ = -1;
    errno = failure;
    throw SystemError("cannot start a worker");
  }
  channel_ = std::move(ours);
}

// One that waits for a job ends by itself with its channel.
void AgentWorker::AwaitEnd() {
  channel_ = UniqueFd();
  const UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
  pollfd ending{process.get(), POLLIN, 0};
  if (process.ok() && poll(&ending, 1, kEndMilliseconds) == 1) Reap();
}

void AgentWorker::Reap() {
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

void AgentWorker::End() {
  if (pid_ >= 0) {
    kill(pid_, SIGKILL);
    Reap();
  }
  // Only now: when the channel ends a worker begins an end of its own, in the middle of which it would die.
  channel_ = UniqueFd();
}

bool AgentWorker::GiveJob() {
  try {
    if (pid_ < 0) Start();
    reader_ = FrameReader();
    answer_ = {};
    deadline_ = Clock::now() + kPatience;
    if (Send(channel_.get(), job_.word, job_.text)) return true;
  } catch (const HostError &error) {
    problem_ = error.what();
    return false;
  } catch (const std::bad_alloc &) {
    problem_ = "out of memory";
    return false;
  }
  problem_ = "the process that runs commands has ended; the command may be asked again";
  return false;
}

void AgentWorker::Begin(WorkerJob job) {
  job_ = std::move(job);
  again_ = false;
  busy_ = true;
  problem_.clear();
  // One that has ended since its last job is nobody's fault.
  if (GiveJob()) return;
  End();
  if (GiveJob()) problem_.clear();
}

std::optional<WorkerAnswer> AgentWorker::Fail(std::string why, bool isLost) {
  End();
  busy_ = false;
  answer_.isLost = isLost;
  answer_.failure = std::move(why);
  return std::move(answer_);
}

std::optional<WorkerAnswer> AgentWorker::Take(Frame *frame) {
  switch (frame->word) {
    case kPart:
      answer_.handler.text += frame->text;
      if (answer_.handler.text.size() > kMostOfAnswer) return Fail("the answer is too long");
      return {};
    case kRefused:
      answer_.failure = frame->text.empty() ? "the command was refused" : std::move(frame->text);
      break;
    case kGone:
      // A new worker finds the engine that took the place of the one that is gone, or says that there is
      // none.
      End();
      if (again_) return Fail("the engine is gone");
      again_ = true;
      if (!GiveJob()) return Fail(problem_, true);
      return {};
    case kWalked:
      answer_.next = std::move(frame->text);
      break;
    default:
      answer_.handler.sent = frame->word != kSilent;
      answer_.handler.refused = frame->word == kSaidWhy;
      answer_.handler.result = std::atoi(frame->text.c_str());
  }
  busy_ = false;
  return std::move(answer_);
}

std::optional<WorkerAnswer> AgentWorker::Advance() {
  try {
    return Step();
  } catch (const std::bad_alloc &) {
    return Fail("out of memory", true);  // so short that it takes none
  }
}

std::optional<WorkerAnswer> AgentWorker::Step() {
  if (busy_ && !problem_.empty()) return Fail(problem_, true);
  if (busy_ && Clock::now() > deadline_) return Fail("the command took too long and was ended", true);
  char bytes[65536];
  const ssize_t count = recv(channel_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return {};
  if (count <= 0) {
    if (busy_) return Fail("the command ended without an answer; it may be asked again", true);
    End();
    return {};
  }
  reader_.Append(bytes, static_cast<size_t>(count));
  Frame frame;
  while (busy_) {
    const FrameReader::State state = reader_.Next(&frame);
    if (state == FrameReader::State::kNeedMore) return {};
    if (state == FrameReader::State::kTooLong) return Fail("the command ended without an answer", true);
    if (auto answer = Take(&frame)) return answer;
  }
  return {};
}

}  // namespace qdt::host
