#ifndef HOST_BASE_COMMAND_TEXT_H_
#define HOST_BASE_COMMAND_TEXT_H_

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qdt::host {

// Adds the line "  LABEL :  VALUE", all labels of an answer padded to one width.
void AppendValue(std::string *text, std::string label, const std::string &value, size_t width);

// "on" or "off"
std::string OnOff(bool on);

// The place of `word` among `known`. Throws HostError, a line "COMMAND what? The engine knows: ...", for
// another or none.
size_t FindWord(std::string_view command, std::span<const char *const> known, std::string_view word);

// The state that "on" and "off" (or "enable" and "disable") ask for. Throws HostError as FindWord.
bool ReadSwitch(std::string_view command, std::string_view word);

}  // namespace qdt::host

#endif  // HOST_BASE_COMMAND_TEXT_H_
