#include "tools/omad/quick_start.h"

#include <fcntl.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/text_file.h"
#include "host/base/trust.h"
#include "host/base/words.h"

namespace qdt::omad {
namespace {

using host::HostError;
using host::Quoted;
using Strings = std::vector<std::string>;

constexpr char kSshd[] = "/usr/sbin/sshd";
constexpr char kKeygen[] = "/usr/bin/ssh-keygen";
constexpr uint64_t kKeyFileLimit = 64 << 10;
constexpr int kMostFailures = 5;
constexpr auto kStartPatience = std::chrono::seconds(20);

// A child that goes when omad does. With `error`, what it writes to standard error comes there.
pid_t Spawn(const Strings &words, int error = -1) {
  std::vector<char *> arguments;
  for (const std::string &word : words) arguments.push_back(const_cast<char *>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) throw host::SystemError("cannot start " + words[0]);
  if (pid != 0) return pid;
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  std::signal(SIGPIPE, SIG_DFL);
  // The signals that stop omad reach its whole terminal.
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const int nothing = open("/dev/null", O_RDWR);
  dup2(nothing, 0);
  dup2(nothing, 1);
  dup2(error >= 0 ? error : nothing, 2);
  if (getppid() == parent) execv(arguments[0], arguments.data());
  _exit(127);
}

int Await(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs a program to its end: its exit code, and the last line that it said.
int RunToEnd(const Strings &words, std::string *said) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw host::SystemError("cannot start " + words[0]);
  const host::UniqueFd read_end(ends[0]);
  pid_t pid = -1;
  {
    const host::UniqueFd write_end(ends[1]);
    pid = Spawn(words, write_end.get());
  }
  std::string text;
  char bytes[4096];
  for (ssize_t count; (count = read(read_end.get(), bytes, sizeof bytes)) > 0;)
    if (text.size() < 65536) text.append(bytes, static_cast<size_t>(count));
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  *said = text.substr(text.rfind('\n') + 1);
  return Await(pid);
}

void WriteFile(const std::string &path, const std::string &text) {
  const host::UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file.ok() || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    throw host::SystemError("cannot write " + path);
}

// Whoever reads the key can pass for this host.
void CheckHostKey(const std::string &path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0 || access(path.c_str(), R_OK) != 0)
    throw host::SystemError("cannot read the host key " + path);
  host::RequireTrusted(info.st_uid, "the host key " + path);
  if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    throw HostError("others may read the host key " + path + " (chmod 600 " + path + ')');
  std::string said;
  if (RunToEnd({kKeygen, "-y", "-P", "", "-f", path}, &said) != 0)
    throw HostError(path + " is no private SSH key without a passphrase; ssh-keygen makes one");
}

// The keys in a file of public keys, "TYPE BASE64" each: options that stand before or words behind them say
// nothing here.
Strings ReadPublicKeys(const std::string &user, const std::string &path) {
  if (access(path.c_str(), R_OK) != 0)
    throw host::SystemError("cannot read the key of " + user + ", " + path);
  const HostError noKey(path + " is no public SSH key; name the file that ends in .pub");
  std::string said;
  if (RunToEnd({kKeygen, "-l", "-f", path}, &said) != 0) throw noKey;
  Strings keys;
  const std::string text = host::ReadTextFile(path, kKeyFileLimit);
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    const size_t begin = line.find_first_not_of(" \t\r");
    if (begin == line.npos || line[begin] == '#') continue;
    const size_t space = line.find(' ', begin);
    const std::string type = line.substr(begin, space - begin);
    if (space == line.npos ||
        !(type.starts_with("ssh-") || type.starts_with("ecdsa-") || type.starts_with("sk-")))
      throw noKey;
    const std::string key = line.substr(space + 1, line.find_first_of(" \t\r", space + 1) - space - 1);
    constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
    if (!key.starts_with("AAAA") || key.find_first_not_of(kBase64) != key.npos ||
        type.find_first_of("\"\\,") != type.npos)
      throw noKey;
    keys.push_back(type + ' ' + key);
  }
  if (keys.empty()) throw noKey;
  return keys;
}

