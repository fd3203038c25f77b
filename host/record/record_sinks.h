#ifndef HOST_RECORD_RECORD_SINKS_H_
#define HOST_RECORD_RECORD_SINKS_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/record/record_rows.h"

namespace qdt::host {

enum class RecordFormat : uint8_t { kColumns, kJson, kJsonLines, kCsv, kYaml };

// Writes the records of one answer in one form, with constant memory. Begin and End stand around the records;
// an answer that cannot be finished is ended with Fail instead, after which nobody takes it for whole.
class RecordSink {
 public:
  virtual ~RecordSink() = default;
  virtual void Begin() {}
  virtual void Record(const RecordBytes &record) = 0;
  // `count` records were written; `truncated` says that there were more.
  virtual void End(uint64_t count, bool truncated) = 0;
  virtual void Fail(std::string_view message) = 0;
};

// What an answer is about: a table's name and id, in JSON `kind` "table", "region" or "view".
struct AnswerName {
  std::string_view kind;
  std::string_view name;
  uint32_t id = 0;
  // Writes further members at the end of a JSON document; may be empty.
  MoreMembers more = {};
};

// `fields` are those of the record. Columns are cut to `width` characters a line, 0 is no limit; what was
// left out then is said in one line to `aside`, which may be null. All of them outlive the sink.
std::unique_ptr<RecordSink> MakeSink(RecordFormat format, TextOut *out, const AnswerName &name,
                                     const RecordShape &shape, const FieldSet &fields, uint32_t width,
                                     std::string *aside);

}  // namespace qdt::host

#endif  // HOST_RECORD_RECORD_SINKS_H_
