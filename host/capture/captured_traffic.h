#ifndef HOST_CAPTURE_CAPTURED_TRAFFIC_H_
#define HOST_CAPTURE_CAPTURED_TRAFFIC_H_

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "host/base/fd.h"
#include "host/capture/capture_file.h"
#include "host/capture/live_capture.h"
#include "host/packet/forwarding.h"
#include "host/packet/pipeline.h"

namespace qdt::host {

class Engine;

// Real packets on the engine's path: of network interfaces, and of a file.
class CapturedTraffic {
 public:
  using Say = std::function<void(const std::string &line)>;

  // Packets in one go, so that the engine answers others meanwhile and the trace prints each one.
  static constexpr uint32_t kPacketsPerStep = 60;
  static constexpr std::chrono::milliseconds kPeriod{10};
  static constexpr std::chrono::seconds kCheckPeriod{1};

  // All outlive this. `say` takes what is to be known of captures, a line at a time.
  CapturedTraffic(Engine *engine, Pipeline *pipeline, Say say);

  // Captures at a network interface, in the namespace `netns` or, with -1, the process's own. `fwdIf` is the
  // forwarding interface that stands for it; 0: the one of its index. Throws HostError; a missing right is
  // only said.
  void Capture(const std::string &interface, uint32_t fwdIf, int netns);
  // Plays a file, as fast as it was captured or without waiting. `fwdIf` is where its packets came in; 0:
  // told by their addresses. Throws HostError.
  void Replay(const std::string &path, uint32_t fwdIf, bool fast);

  // Readable when there is something to follow at the interfaces.
  int changes() const { return poll_.get(); }
  // Takes what has come at the interfaces, a step's worth of each.
  void Follow();
  bool replays() const { return file_.has_value(); }
  // Takes what is due of the file; whether more is.
  bool Step();
  // Looks for losses and for interfaces that have gone.
  void Check();
  // Captures at none of the interfaces any more.
  void LeaveInterfaces(const std::string &why);

 private:
  struct Live {
    LiveCapture capture;
    CapturePoint point;
    bool lossSaid = false;
  };
  struct File {
    CaptureFile file;
    CapturePoint point;
    bool fast;
    std::optional<std::chrono::steady_clock::time_point> begun = {};
    uint64_t first = 0;  // time of the first packet
  };

  void Process(LinkType type, const CapturedBytes &bytes, CapturePoint point, Pipeline::Batch *batch);
  bool IsDue(const CapturedBytes &next) const;
  void SayThatGone(const std::string &problem) const;

  Pipeline &pipeline_;
  Forwarding forwarding_;
  Say say_;
  UniqueFd poll_;
  std::list<Live> interfaces_;
  std::optional<File> file_;
};

// To standard error, as long as somebody takes the lines, and the system log.
void SayOfCaptures(const std::string &line);

}  // namespace qdt::host

#endif  // HOST_CAPTURE_CAPTURED_TRAFFIC_H_
