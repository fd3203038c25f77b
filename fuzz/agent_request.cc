// Management requests: the first line names the handler, each other one is NAME=VALUE. What the data model
// accepts reaches the handler.

#include <string>
#include <string_view>

#include "fuzz/lab.h"
#include "host/agent/handlers.h"
#include "host/base/host_error.h"
#include "host/omcc/model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qdt;
  if (size == 0) return 0;
  fuzz::Lab::Get();
  static const host::Model model;
  const auto handlers = host::Handlers();
  const host::Handler &handler = handlers[data[0] % handlers.size()];
  std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
  std::vector<host::Parameter> parameters;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    const size_t equals = line.find('=');
    if (equals == line.npos) continue;
    parameters.emplace_back(std::string(line.substr(0, equals)), std::string(line.substr(equals + 1)));
  }
  try {
    const host::OwnedTree request = model.MakeRequest(handler.rpc, parameters);
    host::RunHandler(handler, request.get());
  } catch (const host::HostError &) {
  }
  return 0;
}
