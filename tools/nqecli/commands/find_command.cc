#include <string>

#include "host/base/host_error.h"
#include "host/inspect/find.h"
#include "host/record/record_rows.h"
#include "tools/nqecli/commands/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::JsonKey;
using host::Match;

// Counts up to the limit; tells whether there were more.
struct Count {
  uint64_t limit;
  uint64_t found = 0;
  bool truncated = false;

  bool Take() {
    truncated = found == limit;
    found += !truncated;
    return !truncated;
  }
};

// {"find": "02:00:5e:30:00:01", "kind": "mac", "matches": [{"table": "arp", "id": 4, "key": {...}, "field":
// "dmac", "value": "02:00:5e:30:00:01"}], "count": 1, "truncated": false}
void PrintJson(StandardOut *out, const host::RecordSource &source, std::string_view text,
               const host::SearchValue &value, Count *count) {
  host::JsonWriter json(*out);
  json.StartObject();
  JsonKey(&json, "find");
  host::JsonEscaped(&json, text);
  JsonKey(&json, "kind");
  host::JsonText(&json, value.KindName());
  JsonKey(&json, "matches");
  json.StartArray();
  FindValue(source, value, [&](const Match &match) {
    if (!count->Take()) return false;
    json.StartObject();
    WritePlace(&json, match.table, match.region, match.key);
    JsonKey(&json, "field");
    host::JsonText(&json, match.path);
    JsonKey(&json, "value");
    host::WriteJsonValue(&json, match.record, match.field, match.ref, match.bytes);
    json.EndObject();
    return true;
  });
  JsonEndCounted(&json, out, count->found, count->truncated);
}

void PrintLines(StandardOut *out, const host::RecordSource &source, const host::SearchValue &value,
                Count *count) {
  std::string line;
  FindValue(source, value, [&](const Match &match) {
    if (!count->Take()) return false;
    line.clear();
    AppendPlace(match.table, match.region, match.key, &line);
    line += "  ";
    line += match.path;
    line += "  ";
    if (match.ref.kind == host::FieldKind::kReference) {
      AppendReference(source.Resolve(match.field.targets, match.ref.Get(match.bytes)), &line);
    } else {
      AppendValue(&source, match.ref, match.bytes, &line);
    }
    line += '\n';
    out->Append(line);
    return true;
  });
}

}  // namespace

ExitCode Find(const DataWords &words) {
  if (words.words.size() != 1) {
    throw host::HostError(
        "find takes one value: an IPv4 or IPv6 address or prefix, a MAC address, an interface index or a "
        "text");
  }
  const std::string &text = words.words.front();
  const host::SearchValue value(text);
  const auto source = OpenSource(words.place);
  Count count{words.limit};
  const bool asJson = words.format == host::RecordFormat::kJson;
  WriteWhole([&](StandardOut *out) {
    asJson ? PrintJson(out, *source, text, value, &count) : PrintLines(out, *source, value, &count);
  });
  if (count.truncated && !asJson)
    WriteAside("more fields follow behind these " + std::to_string(count.found) + "; raise --limit\n");
  return count.found != 0 || count.truncated ? kAnswered : kFailed;
}

}  // namespace qdt::nqecli