struct FreeAddresses {
  void operator()(addrinfo *list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

Addresses Resolve(const QuickStart &options) {
  addrinfo wanted{};
  wanted.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo *list = nullptr;
  if (getaddrinfo(options.address.c_str(), std::to_string(options.port).c_str(), &wanted, &list) != 0)
    throw HostError(Quoted(options.address) + " is no address; name an IPv4 or IPv6 address of this machine");
  return Addresses(list);
}

// sshd would say so in the system log only.
void CheckPort(const QuickStart &options) {
  const Addresses address = Resolve(options);
  const host::UniqueFd probe(socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int yes = 1;
  setsockopt(probe.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (bind(probe.get(), address->ai_addr, address->ai_addrlen) != 0 || listen(probe.get(), 1) != 0)
    throw host::SystemError("cannot listen on " + options.address + ':' + std::to_string(options.port));
}

bool Answers(const QuickStart &options) {
  const Addresses address = Resolve(options);
  const host::UniqueFd probe(socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return connect(probe.get(), address->ai_addr, address->ai_addrlen) == 0;
}

// sshd runs a session's command by the account's shell.
void CheckShell(const std::string &account) {
  const passwd *entry = getpwuid(geteuid());
  const std::string shell = entry == nullptr || entry->pw_shell == nullptr ? "" : entry->pw_shell;
  const bool refuses = shell.ends_with("/nologin") || shell.ends_with("/false");
  if (entry == nullptr || refuses || (!shell.empty() && access(shell.c_str(), X_OK) != 0)) {
    throw HostError("nobody can log in as " + account + ", whose shell is " + Quoted(shell) +
                    " (run omad as another user, or behind the system's own sshd)");
  }
}

std::string InQuotes(const std::string &path) {
  if (path.find_first_of("'\"\\\n%") != path.npos)
    throw HostError(Quoted(path) + " has characters that no sshd takes; name another place");
  return '\'' + path + '\'';
}

}  // namespace

SshService::SshService(const QuickStart &options, const std::string &socket)
    : options_(options), account_(host::UserName(geteuid())) {
  for (const char *program : {kSshd, kKeygen}) {
    if (access(program, X_OK) != 0)
      throw HostError(std::string(program) +
                      " is not installed (packages openssh-server and openssh-client)");
  }
  CheckShell(account_);
  if (!options.hostKey.empty()) CheckHostKey(options.hostKey);
  MakeDirectory(std::filesystem::absolute(socket).lexically_normal().string() + ".ssh");
  WriteKeys(socket);
  CheckPort(options);
  std::string said;
  if (options.hostKey.empty() &&
      RunToEnd({kKeygen, "-q", "-t", "ed25519", "-N", "", "-C", "omad", "-f", File("host_key")}, &said) != 0)
    throw HostError("cannot make a host key: " + said);
  WriteConfiguration();
  // What root's sshd leaves its own rights for; a package that is not started at boot has not made it.
  if (geteuid() == 0 && mkdir("/run/sshd", 0755) != 0 && errno != EEXIST)
    throw host::SystemError("cannot make /run/sshd");
  if (RunToEnd({kSshd, "-t", "-f", File("sshd_config")}, &said) != 0)
    throw HostError("sshd does not take its configuration: " + said);
  Start();
}

SshService::~SshService() { Stop(); }

SshService::Directory::~Directory() {
  std::error_code ignored;
  if (!path.empty()) std::filesystem::remove_all(path, ignored);
}

std::string SshService::Where() const {
  const bool isV6 = options_.address.find(':') != std::string::npos;
  return (isV6 ? '[' + options_.address + ']' : options_.address) + ':' + std::to_string(options_.port) +
         " as " + account_;
}

// What an omad that was killed has left may be taken away: its socket is ours.
void SshService::MakeDirectory(const std::string &path) {
  struct stat info;
  if (lstat(path.c_str(), &info) == 0) {
    if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid())
      throw HostError(path + " is no directory of this user; name another --socket");
    std::error_code error;
    std::filesystem::remove_all(path, error);
  }
  if (mkdir(path.c_str(), 0700) != 0) throw host::SystemError("cannot make " + path);
  directory_.path = path;
}

void SshService::WriteKeys(const std::string &socket) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "omad-session";
  if (access(program.c_str(), X_OK) != 0) throw host::SystemError("cannot run " + program);
  const std::string place = InQuotes(std::filesystem::absolute(socket).lexically_normal());
  std::string lines;
  std::vector<std::pair<std::string, std::string>> known;
  for (const auto &[user, path] : options_.userKeys) {
    for (const std::string &key : ReadPublicKeys(user, path)) {
      for (const auto &[other, theirs] : known) {
        if (theirs == key && other != user)
          throw HostError("the key in " + path + " is that of " + other + " already, and cannot be that of " +
                          user);
      }
      known.emplace_back(user, key);
      lines += "command=\"exec " + InQuotes(program) + " --socket " + place + " --user " + user +
               "\",restrict " + key + '\n';
    }
  }
  WriteFile(File("keys"), lines);
}

void SshService::WriteConfiguration() {
  InQuotes(directory_.path);
  const std::string hostKey =
      options_.hostKey.empty() ? File("host_key") : std::filesystem::absolute(options_.hostKey).string();
  InQuotes(hostKey);
  WriteFile(File("sshd_config"),
            "ListenAddress " + options_.address + "\nPort " + std::to_string(options_.port) + "\nHostKey \"" +
                hostKey + "\"\nAuthorizedKeysFile \"" + File("keys") + "\"\nAllowUsers " + account_ +
                "\nSubsystem netconf /bin/false\n"
                "PidFile none\n"
                // omad has made the directory of the keys for itself alone; where it stands says nothing.
                "StrictModes no\n"
                "PermitRootLogin forced-commands-only\n"
                "AuthenticationMethods publickey\n"
                "UsePAM no\n"
                "PermitTTY no\n"
                "PermitUserRC no\n"
                "DisableForwarding yes\n"
                // A shell that thinks itself inside of another reads no file of the account, which could say
                // something.
                "SetEnv SHLVL=1\n"
                "PrintMotd no\n"
                "PrintLastLog no\n"
                "LoginGraceTime 20\n"
                "MaxAuthTries 6\n"
                // Who only connects and says nothing keeps nobody out.
                "MaxStartups 200:30:400\n"
                "MaxSessions 16\n"
                "ClientAliveInterval 60\n"
                "ClientAliveCountMax 3\n");
}

void SshService::Launch() {
  pid_ = Spawn({kSshd, "-D", "-f", File("sshd_config")});
  launched_ = std::chrono::steady_clock::now();
}

void SshService::Start() {
  Launch();
  const auto deadline = std::chrono::steady_clock::now() + kStartPatience;
  while (!Answers(options_)) {
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) pid_ = -1;
    if (pid_ > 0 && std::chrono::steady_clock::now() <= deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      continue;
    }
    Stop();
    throw HostError("sshd does not start; the system log has its reason");
  }
}

void SshService::Stop() {
  if (pid_ < 0) return;
  kill(pid_, SIGTERM);
  Await(pid_);
  pid_ = -1;
}

void SshService::ChildEnded() {
  if (pid_ < 0 || waitpid(pid_, nullptr, WNOHANG) != pid_) return;
  pid_ = -1;
  const bool atOnce = std::chrono::steady_clock::now() - launched_ < std::chrono::seconds(1);
  failures_ = atOnce ? failures_ + 1 : 0;
  if (failures_ < kMostFailures) return Launch();
  std::fputs("omad: its sshd ends at once, again and again; nobody logs in until omad is started again\n",
             stderr);
}

}  // namespace qdt::omad
