#ifndef HOST_METRICS_TARGET_H_
#define HOST_METRICS_TARGET_H_

#include <memory>
#include <string>

#include "host/record/record_source.h"

namespace qdt::host {

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
