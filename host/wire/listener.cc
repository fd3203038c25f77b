#include "host/wire/listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "host/base/trust.h"
#include "host/wire/socket_address.h"

namespace qdt::host {
namespace {

constexpr auto kLockPatience = std::chrono::seconds(5);
constexpr int kBacklog = 128;

// As the arena's: who may read and write it may ask as well, whatever the engine's umask says.
constexpr mode_t kSocketMode = 0660;

UniqueFd StreamSocket() {
  UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok()) throw SystemError("cannot make a socket");
  return fd;
}

// " (process 4711 of user root)", or nothing for a connection that is none.
std::string HolderOf(int connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0) return "";
  return " (process " + std::to_string(peer.pid) + " of user " + UserName(peer.uid) + ")";
}

}  // namespace

Listener::Listener(const std::string &path, const char *owner) : path_(path), owner_(owner) {
  const sockaddr_un address = SocketAddress(path_);
  LockDirectory();
  ClearPath();
  socket_ = StreamSocket();
  // What a socket's file may do at most when it is made.
  if (fchmod(socket_.get(), S_IRUSR | S_IWUSR) != 0) throw SystemError("cannot make a socket");
  if (bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    throw SystemError("cannot make the socket " + path_);
  }
  if (!TakeFile() || listen(socket_.get(), kBacklog) != 0) {
    const HostError error = SystemError("cannot listen on " + path_);
    unlink(path_.c_str());
    throw error;
  }
}

// Gives the new socket the rights of an arena, before anybody can connect. They are given to the very file,
// which another may not stand in for, and are no more than that until then.
bool Listener::TakeFile() {
  const UniqueFd file(open(path_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat info;
  if (!file.ok() || fstat(file.get(), &info) != 0) return false;
  if (!S_ISSOCK(info.st_mode) || info.st_uid != geteuid()) {
    errno = EEXIST;
    return false;
  }
  device_ = info.st_dev;
  inode_ = info.st_ino;
  // No call takes the descriptor of a socket's file itself.
  return chmod(("/proc/self/fd/" + std::to_string(file.get())).c_str(), kSocketMode) == 0;
}

Listener::~Listener() {
  struct stat info;
  if (lstat(path_.c_str(), &info) == 0 && info.st_dev == device_ && info.st_ino == inode_)
    unlink(path_.c_str());
}

void Listener::LockDirectory() {
  std::string directory = std::filesystem::path(path_).parent_path();
  if (directory.empty()) directory = ".";
  directory_ = UniqueFd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory_.ok()) throw SystemError("cannot open the socket's directory " + directory);
  const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
  while (flock(directory_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) throw SystemError("cannot lock " + directory);
    if (std::chrono::steady_clock::now() > deadline) {
      throw HostError(directory + " stays locked by another process; is a second " + owner_ +
                      " starting there?");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void Listener::ClearPath() {
  struct stat info;
  if (lstat(path_.c_str(), &info) != 0) {
    if (errno == ENOENT) return;
    throw SystemError("cannot look at " + path_);
  }
  if (!S_ISSOCK(info.st_mode)) throw HostError(path_ + " is not a socket; name another path with --socket");
  const sockaddr_un address = SocketAddress(path_);
  const UniqueFd probe = StreamSocket();
  // A socket without a process refuses; everything else (also a full queue) means that somebody lives there.
  const bool dead = connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 &&
                    errno == ECONNREFUSED;
  if (!dead) {
    throw HostError("something listens on " + path_ + " already" + HolderOf(probe.get()) + "; stop that " +
                    owner_ + " or name another path with --socket");
  }
  if (unlink(path_.c_str()) != 0)
    throw SystemError("cannot remove the dead " + owner_ + "'s socket " + path_);
}

}  // namespace qdt::host
