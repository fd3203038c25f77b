// Capture files, every packet of which goes through the engine: parsed, looked up, counted and traced.

#include "fuzz/lab.h"
#include "host/base/host_error.h"
#include "host/capture/captured_traffic.h"
#include "host/commands/commands.h"
#include "host/packet/pipeline.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  fuzz::Lab &lab = fuzz::Lab::Get();
  const auto ignore = [](const std::string &) {};
  static host::Pipeline pipeline(&lab.engine(), {ignore, ignore});
  static const bool traced = [&lab] {
    host::RunCommandLine(lab.engine(), "pkt_trace enable");
    return true;
  }();
  static_cast<void>(traced);
  const fuzz::MemoryFile file(data, size);
  try {
    host::CapturedTraffic traffic(&lab.engine(), &pipeline, ignore);
    traffic.Replay(file.path(), 0, true);
    for (int steps = 0; traffic.Step() && steps < 100; ++steps) {
    }
  } catch (const host::HostError &) {
  }
  return 0;
}
