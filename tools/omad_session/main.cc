// omad-session: one NETCONF session on standard input and output, for sshd to start as a subsystem. It reads
// what a stranger sends, has no rights but those of its open files, and asks omad for everything.

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "host/base/arguments.h"
#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/print_answer.h"
#include "host/base/program.h"
#include "host/base/trust.h"
#include "host/session/dialogue.h"
#include "host/session/fields.h"
#include "host/session/link.h"
#include "host/wire/paths.h"
#include "host/wire/socket_address.h"
#include "tools/omad_session/sandbox.h"
#include "tools/omad_session/xpath.h"

namespace qdt::omad {
namespace {

using host::Arguments;
using host::Dialogue;
using host::HostError;
using host::UniqueFd;

constexpr int kFailure = 2;

constexpr char kUsage[] =
    "usage: omad-session [--user USER] [--socket PATH] [--trust USER]\n"
    "\n"
    "Speaks NETCONF on standard input and output for one client of omad. sshd starts it, as the subsystem "
    "\"netconf\"\n"
    "or as the command of a key:\n"
    "\n"
    "  command=\"/usr/sbin/omad-session --user alice\",restrict ssh-ed25519 AAAA...\n"
    "\n"
    "  --user USER    whose session it is; the owner of the process unless told otherwise. omad takes "
    "another name\n"
    "                 only from itself, from root and from whom its --carrier names\n"
    "  --socket PATH  omad's socket, " QDT_DEFAULT_OMAD_TEXT
    "\n"
    "                 unless told otherwise\n"
    "  --trust USER   believe an omad of that user as well, beside this user's and root's\n"
    "  --help, --version\n"
    "\n"
    "exit codes: 0 the client closed the session, 1 it ended otherwise, 2 bad usage or no omad\n";

struct CommandLine {
  bool help = false;
  bool version = false;
  std::string user;
  std::string socket = host::DefaultOmadSocket();
};

CommandLine Parse(Arguments arguments) {
  CommandLine line;
  while (!arguments.empty()) {
    std::string value;
    if (arguments.Take("--help")) {
      line.help = true;
    } else if (arguments.Take("--version")) {
      line.version = true;
    } else if (arguments.TakeValue("--trust", &value)) {
      host::TrustUser(value);
    } else if (!arguments.TakeValue("--user", &line.user) && !arguments.TakeValue("--socket", &line.socket)) {
      throw HostError("cannot make sense of " + host::Quoted(arguments.front()) + "; try --help");
    }
  }
  return line;
}

UniqueFd Connect(const std::string &path) {
  const sockaddr_un address = host::SocketAddress(path);
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) throw host::SystemError("no omad runs at " + path);
  host::RequireTrusted(info.st_uid, "omad's socket " + path);
  UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.ok() || connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
    throw host::SystemError("cannot reach omad at " + path);
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    throw host::SystemError("cannot tell whose the omad at " + path + " is");
  host::RequireTrusted(peer.uid, "the omad at " + path);
  return fd;
}

// The client's address, the first word of what sshd tells.
std::string ClientAddress() {
  const char *connection = std::getenv("SSH_CONNECTION");
  const std::string text = connection != nullptr ? connection : "";
  return text.substr(0, text.find(' '));
}

// Writes what can be written without waiting. False when nobody takes it any more.
bool WriteSome(int fd, std::string *bytes) {
  // A pipe that can be written has room for so much at least.
  constexpr size_t kPipePiece = 4096;
  ssize_t count = send(fd, bytes->data(), bytes->size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count < 0 && errno == ENOTSOCK) count = write(fd, bytes->data(), std::min(bytes->size(), kPipePiece));
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  bytes->erase(0, static_cast<size_t>(count));
  return true;
}

// What comes in one turn is done in milliseconds, unless somebody asks for what takes years: omad has ended
// the session meanwhile, and nobody would end the process.
constexpr itimerval kTurn{{}, {5, 0}};

void EndTurn(int) {
  constexpr char kWhy[] = "omad-session: the request takes too long\n";
  if (write(STDERR_FILENO, kWhy, sizeof kWhy - 1) >= 0) _exit(1);
  _exit(1);
}

class Session {
 public:
  explicit Session(UniqueFd agent) : agent_(std::move(agent)), dialogue_(SelectXpath) {}

