#ifndef HOST_OMCC_LIBYANG_MEMORY_H_
#define HOST_OMCC_LIBYANG_MEMORY_H_

#include <libyang/libyang.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <string>

namespace qdt::host {

// Whether memory has run out since this was made. libyang says so by the codes that it has for bad data, and
// leaves out pieces of what it prints without a word; the C library's heap leaves a trace that its callers do
// not.
class MemoryWatch {
 public:
  MemoryWatch() { errno = 0; }
  static bool IsShort() { return errno == ENOMEM; }
  // Throws std::bad_alloc when it is.
  static void Check() {
    if (IsShort()) throw std::bad_alloc();
  }
};

// Throws std::bad_alloc unless there is memory for our data model. libyang does not survive that some of its
// allocations fail while it loads modules.
void CheckRoomForModel();

// The tree as XML; the module as YANG. Throw std::bad_alloc, and HostError where libyang refuses.
std::string Printed(const lyd_node *tree, uint32_t options);
std::string Printed(const lys_module *module);

}  // namespace qdt::host

#endif  // HOST_OMCC_LIBYANG_MEMORY_H_
