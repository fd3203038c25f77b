#include "tools/nqecli/shell/line_editor.h"

#include <histedit.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "host/base/host_error.h"
#include "tools/nqecli/shell/answer.h"

namespace qdt::nqecli {
namespace {

constexpr int kRemembered = 1000;
// What is longer was pasted by mistake, and editing it takes time.
constexpr size_t kLongestLine = 8192;
constexpr size_t kMostListed = 200;
constexpr wchar_t kNoCharacter = 0xfffd;

LineEditor *Self(EditLine *editor) {
  void *self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return static_cast<LineEditor *>(self);
}

const char *PromptOf(EditLine *editor) { return Self(editor)->prompt(); }
int CharacterOf(EditLine *editor, wchar_t *character) { return Self(editor)->ReadCharacter(character); }
unsigned char CompleteIn(EditLine *editor, int) { return Self(editor)->Complete(); }
unsigned char ShowIn(EditLine *editor, int) { return Self(editor)->ShowFollowing(); }

// Bytes that follow in a character of UTF-8 that begins with this one; 0 for those that are one of their own,
// -1 for those that begin none.
int BytesBehind(unsigned char byte) {
  return byte < 0x80 ? 0 : byte < 0xc2 ? -1 : byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : byte < 0xf5 ? 3 : -1;
}

std::string CommonBeginning(const std::vector<Candidate> &candidates) {
  std::string common = candidates.front().word;
  for (const Candidate &candidate : candidates) {
    const auto ends = std::ranges::mismatch(common, candidate.word);
    common.erase(ends.in1, common.end());
  }
  return common;
}

}  // namespace

LineEditor::LineEditor(const char *prompt, Follow follow) : prompt_(prompt), follow_(std::move(follow)) {
  // Characters are UTF-8 whatever the environment says, or says nothing of.
  if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1) std::setlocale(LC_CTYPE, "C.UTF-8");
  if (const char *terminal = std::getenv("TERM"); terminal == nullptr || *terminal == 0)
    setenv("TERM", "dumb", 1);
  editor_ = el_init("nqecli", stdin, stdout, stderr);
  history_ = history_init();
  if (editor_ == nullptr || history_ == nullptr) throw host::HostError("this terminal cannot be used");
  HistEvent event;
  history(history_, &event, H_SETSIZE, kRemembered);
  history(history_, &event, H_SETUNIQUE, 1);
  el_set(editor_, EL_CLIENTDATA, this);
  el_set(editor_, EL_PROMPT, PromptOf);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_SIGNAL, 0);
  el_set(editor_, EL_HIST, history, history_);
  el_set(editor_, EL_GETCFN, CharacterOf);
  el_set(editor_, EL_ADDFN, "nqe-complete", "Complete the word", CompleteIn);
  el_set(editor_, EL_ADDFN, "nqe-follow", "Show what may follow", ShowIn);
  el_set(editor_, EL_BIND, "^I", "nqe-complete", nullptr);
  el_set(editor_, EL_BIND, "?", "nqe-follow", nullptr);
  el_set(editor_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

LineEditor::~LineEditor() {
  if (editor_ != nullptr) el_end(editor_);
  if (history_ != nullptr) history_end(history_);
}

std::optional<std::string> LineEditor::Read() {
  read_ = 0;
  isTooLong_ = false;
  el_resize(editor_);
  int count = 0;
  errno = 0;
  const char *line = el_gets(editor_, &count);
  if (line == nullptr || count <= 0) {
    if (!Interrupted()) return std::nullopt;
    ForgetInterrupt();
    el_reset(editor_);
    std::fputs("^C\n", stdout);
    std::fflush(stdout);
    return "";
  }
  if (isTooLong_)
    throw host::HostError("a line has at most " + std::to_string(kLongestLine) +
                          " characters; this one is left out");
  std::string text(line, static_cast<size_t>(count));
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

void LineEditor::Remember(const std::string &line) {
  HistEvent event;
  history(history_, &event, H_ENTER, line.c_str());
}

int LineEditor::ReadByte(unsigned char *byte) {
  if (waiting_ >= 0) {
    *byte = static_cast<unsigned char>(std::exchange(waiting_, -1));
    return 1;
  }
  // Ctrl-C just before the wait must end it as well: it only arrives within.
  sigset_t interrupt, before;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupt, &before);
  int got = -1;
  while (!Interrupted()) {
    pollfd entry{STDIN_FILENO, POLLIN, 0};
    if (ppoll(&entry, 1, nullptr, &before) < 0) {
      if (errno != EINTR) break;
    } else if (got = static_cast<int>(read(STDIN_FILENO, byte, 1)); got >= 0 || errno != EINTR) {
      break;
    }
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return got;
}

// Bytes that are no UTF-8 are read as the character that says so.
int LineEditor::ReadCharacter(wchar_t *character) {
  std::fflush(stdout);
  for (;;) {
    unsigned char byte = 0;
    if (const int got = ReadByte(&byte); got <= 0) return got;
    const int behind = BytesBehind(byte);
    uint32_t code = behind <= 0 ? byte : byte & (0x3fu >> behind);
    bool isOne = behind >= 0;
    for (int i = 0; i < behind && isOne; ++i) {
      if (const int got = ReadByte(&byte); got <= 0) return got;
      isOne = (byte & 0xc0) == 0x80;
      if (!isOne) waiting_ = byte;
      code = code << 6 | (byte & 0x3f);
    }
    // What its form alone lets through: too long forms, halves of pairs, and beyond the last character.
    if (behind == 2 && (code < 0x800 || (code >= 0xd800 && code < 0xe000))) isOne = false;
    if (behind == 3 && (code < 0x10000 || code > 0x10ffff)) isOne = false;
    *character = isOne ? static_cast<wchar_t>(code) : kNoCharacter;
    if (*character == L'\n' || *character == L'\r') return 1;
    if (++read_ <= kLongestLine) return 1;
    isTooLong_ = true;  // up to its end
  }
}

unsigned char LineEditor::Complete() {
  const LineInfo *line = el_line(editor_);
  const std::string_view typed(line->buffer, static_cast<size_t>(line->cursor - line->buffer));
  const Following follow = follow_(typed);
  if (follow.candidates.empty()) return CC_REFRESH_BEEP;
  std::string common = CommonBeginning(follow.candidates);
  const bool isOnly = follow.candidates.size() == 1;
  if (isOnly && !common.empty() && std::string_view("=,/").find(common.back()) == std::string_view::npos)
    common += ' ';
  if (common.size() > follow.typed) {
    el_insertstr(editor_, common.c_str() + follow.typed);
    return CC_REFRESH;
  }
  List(follow.candidates);
  return CC_REDISPLAY;
}

unsigned char LineEditor::ShowFollowing() {
  const LineInfo *line = el_line(editor_);
  const std::string typed(line->buffer, static_cast<size_t>(line->cursor - line->buffer));
  List(follow_(typed).candidates);
  return CC_REDISPLAY;
}

void LineEditor::List(const std::vector<Candidate> &candidates) {
  winsize size = {};
  const size_t columns =
      ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 8 ? size.ws_col - 1u : 79;
  size_t width = 0;
  for (const Candidate &candidate : candidates) width = std::max(width, candidate.word.size());
  width = std::min<size_t>(width, 32);
  std::string text = "\n";
  size_t count = 0;
  for (const Candidate &candidate : candidates) {
    if (++count > kMostListed) break;
    std::string row = "  " + candidate.word;
    if (!candidate.about.empty()) {
      row.resize(std::max(row.size(), width + 2), ' ');
      row += "  " + candidate.about;
    }
    if (row.size() > columns && candidate.word.size() + 2 < columns) row.resize(columns);
    text += row + '\n';
  }
  if (candidates.empty()) text += "  (nothing more, or a word of your own)\n";
  if (count > kMostListed) text += "  ... and " + std::to_string(candidates.size() - kMostListed) + " more\n";
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace qdt::nqecli
