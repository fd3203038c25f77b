#ifndef HOST_SESSION_FIELDS_H_
#define HOST_SESSION_FIELDS_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qdt::host {

// Texts of any bytes, one behind the other, as the text of a frame.
void AppendField(std::string_view field, std::string *frame);

// Nothing when the frame is not made of whole fields, or of more than `most`.
std::optional<std::vector<std::string>> ReadFields(std::string_view frame, size_t most);

}  // namespace qdt::host

#endif  // HOST_SESSION_FIELDS_H_
