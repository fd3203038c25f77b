#include "host/record/record_sinks.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/record/csv_out.h"
#include "host/record/json_records.h"
#include "host/record/record_yaml.h"
#include "host/record/row_text.h"

namespace qdt::host {
namespace {

// {"table": "fib", "id": 1, "records": [{...}], "count": N, "truncated": false}
class JsonSink : public RecordSink {
 public:
  JsonSink(TextOut *out, const AnswerName &name, const RecordShape &shape)
      : out_(*out), name_(name), json_(*out), records_(shape, out) {}

  void Begin() override {
    json_.StartObject();
    JsonKey(&json_, name_.kind);
    JsonText(&json_, name_.name);
    if (name_.kind != "region") {
      JsonKey(&json_, "id");
      json_.Uint(name_.id);
    }
    JsonKey(&json_, "records");
    json_.StartArray();
  }
  void Record(const RecordBytes &record) override {
    json_.ForeignObject();
    records_.Write(record);
  }
  void End(uint64_t count, bool truncated) override {
    JsonEndCounted(&json_, &out_, count, truncated, name_.more);
  }
  // A document that stops in the middle is none.
  void Fail(std::string_view) override { out_.Put('\n'); }

 private:
  TextOut &out_;
  AnswerName name_;
  JsonWriter json_;
  JsonRecords records_;
};

class JsonLinesSink : public RecordSink {
 public:
  JsonLinesSink(TextOut *out, const RecordShape &shape) : out_(*out), records_(shape, out) {}

  void Record(const RecordBytes &record) override {
    records_.Write(record);
    out_.Put('\n');
  }
  void End(uint64_t count, bool truncated) override {
    if (!truncated) return;
    JsonWriter json(out_);
    json.StartObject();
    JsonKey(&json, "truncated");
    json.Bool(true);
    JsonKey(&json, "count");
    json.Uint64(count);
    json.EndObject();
    out_.Put('\n');
  }
  void Fail(std::string_view message) override {
    JsonWriter json(out_);
    json.StartObject();
    JsonKey(&json, "error");
    JsonEscaped(&json, message);
    json.EndObject();
    out_.Put('\n');
  }

 private:
  TextOut &out_;
  JsonRecords records_;
};

// A line of names, then a line a record.
class CsvSink : public RecordSink {
 public:
  CsvSink(TextOut *out, const RecordShape &shape, const FieldSet &fields)
      : csv_(out), columns_(ColumnsOf(shape, fields)) {}

  void Begin() override {
    for (const RowColumn &column : columns_) csv_.Cell(column.path);
    csv_.EndLine();
  }
  void Record(const RecordBytes &record) override {
    for (const RowColumn &column : columns_) {
      cell_.clear();
      cells_.Append(record, column, &cell_);
      csv_.Cell(cell_);
    }
    csv_.EndLine();
  }
  void End(uint64_t count, bool truncated) override {
    if (truncated) Remark("truncated behind " + std::to_string(count) + " records");
  }
  void Fail(std::string_view message) override { Remark("error: " + std::string(message)); }

 private:
  // No line of the table: it has one cell.
  void Remark(const std::string &text) {
    csv_.Cell("#" + text);
    csv_.EndLine();
  }

  CsvOut csv_;
  const std::vector<RowColumn> columns_;
  CellWriter cells_;
  std::string cell_;
};

// Columns as wide as the first records need them.
class ColumnSink : public RecordSink {
 public:
  ColumnSink(TextOut *out, const RecordShape &shape, const FieldSet &fields, uint32_t width,
             std::string *aside)
      : out_(*out), columns_(ColumnsOf(shape, fields)), limit_(width), aside_(aside) {
    for (const RowColumn &column : columns_) isNumber_.push_back(column.IsNumber());
  }

