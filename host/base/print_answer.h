#ifndef HOST_BASE_PRINT_ANSWER_H_
#define HOST_BASE_PRINT_ANSWER_H_

#include <string>

namespace qdt::host {

// Writes what a program was asked to tell, such as its help, to standard output. Throws HostError when that
// does not take it.
void PrintAnswer(const std::string &text);

}  // namespace qdt::host

#endif  // HOST_BASE_PRINT_ANSWER_H_
