#ifndef TOOLS_NQECLI_OUTPUT_OUTPUT_H_
#define TOOLS_NQECLI_OUTPUT_OUTPUT_H_

#include <exception>
#include <string_view>

#include "host/base/arguments.h"

namespace qdt::nqecli {

// The tool's exit codes.
enum ExitCode : int {
  kAnswered = 0,  // an answer stands on standard output
  kFailed = 1,    // the query failed: the answer is one of the error messages
  kUnusable = 2,  // bad usage, no engine, or the answer could not be written
};

// Takes answers in place of standard output, for who shows them in parts.
class OutputSink {
 public:
  // May throw OutputClosed when no more is wanted.
  virtual void Write(std::string_view text) = 0;
  // Whether lines are better cut at the width of the terminal.
  virtual bool IsTerminal() const = 0;

 protected:
  ~OutputSink() = default;
};

// Null: standard output again.
void SetOutputSink(OutputSink *sink);
const OutputSink *CurrentSink();

// Writes the answer as it is, with one newline behind it when it lacks one; nothing for an empty answer.
// False when standard output does not take it; that has been said on standard error then, except for a closed
// pipe.
bool WriteAnswer(std::string_view text);

// WriteAnswer as a command's end.
inline ExitCode Print(std::string_view text) { return WriteAnswer(text) ? kAnswered : kUnusable; }

// What WriteOut throws when nobody reads standard output any longer: whoever closes a pipe early has seen
// enough.
struct OutputClosed : std::exception {
  const char *what() const noexcept override { return "standard output is closed"; }
};

// Writes a part of an answer. Throws HostError or OutputClosed.
void WriteOut(std::string_view text);

// Writes what steers the terminal, as it is: texts of the engine in it have been made harmless. Throws as
// WriteOut.
void WriteScreen(std::string_view text);

// Remarks on an answer, lines to standard error.
void WriteAside(std::string_view lines);

// One line on standard error: "nqecli: TEXT".
void WriteError(std::string_view text);

// A tool's main(): runs it with its words and turns what it throws into one line and kUnusable.
int RunTool(int argc, char **argv, ExitCode (*run)(host::Arguments arguments));

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_OUTPUT_OUTPUT_H_
