#include "host/session/fields.h"

#include <cstdint>

namespace qdt::host {

void AppendField(std::string_view field, std::string *frame) {
  for (int shift = 0; shift < 32; shift += 8) frame->push_back(static_cast<char>(field.size() >> shift));
  frame->append(field);
}

std::optional<std::vector<std::string>> ReadFields(std::string_view frame, size_t most) {
  std::vector<std::string> fields;
  while (!frame.empty()) {
    if (frame.size() < 4 || fields.size() == most) return {};
    uint32_t length = 0;
    for (int i = 3; i >= 0; --i) length = length << 8 | static_cast<uint8_t>(frame[i]);
    frame.remove_prefix(4);
    if (length > frame.size()) return {};
    fields.emplace_back(frame.substr(0, length));
    frame.remove_prefix(length);
  }
  return fields;
}

}  // namespace qdt::host
