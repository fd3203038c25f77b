#ifndef HOST_WEB_LOST_PAGES_H_
#define HOST_WEB_LOST_PAGES_H_

#include <functional>

namespace qdt::host {

// A mapped file that somebody shortens has no bytes behind its new end: whoever reads them gets a signal. A
// server that shows many files must not end with one of them.

// To be called once, before the first Survive.
void WatchLostPages();

// Calls `read`; false when it met bytes that are gone. It has been left in the middle then: what it held is
// lost, so it holds no lock while it reads a mapped file. What it throws comes out.
bool Survive(const std::function<void()> &read);

}  // namespace qdt::host

#endif  // HOST_WEB_LOST_PAGES_H_