  void Greet(const std::string &user) {
    std::string fields;
    for (const std::string &field : {user, ClientAddress(), std::string(host::kLinkProtocol)})
      host::AppendField(field, &fields);
    dialogue_.toAgent() += host::EncodeFrame(host::kAskHello, fields);
  }

  // Until the session is over. What it says then is why.
  std::string Run() {
    while (!dialogue_.over() || !dialogue_.toClient().empty()) {
      pollfd entries[] = {{dialogue_.WantsClient() ? STDIN_FILENO : -1, POLLIN, 0},
                          {dialogue_.toClient().empty() ? -1 : STDOUT_FILENO, POLLOUT, 0},
                          {agent_.get(), AgentEvents(), 0}};
      // A client that is gone is noticed while its answer is awaited, too.
      if (entries[0].fd < 0 && !clientGone_) entries[0] = {STDIN_FILENO, 0, 0};
      if (poll(entries, 3, -1) < 0 && errno != EINTR) return "the system cannot wait";
      setitimer(ITIMER_PROF, &kTurn, nullptr);
      if (entries[1].revents != 0 && !WriteClient()) return "";
      if (entries[2].revents != 0 && !TalkToAgent(entries[2].revents))
        return "omad has ended, or has ended this session";
      if ((entries[0].revents & (POLLERR | POLLNVAL)) != 0) return "";
      if (entries[0].revents != 0 && !dialogue_.WantsClient()) clientGone_ = true;
      if (entries[0].revents != 0 && dialogue_.WantsClient()) ReadClient();
    }
    if (!dialogue_.toAgent().empty()) WriteSome(agent_.get(), &dialogue_.toAgent());
    return dialogue_.farewell();
  }

 private:
  short AgentEvents() const {
    return static_cast<short>((dialogue_.WantsAgent() ? POLLIN : 0) |
                              (const_cast<Session *>(this)->dialogue_.toAgent().empty() ? 0 : POLLOUT));
  }
  bool WriteClient() {
    if (!WriteSome(STDOUT_FILENO, &dialogue_.toClient())) return false;
    dialogue_.Written();
    return true;
  }
  void ReadClient() {
    char bytes[65536];
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
    if (count > 0) {
      dialogue_.FromClient({bytes, static_cast<size_t>(count)});
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
      dialogue_.ClientEnded();
    }
  }
  bool TalkToAgent(short events) {
    if ((events & POLLOUT) != 0 && !WriteSome(agent_.get(), &dialogue_.toAgent())) return false;
    if ((events & ~POLLOUT) == 0) return true;
    char bytes[65536];
    const ssize_t count = recv(agent_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    if (count == 0) return false;
    frames_.Append(bytes, static_cast<size_t>(count));
    host::Frame frame;
    while (frames_.Next(&frame) == host::FrameReader::State::kFrame) dialogue_.FromAgent(std::move(frame));
    return true;
  }

  UniqueFd agent_;
  host::FrameReader frames_;
  Dialogue dialogue_;
  bool clientGone_ = false;
};

int Main(int argc, char **argv) {
  host::BeginProgram("omad-session");
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGPROF, EndTurn);
  try {
    const CommandLine line = Parse(Arguments(argc, argv));
    if (line.help || line.version) {
      host::PrintAnswer(line.help ? kUsage : "omad-session " + host::BuildInfo(false) + "\n");
      return 0;
    }
    Session session(Connect(line.socket));
    session.Greet(line.user);
    EnterSandbox();
    const std::string why = session.Run();
    if (why.empty()) return 0;
    std::fprintf(stderr, "omad-session: %s\n", why.c_str());
    return 1;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "omad-session: %s\n", host::LineOf(error));
    return kFailure;
  }
}

}  // namespace
}  // namespace qdt::omad

int main(int argc, char **argv) { return qdt::omad::Main(argc, argv); }
