#ifndef TESTS_HOST_TEMP_DIR_H_
#define TESTS_HOST_TEMP_DIR_H_

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace qdt::host {

// A directory of its own for each test.
class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/nqe-test-XXXXXX";
    path_ = mkdtemp(name);
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  const std::string &path() const { return path_; }
  std::string File(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace qdt::host

#endif  // TESTS_HOST_TEMP_DIR_H_
