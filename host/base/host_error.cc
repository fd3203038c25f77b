#include "host/base/host_error.h"

namespace qdt::host {

std::string Quoted(std::string_view text) {
  constexpr size_t kShown = 40;
  std::string shown = "\"";
  for (const char c : text.substr(0, kShown)) {
    shown += static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
  }
  return shown + (text.size() > kShown ? "...\"" : "\"");
}

}  // namespace qdt::host
