// The bytes of a connection to the engine's socket, in pieces: a byte of length before each.

#include "fuzz/lab.h"
#include "host/base/host_error.h"
#include "host/commands/commands.h"
#include "host/wire/protocol.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  fuzz::Lab &lab = fuzz::Lab::Get();
  host::FrameReader reader;
  host::Frame frame;
  while (size > 0) {
    const size_t piece = std::min<size_t>(data[0], size - 1);
    const std::vector<uint8_t> bytes = fuzz::OwnCopy(data + 1, piece);
    data += piece + 1;
    size -= piece + 1;
    reader.Append(reinterpret_cast<const char *>(bytes.data()), piece);
    host::FrameReader::State state;
    while ((state = reader.Next(&frame)) == host::FrameReader::State::kFrame) {
      if (frame.word != host::kRequestMark) return 0;
      try {
        host::RunCommandLine(lab.engine(), frame.text);
      } catch (const host::HostError &) {
      }
    }
    if (state == host::FrameReader::State::kTooLong) return 0;
  }
  return 0;
}
