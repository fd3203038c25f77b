#ifndef HOST_BASE_DIRECTORY_H_
#define HOST_BASE_DIRECTORY_H_

#include <functional>
#include <string>
#include <string_view>

#include "host/base/fd.h"

namespace qdt::host {

// The directory of a file that is made under another name first. It is held open, so that what happens there
// happens in one directory, whatever becomes of the path meanwhile.
class Directory {
 public:
  Directory() = default;
  // That of `path`; check ok(), errno tells why not.
  explicit Directory(const std::string &path);

  bool ok() const { return fd_.ok(); }
  int get() const { return fd_.get(); }
  // The path's last name, which the calls that end in "at" take beside get().
  const std::string &name() const { return name_; }

  // "NAME<16 random hexadecimal digits>END", a name that nobody can have taken beforehand.
  std::string TemporaryName(std::string_view middle, std::string_view end) const;
  // Calls `visit` with each name of that form, whatever the number of digits.
  void EachTemporary(std::string_view middle, std::string_view end,
                     const std::function<void(const std::string &)> &visit) const;

 private:
  UniqueFd fd_;
  std::string name_;
};

}  // namespace qdt::host

#endif  // HOST_BASE_DIRECTORY_H_
