#ifndef HOST_RECORD_JSON_RECORDS_H_
#define HOST_RECORD_JSON_RECORDS_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/record/plain_value.h"
#include "host/record/record_json.h"

namespace qdt::host {

// Writes records of one shape as the JSON objects that WriteJson describes. What is the same in all of them,
// from the end of one value to the beginning of the next, is put together once; a record is then those
// literals with its plain values between them. What depends on more than a value's own bytes (references,
// texts, arrays, structures that not all records have) goes through RapidJSON's writer.
class JsonRecords {
 public:
  // Both outlive it.
  JsonRecords(const RecordShape &shape, TextOut *out);

  void Write(const RecordBytes &record);

 private:
  // A plain value and the literal before it.
  struct Plain {
    uint32_t literal;  // where it stands
    uint32_t length;
    bool inKey;
    PlainValue value;
  };
  // Plain values, the literal behind the last of them, and then one thing that is not plain.
  struct Run {
    uint32_t end = 0;  // of its plain values, which begin where those of the run before end
    uint32_t literal = 0;
    uint32_t length = 0;
    uint32_t room = 0;  // for all this
    // Another value, in the structure that begins at `base` and has the fields `beside`; null: the record's.
    const ShapeNode *node = nullptr;
    uint32_t base = 0;
    const FieldSet *beside = nullptr;
    // Or a structure that some records lack, which ends with the run before `behind`.
    const ShapeNode *part = nullptr;
    uint32_t behind = 0;
  };
  // Bytes of the record that are those of its key where it says the same.
  struct Twin {
    uint32_t own, key, size;
  };

  // What the constructor is made of.
  void AddMember(const ShapeNode &node);
  void AddName(char before, const ShapeNode &node);
  void AddTwin(const ShapeNode &node);
  void AddNode(const ShapeNode &node, uint32_t base, const FieldSet *beside);
  void AddPlain(const ShapeNode &node, const PlainValue &value);
  Run &EndRun();

  const Plain *WriteRun(const Run &run, const Plain *plain, const RecordBytes &record);
  void WriteMember(std::string_view name);
  bool IsLacking(const ShapeNode &part, const RecordBytes &record);
  void WriteDifferences(const RecordBytes &record);
  JsonWriter *Writer();

  const RecordShape &shape_;
  TextOut &out_;
  JsonWriter writer_;  // of what is not plain
  std::string literals_;
  std::string pending_;  // the literal in the making
  std::vector<Plain> plains_;
  std::vector<Run> runs_;
  std::vector<Twin> twins_;
  bool hasOtherTwins_ = false;  // that are not stored in the same way
  bool isOpen_ = false;         // the record has a member already
};

}  // namespace qdt::host

#endif  // HOST_RECORD_JSON_RECORDS_H_
