#ifndef HOST_BASE_PROGRAM_H_
#define HOST_BASE_PROGRAM_H_

#include <exception>

namespace qdt::host {

// To be called first in main, with the name that stands before a program's lines. Sees to the standard
// descriptors (KeepStandardFds). Where memory runs out and nobody is left who could catch what the C++
// library throws (in a destructor, or where there is no memory for the exception itself), the program ends
// with one line and exit code 2, not by a signal; and so it does where it reads from an arena that somebody
// has shortened meanwhile.
void BeginProgram(const char *name);

// What main says of what it has caught: the line of a HostError, and one of its own for std::bad_alloc. Takes
// no memory; as good as `error` at least.
const char *LineOf(const std::exception &error);

}  // namespace qdt::host

#endif  // HOST_BASE_PROGRAM_H_
