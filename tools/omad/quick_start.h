#ifndef TOOLS_OMAD_QUICK_START_H_
#define TOOLS_OMAD_QUICK_START_H_

#include <sys/types.h>

#include <chrono>
#include <string>

#include "tools/omad/options.h"

namespace qdt::omad {

// An sshd for the users of omad alone: its configuration, the keys and a host's key stand in a directory of
// omad's own, beside its socket. It ends with omad, and is started again when it ends before.
class SshService {
 public:
  // `socket`: omad's, which nobody else can have. Throws HostError when it cannot be set up.
  SshService(const QuickStart &options, const std::string &socket);
  ~SshService();
  SshService(const SshService &) = delete;
  SshService &operator=(const SshService &) = delete;

  // "127.0.0.1:830 as operator"
  std::string Where() const;
  // Takes note that a process has ended; when it is the sshd, another is started.
  void ChildEnded();

 private:
  void MakeDirectory(const std::string &path);
  void WriteKeys(const std::string &socket);
  void WriteConfiguration();
  void Launch();
  void Start();
  void Stop();
  std::string File(const char *name) const { return directory_.path + '/' + name; }

  // Goes with all that stands in it.
  struct Directory {
    ~Directory();
    std::string path;
  };

  const QuickStart &options_;
  const std::string account_;  // whose sshd it is, and who logs in
  Directory directory_;
  pid_t pid_ = -1;
  std::chrono::steady_clock::time_point launched_{};
  int failures_ = 0;  // ends that came at once, in a row
};

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_QUICK_START_H_