  void Record(const RecordBytes &record) override {
    // One row's texts are the next one's room.
    row_.resize(columns_.size());
    const size_t shown = measured_ ? shown_ : columns_.size();
    for (size_t i = 0; i < shown; ++i) {
      row_[i].clear();
      cells_.Append(record, columns_[i], &row_[i]);
    }
    if (measured_) return Line(row_);
    first_.push_back(row_);
    if (first_.size() == kMeasured) Measure();
  }
  void End(uint64_t count, bool truncated) override {
    Measure();
    if (aside_ == nullptr) return;
    if (truncated)
      *aside_ += "more entries follow behind these " + std::to_string(count) + "; raise --limit\n";
    if (shown_ < columns_.size()) {
      *aside_ += std::to_string(columns_.size() - shown_) +
                 " more columns do not fit the line; choose with --fields, or ask for --json\n";
    }
  }
  void Fail(std::string_view message) override {
    Measure();
    out_.Append("error: ");
    out_.Append(message);
    out_.Put('\n');
  }

 private:
  static constexpr size_t kMeasured = 256;

  void Measure() {
    if (std::exchange(measured_, true)) return;
    std::vector<std::string> names;
    for (const RowColumn &column : columns_) names.push_back(column.path);
    widths_ = WidthsOf(names, first_);
    uint64_t used = 0;
    for (shown_ = 0; shown_ < columns_.size(); ++shown_) {
      used += widths_[shown_] + (shown_ == 0 ? 0 : 2);
      if (limit_ != 0 && used > limit_ && shown_ > 0) break;
    }
    // A list of nothing has no heading.
    if (!first_.empty()) Line(names);
    for (const auto &row : first_) Line(row);
    first_.clear();
  }

  void Line(const std::vector<std::string> &row) { AppendRow(row, widths_, isNumber_, shown_, &out_); }

  TextOut &out_;
  const std::vector<RowColumn> columns_;
  const uint32_t limit_;
  std::string *const aside_;
  CellWriter cells_;
  std::vector<std::string> row_;
  std::vector<std::vector<std::string>> first_;
  std::vector<size_t> widths_;
  std::vector<bool> isNumber_;
  size_t shown_ = 0;
  bool measured_ = false;
};

class YamlSink : public RecordSink {
 public:
  YamlSink(TextOut *out, const AnswerName &name, const RecordShape &shape)
      : out_(*out), name_(name), yaml_(out, shape) {}

  void Begin() override {
    out_.Append(name_.name);
    out_.Put(':');
  }
  void Record(const RecordBytes &record) override {
    out_.Append("\n  - ");
    yaml_.Record(record);
    any_ = true;
  }
  void End(uint64_t count, bool truncated) override {
    out_.Append(any_ ? "\n" : " []\n");
    if (truncated) out_.Append("# truncated behind " + std::to_string(count) + " entries\n");
  }
  // Not YAML, so that nobody loads a part for the whole.
  void Fail(std::string_view message) override {
    out_.Append("\n@error: ");
    out_.Append(message);
    out_.Put('\n');
  }

 private:
  TextOut &out_;
  AnswerName name_;
  YamlWriter yaml_;
  bool any_ = false;
};

}  // namespace

std::unique_ptr<RecordSink> MakeSink(RecordFormat format, TextOut *out, const AnswerName &name,
                                     const RecordShape &shape, const FieldSet &fields, uint32_t width,
                                     std::string *aside) {
  switch (format) {
    case RecordFormat::kJson:
      return std::make_unique<JsonSink>(out, name, shape);
    case RecordFormat::kJsonLines:
      return std::make_unique<JsonLinesSink>(out, shape);
    case RecordFormat::kCsv:
      return std::make_unique<CsvSink>(out, shape, fields);
    case RecordFormat::kYaml:
      return std::make_unique<YamlSink>(out, name, shape);
    case RecordFormat::kColumns:
      break;
  }
  return std::make_unique<ColumnSink>(out, shape, fields, width, aside);
}

}  // namespace qdt::host
