#ifndef TOOLS_NQECLI_OUTPUT_NEW_FILE_H_
#define TOOLS_NQECLI_OUTPUT_NEW_FILE_H_

#include <csignal>
#include <string>

#include "host/base/directory.h"
#include "host/base/fd.h"

namespace qdt::nqecli {

// A file on its way to `file`, without a name where the file system has such files, and under a temporary
// name beside it elsewhere. Goes away unless it is kept, a named one whose process is killed with the next
// one for `file`; an existing file is never touched. Throws HostError.
class NewFile {
 public:
  enum class Way { kNamelessIfPossible, kNamed };
  explicit NewFile(const std::string &file, Way way = Way::kNamelessIfPossible);
  ~NewFile();
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;

  int fd() const { return fd_.get(); }

  // Gives it its name.
  void Keep();

 private:
  [[noreturn]] void Refuse() const;
  void RemoveAbandoned() const;
  bool MakeNameless();
  void MakeNamed();
  // Renames the file, or gives it its first name; false with errno.
  bool Rename() const;

  std::string file_;
  host::Directory directory_;
  std::string name_;  // empty: it has none
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

#endif  // TOOLS_NQECLI_OUTPUT_NEW_FILE_H_
