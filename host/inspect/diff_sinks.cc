#include <string>

#include "host/inspect/diff.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

constexpr std::string_view kStale = "stale";

class DiffLines : public DiffSink {
 public:
  explicit DiffLines(TextOut *out) : out_(*out) {}

  void Take(const Difference &difference) override {
    constexpr char kMarks[] = {'+', '-', '~'};
    line_.assign(1, kMarks[static_cast<size_t>(difference.change)]);
    line_ += ' ';
    line_ += difference.table != nullptr ? difference.table->shortName : difference.region->spec.name;
    if (difference.table != nullptr) Key(difference);
    bool first = true;
    for (const ValueChange &change : difference.values) {
      line_ += first ? ": " : ", ";
      first = false;
      line_ += change.path;
      line_ += ' ';
      Value(*difference.from, change);
      line_ += " -> ";
      Value(*difference.to, change);
    }
    line_ += '\n';
    out_.Append(line_);
  }
  void End(uint64_t) override {}

 private:
  void Key(const Difference &difference) {
    const size_t length = line_.size();
    line_ += ' ';
    AppendNamedKey(*difference.table, (difference.from != nullptr ? difference.from : difference.to)->key,
                   &line_);
    // A table of one entry has no key to tell.
    if (line_.size() == length + 1) line_.pop_back();
  }

  void Value(const RecordBytes &record, const ValueChange &change) {
    if (change.isPart) {
      constexpr std::string_view kWords[] = {"absent", "present", kStale};
      line_ += kWords[static_cast<size_t>(PresenceIn(record, *change.field))];
    } else if (change.ref.kind == FieldKind::kReference) {
      const Reference to = record.source.Resolve(change.field->targets, change.ref.Get(record.record));
      to.kind == Reference::Kind::kNone ? void(line_ += "none") : AppendReference(to, &line_);
    } else if (change.ref.kind == FieldKind::kText) {
      line_ += '"';
      AppendValue(nullptr, change.ref, record.record, &line_);
      line_ += '"';
    } else if (change.ref.Width() == 1) {
      line_ += change.ref.Read(record.record) != 0 ? "true" : "false";
    } else {
      AppendValue(&record.source, change.ref, record.record, &line_);
    }
  }

  TextOut &out_;
  std::string line_;
};

class DiffJson : public DiffSink {
 public:
  explicit DiffJson(TextOut *out) : out_(*out), json_(*out) {}

  void Begin() override {
    json_.StartObject();
    JsonKey(&json_, "diff");
    json_.StartArray();
  }

  void Take(const Difference &difference) override {
    json_.StartObject();
    const TableLayout *table = difference.table;
    JsonKey(&json_, table != nullptr ? "table" : "region");
    JsonText(&json_, table != nullptr ? table->shortName : difference.region->spec.name);
    if (table != nullptr) {
      JsonKey(&json_, "id");
      json_.Uint(table->spec.id);
    }
    constexpr std::string_view kWords[] = {"added", "removed", "changed"};
    JsonKey(&json_, "change");
    JsonText(&json_, kWords[static_cast<size_t>(difference.change)]);
    if (table != nullptr) {
      JsonKey(&json_, "key");
      WriteJsonKey(&json_, *table, (difference.from != nullptr ? difference.from : difference.to)->key);
    }
    if (difference.change == Change::kChanged) Fields(difference);
    json_.EndObject();
  }

  void End(uint64_t count) override { JsonEndCounted(&json_, &out_, count); }

  // A document that stops in the middle is none.
  void Fail() override { out_.Put('\n'); }

 private:
  void Fields(const Difference &difference) {
    JsonKey(&json_, "fields");
    json_.StartObject();
    for (const ValueChange &change : difference.values) {
      JsonKey(&json_, change.path);
      json_.StartObject();
      JsonKey(&json_, "from");
      Value(*difference.from, difference.table, change);
      JsonKey(&json_, "to");
      Value(*difference.to, difference.table, change);
      json_.EndObject();
    }
    json_.EndObject();
  }

  void Value(const RecordBytes &record, const TableLayout *table, const ValueChange &change) {
    if (!change.isPart) return WriteJsonValue(&json_, record, *change.field, change.ref, record.record);
    switch (PresenceIn(record, *change.field)) {
      case Presence::kAbsent:
        json_.Null();
        return;
      case Presence::kStrayed:
        json_.StartObject();
        JsonKey(&json_, kStale);
        json_.Bool(true);
        json_.EndObject();
        return;
      case Presence::kPresent:
        WriteJsonNode(&json_, record, NodeOf(*table, *change.field), 0, table->fields);
    }
  }

  const ShapeNode &NodeOf(const TableLayout &table, const Field &field) {
    shape_ = RecordShape::Select(table, field.name);
    return shape_.nodes.front();
  }

  TextOut &out_;
  JsonWriter json_;
  RecordShape shape_;
};

}  // namespace

std::unique_ptr<DiffSink> MakeDiffLines(TextOut *out) { return std::make_unique<DiffLines>(out); }
std::unique_ptr<DiffSink> MakeDiffJson(TextOut *out) { return std::make_unique<DiffJson>(out); }

}  // namespace qdt::host
