#ifndef TOOLS_NQECLI_NEW_FILE_H_
#define TOOLS_NQECLI_NEW_FILE_H_

#include <csignal>
#include <string>

#include "host/base/fd.h"

namespace qdt::nqecli {

// A file on its way to `file`, under a temporary name beside it. Goes away unless it is kept; an existing
// file is never touched. Throws HostError.
class NewFile {
 public:
  explicit NewFile(const std::string &file);
  ~NewFile();
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;

  int fd() const { return fd_.get(); }

  // Gives it its name.
  void Keep();

 private:
  [[noreturn]] void Refuse() const;

  std::string file_;
  std::string name_;
  host::UniqueFd fd_;
  bool kept_ = false;
};

// Signals that end the tool wait until the temporary file is gone again; who writes it looks for them.
class DeferredSignals {
 public:
  DeferredSignals();
  ~DeferredSignals();
  DeferredSignals(const DeferredSignals &) = delete;
  DeferredSignals &operator=(const DeferredSignals &) = delete;

  static bool Arrived();

 private:
  sigset_t before_;
};

// An empty file without a name in the directory, which nobody else sees and which goes with its descriptor.
// Throws HostError.
host::UniqueFd NamelessFile(const std::string &directory);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_NEW_FILE_H_
