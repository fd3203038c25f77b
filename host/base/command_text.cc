#include "host/base/command_text.h"

#include <algorithm>

#include "host/base/host_error.h"

namespace qdt::host {

void AppendValue(std::string *text, std::string label, const std::string &value, size_t width) {
  label.resize(std::max(label.size(), width), ' ');
  *text += "  " + label + " :  " + value + '\n';
}

std::string OnOff(bool on) { return on ? "on" : "off"; }

size_t FindWord(std::string_view command, std::span<const char *const> known, std::string_view word) {
  std::string list;
  for (size_t i = 0; i < known.size(); ++i) {
    if (word == known[i]) return i;
    list += (i == 0 ? "" : ", ") + std::string(known[i]);
  }
  const std::string given = word.empty() ? "" : ", not " + Quoted(word);
  throw HostError(std::string(command) + " what? The engine knows: " + list + given);
}

bool ReadSwitch(std::string_view command, std::string_view word) {
  constexpr const char *kStates[] = {"on", "off", "enable", "disable"};
  return FindWord(command, kStates, word) % 2 == 0;
}

}  // namespace qdt::host
