#ifndef HOST_WIRE_LISTENER_H_
#define HOST_WIRE_LISTENER_H_

#include <sys/types.h>

#include <string>

#include "host/base/fd.h"

namespace qdt::host {

// A listening socket in the file system, an engine's or an agent's. It takes the place of a socket that a
// dead one left behind; the file goes with the object, if it is still this one.
//
// Whoever makes or replaces a socket holds the lock of its directory meanwhile, so that of several engines
// that start at once over the same leftovers exactly one gets the path.
class Listener {
 public:
  // `owner`: what such a socket belongs to, for messages. Throws HostError when something answers at `path`,
  // when a file of another kind is there, or when the socket cannot be made. The directory stays locked until
  // Unlock.
  explicit Listener(const std::string &path, const char *owner = "engine");
  ~Listener();
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;

  // The engine is published: from now on others may look at the socket and see that it answers.
  void Unlock() { directory_ = UniqueFd(); }

  int fd() const { return socket_.get(); }

 private:
  void LockDirectory();
  // That the file is the one just made; false with errno.
  bool TakeFile();
  // Makes sure that nothing stands at the path, or throws.
  void ClearPath();

  std::string path_;
  std::string owner_;
  UniqueFd directory_;
  UniqueFd socket_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

}  // namespace qdt::host

#endif  // HOST_WIRE_LISTENER_H_
