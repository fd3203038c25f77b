#include <cstdlib>
#include <string_view>

#include "qdt/oma.h"
#include "src/om/common/address.h"
#include "src/om/common/log.h"
#include "src/om/common/owned.h"
#include "src/om/common/rows.h"
#include "src/om/common/text.h"
#include "src/om/oma/command_line.h"
#include "src/om/oma/request.h"

// The agent's way to the engine's own trace command: its command lines.
namespace qdt {
namespace {

constexpr uint32_t kTraceLineRoom = 400;

// What a builder returns of the options that it wrote.
int32_t Length(const Text &options) {
  return options.failed() ? kFailed : static_cast<int32_t>(options.size());
}

// Print the option F with the value of a parameter, if it is there.
template <format::Format F>
void PrintNumber(Text &options, AgentRequest request, const char *name) {
  if (uint32_t value = 0; QdtOmaParseU32(request, name, &value) == 0) options.Print<F>(value);
}

template <format::Format F>
void PrintMac(Text &options, AgentRequest request, const char *name) {
  uint8_t mac[6];
  if (QdtOmaParseMac(request, name, mac) == 0) options.Print<F>(Mac(mac));
}

// False for a parameter that is there and no IPv4 address, for which the engine has no option.
template <format::Format F>
bool PrintAddress(Text &options, AgentRequest request, const char *name) {
  const char *const text = FindText(request, name);
  if (text == nullptr) return true;
  uint32_t address = 0;
  if (QdtOmaStrToIp4(text, &address) != 0) return false;
  options.Print<F>(Address(address));
  return true;
}

struct Builder {
  int32_t (*build)(char *text, uint32_t room, AgentRequest request);
};

// Each builder goes on where the one before says that it ended.
constexpr Builder kBuilders[] = {{FormatTypeIp},      {FormatTypeMac},   {FormatTypePort},
                                 {FormatTypeEthType}, {FormatTypeProto}, {FormatTypeTimeOut},
                                 {FormatTypeEnable},  {FormatTypeIndex}};

bool BuildSetLine(char *line, AgentRequest request) {
  Text command(line, kTraceLineRoom);
  command.Print<"trace-pkt-nqe set ">();
  uint32_t at = command.size();
  for (size_t i = 0; i < std::size(kBuilders); ++i) {
    const int32_t length = CallOf<kBuilders, &Builder::build>(i, line + at, kTraceLineRoom - at, request);
    if (length < 0) {
      QDT_LOG_ERROR("format msg for trace pkt fail, index: %d\n", static_cast<int>(i));
      return false;
    }
    at += static_cast<uint32_t>(length);
  }
  return true;
}

constexpr FixedText<29> kDisplayLines[] = {"trace-pkt-nqe display index 0", "trace-pkt-nqe display index 1",
                                           "trace-pkt-nqe display index 2", "trace-pkt-nqe display index 3"};

}  // namespace
}  // namespace qdt

using qdt::Text;

int32_t FormatTypeIp(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  qdt::PrintAddress<"--destination-ip=%s ">(options, request, "destination-ip");
  const auto destination = static_cast<int32_t>(options.size());
  if (qdt::PrintAddress<"--source-ip=%s ">(options, request, "source-ip") || options.failed())
    return qdt::Length(options);
  // A source that is refused counts the destination once more. The options that follow then stand behind a
  // run of NULs, and the engine traces by the destination alone, whatever else was asked for.
  return qdt::Length(options) + destination;
}

int32_t FormatTypeMac(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  qdt::PrintMac<"--destination-mac=%02x:%02x:%02x:%02x:%02x:%02x ">(options, request, "destination-mac");
  qdt::PrintMac<"--source-mac=%02x:%02x:%02x:%02x:%02x:%02x ">(options, request, "source-mac");
  return qdt::Length(options);
}

int32_t FormatTypePort(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  qdt::PrintNumber<"--destination-port=%u ">(options, request, "destination-port");
  qdt::PrintNumber<"--source-port=%u ">(options, request, "source-port");
  return qdt::Length(options);
}

int32_t FormatTypeEthType(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  if (const char *const word = qdt::FindText(request, "eth-type"); word != nullptr)
    options.Print<"--eth-type=%04x ">(static_cast<uint16_t>(std::strtol(word, nullptr, 16)));
  return qdt::Length(options);
}

int32_t FormatTypeProto(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  qdt::PrintNumber<"--protocol=%u ">(options, request, "protocol");
  return qdt::Length(options);
}

int32_t FormatTypeTimeOut(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  qdt::PrintNumber<"--time-out=%u ">(options, request, "time-out");
  return qdt::Length(options);
}

int32_t FormatTypeEnable(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  if (QdtOmaGetBool(request, "enable") != 0) {
    options.Print<"--enable=1 ">();
  } else {
    options.Print<"--enable=0 ">();
  }
  return qdt::Length(options);
}

int32_t FormatTypeIndex(char *text, uint32_t room, AgentRequest request) {
  Text options(text, room);
  if (uint16_t index = 0; QdtOmaParseU16(request, "index", &index) == 0) options.Print<"--index=%u ">(index);
  return qdt::Length(options);
}

int32_t QdtOmaTracePktSetProc(AgentRequest request) {
  const qdt::OwnedText line = qdt::AllocateZeroed<char>(QDT_HERE, qdt::kTraceLineRoom);
  if (line == nullptr) {
    QDT_LOG_ERROR("malloc buf for trace pkt failed\n");
    return qdt::kFailed;
  }
  if (!qdt::BuildSetLine(line.get(), request)) return qdt::kFailed;
  const int32_t status = qdt::RunTraceCommandLine(line.get());
  if (status != 0) QDT_LOG_ERROR("QdtOmaCmdlineTracePkt failed\n");
  return status;
}

int32_t QdtOmaTracePktQueryProc(AgentRequest request) {
  uint16_t index = 0;
  if (QdtOmaParseU16(request, "index", &index) != 0) return qdt::kFailed;
  if (index < std::size(qdt::kDisplayLines)) return qdt::RunTraceCommandLine(qdt::kDisplayLines[index].text);
  qdt::RunTraceCommandLine("trace-pkt-nqe");  // its reply is the answer, and the request failed
  return qdt::kFailed;
}
