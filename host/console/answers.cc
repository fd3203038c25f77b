#include "host/console/answers.h"

#include <algorithm>
#include <cstdio>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

constexpr size_t kMostBytes = 32 << 20;

struct TooLong : std::exception {};

class BoundedOut : public TextOut {
 public:
  std::string Take() {
    Spill();
    return std::move(text_);
  }

 private:
  void Write(std::string_view text) override {
    if (text_.size() + text.size() > kMostBytes) throw TooLong();
    text_ += text;
  }

  std::string text_;
};

bool IsPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("-_./:=,@%+").find(c) != std::string_view::npos;
}

void AppendWord(const std::string &word, std::string *text) {
  if (!word.empty() && std::ranges::all_of(word, IsPlain)) {
    *text += word;
    return;
  }
  const bool printable = std::ranges::all_of(word, [](char c) { return c >= ' ' && c < 0x7f; });
  *text += printable ? "'" : "$'";
  for (const char c : word) {
    char code[8];
    if (c == '\'') {
      *text += printable ? "'\\''" : "\\'";
    } else if (c == '\\' && !printable) {
      *text += "\\\\";
    } else if (c >= ' ' && c < 0x7f) {
      *text += c;
    } else {
      std::snprintf(code, sizeof(code), "\\x%02x", static_cast<uint8_t>(c));
      *text += code;
    }
  }
  *text += '\'';
}

}  // namespace

std::string CommandText(const WebEngine *engine, const std::vector<std::string> &words) {
  std::string text = "nqecli";
  const auto add = [&text](const std::string &word) {
    text += ' ';
    AppendWord(word, &text);
  };
  if (engine != nullptr) {
    for (const std::string &word : engine->PlaceWords()) add(word);
  }
  for (const std::string &word : words) add(word);
  return text;
}

void AddAskedWord(const std::string &word, std::vector<std::string> *words) {
  if (word.starts_with('-')) words->emplace_back("--");
  words->push_back(word);
}

WebAnswer DocumentAnswer(const std::function<void(TextOut *out)> &write, const std::string &command) {
  WebAnswer answer;
  try {
    BoundedOut out;
    write(&out);
    answer.body = out.Take();
  } catch (const HostError &error) {
    // What was asked is right: the engine lacks it, or changes faster than it can be read.
    throw WebProblem(503, error.what(), "engine-data");
  } catch (const TooLong &) {
    throw WebProblem(413, "this answer is longer than " + std::to_string(kMostBytes >> 20) +
                              " MiB; ask for less, or: " + command);
  }
  answer.contentType = "application/json";
  if (!command.empty()) answer.headers.emplace_back("Nqe-Command", command);
  return answer;
}

WebParameter EngineParameter() {
  WebParameter parameter;
  parameter.name = "engine";
  parameter.about = "the engine's name in /api/v1/engines; the first one unless told otherwise";
  return parameter;
}

}  // namespace qdt::host
