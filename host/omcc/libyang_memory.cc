#include "host/omcc/libyang_memory.h"

#include <cstdlib>
#include <memory>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

// More than the model and all modules of NETCONF take, which is some 5 MB.
constexpr size_t kModelRoom = 16 << 20;

template <typename Print>
std::string TextOf(const Print &print) {
  const MemoryWatch memory;
  char *got = nullptr;
  const LY_ERR result = print(&got);
  const std::unique_ptr<char, void (*)(void *)> text(got, std::free);
  memory.Check();
  if (result != LY_SUCCESS) throw HostError("libyang cannot print its data");
  return text == nullptr ? "" : text.get();
}

}  // namespace

void CheckRoomForModel() { operator delete(operator new(kModelRoom)); }

std::string Printed(const lyd_node *tree, uint32_t options) {
  return TextOf([&](char **text) { return lyd_print_mem(text, tree, LYD_XML, options); });
}

std::string Printed(const lys_module *module) {
  return TextOf([&](char **text) { return lys_print_mem(text, module, LYS_OUT_YANG, 0); });
}

}  // namespace qdt::host
