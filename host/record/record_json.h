#ifndef HOST_RECORD_RECORD_JSON_H_
#define HOST_RECORD_RECORD_JSON_H_

#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <string_view>

// RapidJSON's stack adds to a null pointer before it has any storage. Nothing comes of it, but sanitizers
// stop.
#ifdef __clang__
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/writer.h>
#ifdef __clang__
#pragma clang attribute pop
#endif

#include "host/base/throwing_heap.h"
#include "host/record/record_shape.h"
#include "host/record/record_source.h"
#include "host/record/text_out.h"

namespace qdt::host {

// Texts are valid UTF-8 by the time they get here (AppendEscaped). Beside what RapidJSON's writer has: names,
// texts and numbers of which nothing needs to be escaped, which are most of all.
class JsonWriter : public rapidjson::Writer<TextOut, rapidjson::UTF8<>, rapidjson::UTF8<>, ThrowingHeap> {
 public:
  explicit JsonWriter(TextOut &out) : Writer(out) {}

  // Letters, digits, and such as addresses are made of.
  void PlainText(std::string_view text) {
    Prefix(rapidjson::kStringType);
    if (text.size() > TextOut::kMostRoom - 2) {
      os_->Put('"');
      os_->Append(text);
      os_->Put('"');
      return;
    }
    char *at = os_->Room(text.size() + 2);
    *at = '"';
    std::memcpy(at + 1, text.data(), text.size());
    at[text.size() + 1] = '"';
    os_->Advance(text.size() + 2);
  }
  // A number, or true or false, which `write` puts to the place that it is given; it returns the characters,
  // at most kNumberRoom.
  template <typename Write>
  void PlainNumber(const Write &write) {
    Prefix(rapidjson::kNumberType);
    os_->Advance(write(os_->Room(kNumberRoom)));
  }
  static constexpr size_t kNumberRoom = 64;

  // Says that the next value is an object, which somebody else writes to out().
  void ForeignObject() { Prefix(rapidjson::kObjectType); }
  TextOut *out() const { return os_; }
};

inline void JsonText(JsonWriter *json, std::string_view text) {
  json->String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}
inline void JsonKey(JsonWriter *json, std::string_view key) {
  json->Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
}
// Ends the array of a document, which then says how many it had, and the document's line.
void JsonEndCounted(JsonWriter *json, TextOut *out, uint64_t count);
// Adds members to a document before it ends.
using MoreMembers = std::function<void(JsonWriter *json)>;
// The same for an array that may have been cut.
void JsonEndCounted(JsonWriter *json, TextOut *out, uint64_t count, bool truncated,
                    const MoreMembers &more = {});
// A text of an engine, escaped.
void JsonEscaped(JsonWriter *json, std::string_view text);

// A record's bytes, and what tells which of its structures it has; for regions `entry` is null, and so is
// `key`.
struct RecordBytes {
  const RecordSource &source;
  const EntryReader *entry;
  const uint8_t *key;
  const uint8_t *record;
  FieldSet fields;  // of the record or region, among which counts of its arrays are looked for

  explicit RecordBytes(const RecordSource &from, const EntryReader &reader)
      : source(from),
        entry(&reader),
        key(reader.entry().key),
        record(reader.entry().record),
        fields(reader.table().fields) {}
  RecordBytes(const RecordSource &from, const uint8_t *region, const FieldSet &itsFields = {})
      : source(from), entry(nullptr), key(nullptr), record(region), fields(itsFields) {}
};

// Writes records as JSON objects: fields by their names; structures as objects, left out where the record
// does not have them; arrays without the zeros at their end, but for as many elements as the record counts;
// single bits as booleans, numbers exactly; addresses as text; times as seconds ago; references as the key of
// the entry that they lead to ({"index": 5}, by name of its table where there are several: {"nhp": {"index":
// 5}}), as {"stale": "0x7f0000001000"} where no entry is any more, null, or any other address as
// "0x7f0000001000".
//
// A record whose field says another thing than its key has the field again in an object named "record".
void WriteJson(JsonWriter *json, const RecordBytes &record, const RecordShape &shape);

// What stands for an address where no entry is any more.
void WriteJsonStale(JsonWriter *json, uint64_t address);

// The fields of `key`, a whole key of the table, as an object.
void WriteJsonKey(JsonWriter *json, const TableLayout &table, const uint8_t *key);

// One node's value; of an array all that is shown of it. `base` is where its structure begins.
void WriteJsonNode(JsonWriter *json, const RecordBytes &record, const ShapeNode &node, uint32_t base,
                   const FieldSet &beside);

// A single value, `bytes` of the key or record.
void WriteJsonValue(JsonWriter *json, const RecordBytes &record, const Field &field, const FieldRef &ref,
                    const uint8_t *bytes);

// How many elements of the array at `base` are shown. `beside` are the fields of its structure.
uint32_t ShownElements(const Field &field, uint32_t base, const FieldSet &beside, const uint8_t *bytes);

// Whether the record's own field says another thing than the key's of the same name.
bool DiffersFromKey(const ShapeNode &node, const RecordBytes &record);

}  // namespace qdt::host

#endif  // HOST_RECORD_RECORD_JSON_H_
