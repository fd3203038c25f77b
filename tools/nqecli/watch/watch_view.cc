#include "tools/nqecli/watch/watch_view.h"

#include <algorithm>
#include <cstdio>
#include <unordered_map>

#include "host/answers/documents.h"
#include "host/base/mix.h"
#include "host/base/time_text.h"
#include "host/layout/value_text.h"
#include "host/record/record_rows.h"
#include "tools/nqecli/data_words.h"
#include "tools/nqecli/output/output.h"
#include "tools/nqecli/output/shown_text.h"

namespace qdt::nqecli {
namespace {

using host::Rate;

// What makes a line this one: its words. Columns grow with their values, which changes the blanks of all
// lines.
uint64_t SumOf(std::string_view line) {
  uint64_t sum = host::kMixSeed;
  while (!line.empty()) {
    const std::string_view word = line.substr(0, line.find(' '));
    if (!word.empty()) sum = host::MixBytes(word.data(), word.size(), sum + 1);
    line.remove_prefix(std::min(word.size() + 1, line.size()));
  }
  return sum;
}

// Lines that may be taken out again, each as often as it was there.
class LineSet {
 public:
  LineSet() = default;
  explicit LineSet(const AnswerText &text) {
    text.ForEachLine([this](std::string_view line) { Add(line); });
  }
  void Add(std::string_view line) { ++counts_[SumOf(line)]; }
  bool Take(std::string_view line) {
    const auto at = counts_.find(SumOf(line));
    if (at == counts_.end() || at->second == 0) return false;
    --at->second;
    return true;
  }

 private:
  std::unordered_map<uint64_t, uint32_t> counts_;
};

// "fwdif if_index=1 counters[0].in_bytes 1234.5/s"
std::string RateText(const Rate &rate) {
  std::string text;
  if (rate.table != nullptr) {
    text = rate.table->shortName;
    text += ' ';
    const size_t length = text.size();
    host::AppendNamedKey(*rate.table, rate.key, &text);
    if (text.size() != length) text += ' ';
  } else if (rate.region != nullptr) {
    text = rate.region->spec.name;
    text += ' ';
  } else {
    text = "statistics number=" + std::to_string(rate.number) + ' ';
  }
  text += rate.field.empty() ? "-" : rate.field;
  char room[64];
  std::snprintf(room, sizeof(room), " %.1f/s", rate.perSecond);
  return text + room;
}

// Remarks on an answer that stay the same are made once.
class Remarks {
 public:
  void Show(const std::string &err) {
    if (err != shown_) WriteAside(err);
    shown_ = err;
  }

 private:
  std::string shown_;
};

class WatchLines : public WatchView {
 public:
  explicit WatchLines(host::TextOut *out) : out_(*out) {}

  void Begin(const WatchFrame &frame) override {
    time_ = host::UtcText(frame.time);
    if (last_ == nullptr) {
      frame.answer->out->ForEachLine([this](std::string_view line) {
        out_.Append(line);
        out_.Put('\n');
      });
    } else {
      Changed('-', *last_, LineSet(*frame.answer->out));
      Changed('+', *frame.answer->out, LineSet(*last_));
    }
    last_ = frame.answer->out;
    out_.Spill();
    remarks_.Show(frame.answer->err);
  }

  void Take(const Rate &rate) override { Line(RateText(rate)); }
  void End() override { out_.Spill(); }

 private:
  void Changed(char mark, const AnswerText &text, LineSet others) {
    text.ForEachLine([&](std::string_view line) {
      if (!others.Take(line)) Line(std::string{mark, ' '} + std::string(line));
    });
  }

  void Line(const std::string &text) {
    out_.Append(time_);
    out_.Put(' ');
    out_.Append(text);
    out_.Put('\n');
  }

  host::TextOut &out_;
  std::string time_;
  std::shared_ptr<const AnswerText> last_;
  Remarks remarks_;
};

class WatchJson : public WatchView {
 public:
  explicit WatchJson(host::TextOut *out) : out_(*out), json_(*out) {}

  void Begin(const WatchFrame &frame) override {
    json_.Reset(out_);
    json_.SetMaxDecimalPlaces(3);
    json_.StartObject();
    host::JsonKey(&json_, "time");
    host::JsonText(&json_, host::UtcText(frame.time));
    host::JsonKey(&json_, "seconds");
    json_.Double(frame.seconds);
    host::JsonKey(&json_, "command");
    json_.StartArray();
    for (const std::string &word : *frame.command) host::JsonEscaped(&json_, word);
    json_.EndArray();
    host::JsonKey(&json_, "answer");
    Answer(*frame.answer->out);
    host::JsonKey(&json_, "rates");
    json_.StartArray();
    remarks_.Show(frame.answer->err);
  }

  void Take(const Rate &rate) override {
    json_.StartObject();
    if (rate.table != nullptr || rate.region != nullptr) {
      host::WritePlace(&json_, rate.table, rate.region, rate.key);
    } else {
      host::JsonKey(&json_, "statistic");
      json_.Uint(rate.number);
    }
    host::JsonKey(&json_, "field");
    rate.field.empty() ? static_cast<void>(json_.Null()) : host::JsonEscaped(&json_, rate.field);
    host::JsonKey(&json_, "per_second");
    json_.Double(rate.perSecond);
    json_.EndObject();
  }

  void End() override {
    json_.EndArray();
    json_.EndObject();
    out_.Put('\n');
    out_.Spill();
  }

