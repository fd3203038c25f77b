#ifndef HOST_METRICS_TARGET_H_
#define HOST_METRICS_TARGET_H_

#include <functional>
#include <memory>
#include <string>

#include "host/record/record_source.h"

namespace qdt::host {

// Calls what it is given, which reads a mapped file; false when the file has lost bytes under it, so that the
// call was left in its middle. Empty: nobody takes care, and the process ends of it.
using ReadGuard = std::function<bool(const std::function<void()> &read)>;

inline bool ReadGuarded(const ReadGuard &guard, const std::function<void()> &read) {
  if (guard) return guard(read);
  read();
  return true;
}

// An arena whose metrics are asked for by its name.
struct MetricsTarget {
  std::string name;
  std::string path;
  bool isSnapshot = false;

  // Throws HostError when it is gone, damaged or of another version.
  std::unique_ptr<RecordSource> Open(const Layout &layout) const {
    return isSnapshot ? RecordSource::OfSnapshot(path, layout) : RecordSource::OfEngine(path, layout);
  }
};

}  // namespace qdt::host

#endif  // HOST_METRICS_TARGET_H_
