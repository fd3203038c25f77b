#ifndef TOOLS_NQECLI_OUTPUT_SHOWN_TEXT_H_
#define TOOLS_NQECLI_OUTPUT_SHOWN_TEXT_H_

#include <string>
#include <string_view>

// What the air says (identities, names) must not steer a terminal, nor look like lines of the answer.
namespace qdt::nqecli {

// --raw: answers as they are, wherever they go.
void SetRaw(bool raw);
bool IsRaw();

// The text as it is written: marks (host::TextMarks) as "\n"; for a terminal also control characters but tab
// and lines' ends, characters that turn the direction of what follows, and bytes that are no UTF-8, as
// "\x1b". `carry` keeps the beginning of a character whose end has not come yet.
std::string ShownText(std::string_view text, bool forTerminal, std::string *carry);

// Each byte as "\x1b".
std::string EscapedBytes(std::string_view bytes);

// Whether ShownText would give the text back as it is.
bool IsHarmless(std::string_view text, bool forTerminal);

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_OUTPUT_SHOWN_TEXT_H_
