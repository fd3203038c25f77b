#ifndef HOST_BASE_TEXT_FILE_H_
#define HOST_BASE_TEXT_FILE_H_

#include <cstdint>
#include <string>

namespace qdt::host {

// The contents of a regular file of at most `limit` bytes. Throws HostError "PATH: what is wrong (how to mend
// it)"; a file that is too large is refused before any of it is read.
std::string ReadTextFile(const std::string &path, uint64_t limit);
// The same of YAML, in which much can be said in few words.
std::string ReadYamlFile(const std::string &path, uint64_t limit);

}  // namespace qdt::host

#endif  // HOST_BASE_TEXT_FILE_H_