 private:
  void Answer(const AnswerText &text) {
    std::string lines;
    if (text.IsJson()) {
      // As it stands, but in one line: newlines stand between the parts of a document, and part nothing.
      json_.RawValue("", 0, rapidjson::kObjectType);
      text.ForEachPiece([this](std::string_view piece) {
        for (const char c : piece) {
          if (c != '\n') out_.Put(c);
        }
      });
      return;
    }
    text.ForEachLine([&](std::string_view line) {
      if (!lines.empty()) lines += '\n';
      host::AppendEscaped(line, &lines);
    });
    lines.empty() ? void(json_.Null()) : host::JsonText(&json_, lines);
  }

  host::TextOut &out_;
  host::JsonWriter json_;
  Remarks remarks_;
};

class WatchScreen : public WatchView {
 public:
  WatchScreen(host::TextOut *out, double interval, ScreenSize (*size)())
      : out_(*out), interval_(interval), getSize_(size) {}

  void Begin(const WatchFrame &frame) override {
    size_ = getSize_();
    size_.rows = std::max(size_.rows, 4u);
    rates_.clear();
    rateCount_ = 0;
    char every[32];
    std::snprintf(every, sizeof(every), "every %g s:", interval_);
    heading_ = every;
    for (const std::string &word : *frame.command) heading_ += ' ' + word;
    heading_ += "  " + host::UtcText(frame.time);
    lines_.clear();
    lineCount_ = 0;
    LineSet now;
    const auto add = [&](std::string_view line) {
      now.Add(line);
      const bool isNew = hasBefore_ && !before_.Take(line);
      // More than stands in a line is not kept.
      if (lineCount_++ < size_.rows) lines_.push_back({std::string(line.substr(0, kMostOfLine)), isNew});
    };
    frame.answer->out->ForEachLine(add);
    for (std::string_view err = frame.answer->err; !err.empty();) {
      const std::string_view line = err.substr(0, err.find('\n'));
      add(line);
      err.remove_prefix(std::min(line.size() + 1, err.size()));
    }
    before_ = std::move(now);
    hasBefore_ = true;
  }

  void Take(const Rate &rate) override {
    ++rateCount_;
    if (rates_.size() < size_.rows) rates_.push_back(RateText(rate));
  }

  void End() override {
    // Home, each line over what was there, and nothing below.
    out_.Append(cleared_ ? "\x1b[H" : "\x1b[2J\x1b[H");
    cleared_ = true;
    Line(heading_, false);
    const size_t room = size_.rows - 2;  // the last row stays free
    const size_t ofRates = rateCount_ == 0 ? 0 : rateCount_ + 1;
    const size_t forRates = lineCount_ + ofRates <= room
                                ? ofRates
                                : std::min(ofRates, std::max(room / 3, room - std::min(room, lineCount_)));
    Part(lineCount_, room - forRates, [&](size_t i) { Line(lines_[i].text, lines_[i].isNew); });
    if (forRates > 0) {
      Line("", false);
      Part(rateCount_, forRates - 1, [&](size_t i) { Line(rates_[i], false); });
    }
    out_.Append("\x1b[J");
    out_.Spill();
  }

 private:
  static constexpr size_t kMostOfLine = 4096;  // bytes
  struct Shown {
    std::string text;
    bool isNew;
  };

  // Shows all of `count` lines, or as many as there is room for and how many there are behind.
  template <typename Show>
  void Part(size_t count, size_t room, const Show &show) {
    const size_t shown = count <= room ? count : room == 0 ? 0 : room - 1;
    for (size_t i = 0; i < shown; ++i) show(i);
    if (shown < count && room > 0) Line("... " + std::to_string(count - shown) + " more lines", false);
  }

  // Cut to the terminal's width, so that it stays one line, and without what would move the cursor.
  void Line(std::string_view text, bool marked) {
    std::string shown, carry;
    if (!IsHarmless(text, true)) {
      shown = ShownText(text, true, &carry);
      text = shown += EscapedBytes(carry);
    }
    if (marked) out_.Append("\x1b[7m");
    uint32_t column = 0;
    for (const char c : text) {
      const auto byte = static_cast<uint8_t>(c);
      if ((byte & 0xc0) != 0x80 && size_.columns != 0 && ++column > size_.columns) break;
      out_.Put(byte < 0x20 || byte == 0x7f ? ' ' : c);
    }
    if (marked) out_.Append("\x1b[0m");
    out_.Append("\x1b[K\r\n");
  }

  host::TextOut &out_;
  const double interval_;
  ScreenSize (*const getSize_)();
  ScreenSize size_;
  std::string heading_;
  std::vector<Shown> lines_;  // as many as may be shown
  size_t lineCount_ = 0;
  std::vector<std::string> rates_;  // the same
  size_t rateCount_ = 0;
  LineSet before_;
  bool hasBefore_ = false;
  bool cleared_ = false;
};

}  // namespace

std::unique_ptr<WatchView> MakeWatchLines(host::TextOut *out) { return std::make_unique<WatchLines>(out); }
std::unique_ptr<WatchView> MakeWatchJson(host::TextOut *out) { return std::make_unique<WatchJson>(out); }
std::unique_ptr<WatchView> MakeWatchScreen(host::TextOut *out, double interval, ScreenSize (*size)()) {
  return std::make_unique<WatchScreen>(out, interval, size);
}

}  // namespace qdt::nqecli
