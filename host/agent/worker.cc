#include "host/agent/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "host/library/services.h"
#include "host/wire/protocol.h"

extern char **environ;

namespace qdt::host {
namespace {

// Words of the frames between agent and worker. A request's word is the handler's place in Handlers(), its
// text the rpc.
enum ReplyWord : uint32_t {
  kPart,     // the next piece of the answer
  kSent,     // the answer is complete: the text is the handler's result
  kSilent,   // likewise, and the handler has sent nothing
  kRefused,  // not run: the text says why
  kGone,     // not run: the engine is gone and this worker ends
};

constexpr size_t kPieceSize = kFrameLimit / 2;
constexpr int kPatience = 120'000;  // ms that a handler may take

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

// False when the other side is gone, hangs for `patience` ms (negative: never) or sends no frames.
bool Receive(int channel, FrameReader *reader, int patience, Frame *frame) {
  while (true) {
    const FrameReader::State state = reader->Next(frame);
    if (state != FrameReader::State::kNeedMore) return state == FrameReader::State::kFrame;
    pollfd entry{channel, POLLIN, 0};
    const int ready = poll(&entry, 1, patience);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    char bytes[65536];
    const ssize_t count = recv(channel, bytes, sizeof(bytes), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    reader->Append(bytes, static_cast<size_t>(count));
  }
}

std::string ToXml(const lyd_node *tree) {
  char *text = nullptr;
  if (lyd_print_mem(&text, tree, LYD_XML, LYD_PRINT_SHRINK) != LY_SUCCESS)
    throw HostError("a request cannot be printed");
  const std::string xml = text;
  std::free(text);
  return xml;
}

OwnedTree FromXml(const Model &model, const std::string &xml) {
  ly_in *in = nullptr;
  if (ly_in_new_memory(xml.c_str(), &in) != LY_SUCCESS) return nullptr;
  lyd_node *tree = nullptr;
  lyd_parse_op(model.context(), nullptr, in, LYD_XML, LYD_TYPE_RPC_YANG, &tree, nullptr);
  ly_in_free(in, 0);
  return OwnedTree(tree);
}

bool SendAnswer(int channel, const HandlerAnswer &answer) {
  const std::string_view text = answer.text;
  for (size_t at = 0; at < text.size(); at += kPieceSize) {
    if (!Send(channel, kPart, text.substr(at, kPieceSize))) return false;
  }
  return Send(channel, answer.sent ? kSent : kSilent, std::to_string(answer.result));
}

}  // namespace

void RunWorker(int channel, const Model &model, const std::function<std::unique_ptr<Arena>()> &attach) {
  std::unique_ptr<Arena> arena;
  FrameReader reader;
  Frame frame;
  while (Receive(channel, &reader, -1, &frame)) {
    try {
      if (arena == nullptr) arena = attach();
      if (!arena->EngineAlive()) {
        Send(channel, kGone, {});
        return;
      }
      const OwnedTree request = FromXml(model, frame.text);
      if (frame.word >= Handlers().size() || request == nullptr) throw HostError("the agent sent no request");
      if (!SendAnswer(channel, RunHandler(Handlers()[frame.word], request.get()))) return;
    } catch (const HostError &error) {
      if (!Send(channel, kRefused, error.what())) return;
    }
  }
}

AgentWorker::~AgentWorker() { End(); }

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

void AgentWorker::End() {
  channel_ = UniqueFd();
  if (pid_ < 0) return;
  kill(pid_, SIGKILL);
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

// False when the worker's engine is gone; the worker has ended then.
bool AgentWorker::TryRun(uint32_t handler, const std::string &request, HandlerAnswer *answer) {
  if (pid_ < 0) Start();
  *answer = {};
  FrameReader reader;
  Frame frame;
  if (Send(channel_.get(), handler, request)) {
    while (Receive(channel_.get(), &reader, kPatience, &frame)) {
      if (frame.word == kPart) {
        answer->text += frame.text;
        continue;
      }
      if (frame.word == kRefused) throw HostError(frame.text);
      if (frame.word == kGone) {
        End();
        return false;
      }
      answer->sent = frame.word == kSent;
      answer->result = std::atoi(frame.text.c_str());
      return true;
    }
  }
  End();
  throw HostError("the command ended without an answer; it may be asked again");
}

HandlerAnswer AgentWorker::Run(const Handler &handler, const lyd_node *request) {
  const auto index = static_cast<uint32_t>(&handler - Handlers().data());
  const std::string xml = ToXml(request);
  const std::lock_guard lock(mutex_);
  HandlerAnswer answer;
  // A new worker finds the engine that took the place of the one that is gone, or says that there is none.
  if (!TryRun(index, xml, &answer) && !TryRun(index, xml, &answer)) throw HostError("the engine is gone");
  return answer;
}

}  // namespace qdt::host
