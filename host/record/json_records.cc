#include "host/record/json_records.h"

#include <algorithm>
#include <cstring>

namespace qdt::host {
namespace {

// Literals are copied in pieces of this size, the last one with what stands behind it.
constexpr size_t kCopied = 32;

char *PutLiteral(char *at, const char *literal, size_t length) {
  std::memcpy(at, literal, kCopied);
  if (length > kCopied) std::memcpy(at + kCopied, literal + kCopied, length - kCopied);
  return at + length;
}

bool IsPart(const ShapeNode &node) {
  return !node.inKey && (node.field->pointer != 0 || !node.field->selector.empty());
}

}  // namespace

JsonRecords::JsonRecords(const RecordShape &shape, TextOut *out) : shape_(shape), out_(*out), writer_(*out) {
  for (const ShapeNode &node : shape.nodes) {
    if (node.inKey && node.field->constant && node.twin == nullptr) continue;
    if (node.twin != nullptr) AddTwin(node);
    if (!IsPart(node)) {
      AddMember(node);
      continue;
    }
    const size_t before = runs_.size();
    EndRun().part = &node;
    AddMember(node);
    EndRun();
    runs_[before].behind = static_cast<uint32_t>(runs_.size());
  }
  EndRun();
  literals_.append(kCopied, ' ');
}

// Every member begins with a comma; the one that turns out to be a record's first gets its bracket instead.
void JsonRecords::AddMember(const ShapeNode &node) {
  AddName(',', node);
  AddNode(node, 0, nullptr);
}

void JsonRecords::AddName(char before, const ShapeNode &node) {
  pending_ += before;
  pending_ += '"';
  pending_ += node.name;
  pending_ += "\":";
}

void JsonRecords::AddTwin(const ShapeNode &node) {
  const FieldRef &own = node.twin->ref;
  const FieldRef &key = node.field->ref;
  if (own.kind != key.kind || own.size != key.size || own.bits != 0 || key.bits != 0) {
    hasOtherTwins_ = true;
    return;
  }
  if (!twins_.empty()) {
    Twin &last = twins_.back();
    if (own.offset == last.own + last.size && key.offset == last.key + last.size) {
      last.size += own.size;
      return;
    }
  }
  twins_.push_back({own.offset, key.offset, own.size});
}

void JsonRecords::AddNode(const ShapeNode &node, uint32_t base, const FieldSet *beside) {
  const Field &field = *node.field;
  const FieldRef ref = field.ref.At(base + node.element.value_or(0) * field.stride);
  if (!node.IsArray() && node.IsStructure()) {
    char before = '{';
    for (const ShapeNode &inner : node.inner) {
      AddName(before, inner);
      AddNode(inner, ref.offset, &field.fields);
      before = ',';
    }
    pending_ += '}';
    return;
  }
  const auto plain = node.IsArray() ? std::nullopt : PlainValue::Of(ref, PlainValue::Bits::kWords);
  if (plain) return AddPlain(node, *plain);
  Run &run = EndRun();
  run.node = &node;
  run.base = base;
  run.beside = beside;
}

void JsonRecords::AddPlain(const ShapeNode &node, const PlainValue &value) {
  if (!value.IsNumber()) pending_ += '"';
  const uint32_t first = runs_.empty() ? 0 : runs_.back().end;
  const size_t room = (plains_.size() - first + 1) * (kCopied + PlainValue::kRoom) + pending_.size();
  if (room > TextOut::kMostRoom / 2) EndRun();
  plains_.push_back(
      {static_cast<uint32_t>(literals_.size()), static_cast<uint32_t>(pending_.size()), node.inKey, value});
  literals_ += pending_;
  pending_.clear();
  if (!value.IsNumber()) pending_ += '"';
}

JsonRecords::Run &JsonRecords::EndRun() {
  Run run;
  const uint32_t first = runs_.empty() ? 0 : runs_.back().end;
  run.end = static_cast<uint32_t>(plains_.size());
  run.literal = static_cast<uint32_t>(literals_.size());
  run.length = static_cast<uint32_t>(pending_.size());
  run.room = run.length + kCopied;
  for (uint32_t i = first; i < run.end; ++i) run.room += plains_[i].length + PlainValue::kRoom;
  literals_ += std::exchange(pending_, {});
  return runs_.emplace_back(run);
}

// The values of the run; the first one of the next.
const JsonRecords::Plain *JsonRecords::WriteRun(const Run &run, const Plain *plain,
                                                const RecordBytes &record) {
  const char *const literals = literals_.data();
  const uint8_t *const sides[] = {record.record, record.key};
  char *const begin = out_.Room(run.room);
  char *at = begin;
  for (const Plain *const end = plains_.data() + run.end; plain != end; ++plain) {
    at = PutLiteral(at, literals + plain->literal, plain->length);
    at = plain->value.Put(sides[plain->inKey], at);
  }
  at = PutLiteral(at, literals + run.literal, run.length);
  if (!isOpen_ && at != begin) {
    *begin = '{';
    isOpen_ = true;
  }
  out_.Advance(static_cast<size_t>(at - begin));
  return plain;
}

void JsonRecords::Write(const RecordBytes &record) {
  isOpen_ = false;
  const Plain *plain = plains_.data();
  for (size_t i = 0; i < runs_.size(); ++i) {
    const Run &run = runs_[i];
    plain = WriteRun(run, plain, record);
    if (run.node != nullptr) {
      WriteJsonNode(Writer(), record, *run.node, run.base,
                    run.beside != nullptr ? *run.beside : record.fields);
    } else if (run.part != nullptr && IsLacking(*run.part, record)) {
      plain = plains_.data() + runs_[run.behind - 1].end;
      i = run.behind - 1;
    }
  }
  const auto isSame = [&record](const Twin &twin) {
    return std::memcmp(record.record + twin.own, record.key + twin.key, twin.size) == 0;
  };
  if (hasOtherTwins_ || !std::ranges::all_of(twins_, isSame)) WriteDifferences(record);
  if (!isOpen_) out_.Put('{');
  out_.Put('}');
}

// For a value that stands alone as far as RapidJSON knows.
JsonWriter *JsonRecords::Writer() {
  writer_.Reset(out_);
  return &writer_;
}

// The name of a member whose value another one writes.
void JsonRecords::WriteMember(std::string_view name) {
  out_.Put(std::exchange(isOpen_, true) ? ',' : '{');
  Writer()->PlainText(name);
  out_.Put(':');
}

// Whether the record has another thing than the part, which is written then: nothing, or that its pointer
// leads astray.
bool JsonRecords::IsLacking(const ShapeNode &part, const RecordBytes &record) {
  const Field &field = *part.field;
  if (record.entry == nullptr) return false;
  if (!record.entry->Has(field)) return true;
  if (field.pointer == 0 || !record.entry->IsStrayed(field)) return false;
  WriteMember(part.name);
  WriteJsonStale(Writer(), record.entry->PointerTo(field));
  return true;
}

void JsonRecords::WriteDifferences(const RecordBytes &record) {
  JsonWriter *json = nullptr;
  for (const ShapeNode &node : shape_.nodes) {
    if (!DiffersFromKey(node, record)) continue;
    if (json == nullptr) {
      WriteMember("record");
      json = Writer();
      json->StartObject();
    }
    JsonKey(json, node.name);
    WriteJsonValue(json, record, *node.twin, node.twin->ref, record.record);
  }
  if (json != nullptr) json->EndObject();
}

void WriteJson(JsonWriter *json, const RecordBytes &record, const RecordShape &shape) {
  json->ForeignObject();
  JsonRecords(shape, json->out()).Write(record);
}

}  // namespace qdt::host
