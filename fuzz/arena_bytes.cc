// A saved arena of which any words have been changed: attached to, then asked through every view, listed,
// searched, held against itself, and compared.

#include <string>

#include "fuzz/damaged_arena.h"
#include "fuzz/lab.h"
#include "host/arena/arena.h"
#include "host/base/host_error.h"
#include "host/inspect/check.h"
#include "host/inspect/diff.h"
#include "host/inspect/find.h"
#include "host/library/entry_points.h"
#include "host/record/list.h"
#include "host/record/record_sinks.h"
#include "host/record/record_source.h"
#include "qdt/tables.h"

namespace {

using namespace qdt;

// Takes whatever is written, and no more than an answer's worth: damage can have a list go on for long.
class Bounded : public host::TextOut {
 private:
  void Write(std::string_view text) override {
    written_ += text.size();
    if (written_ > kMost) throw host::HostError("enough");
  }
  static constexpr size_t kMost = 1 << 20;
  size_t written_ = 0;
};

template <typename Work>
void Try(const Work &work) {
  try {
    work();
  } catch (const host::HostError &) {
  }
}

void AskViews(const std::string &path) {
  const auto arena = host::Arena::Attach(path, host::Arena::Access::kSnapshot);
  host::Arena::SetCurrent(arena.get());
  const host::EntryPoint &diag = *host::FindEntryPoint("diag");
  for (uint32_t view = 0; view < QDT_DIAG_TABLE_COUNT; ++view) {
    for (const char *key : {"all", "0", "num"}) {
      const std::string line = "search nqpTable " + std::to_string(view) + " " + key + " 1 0 0";
      const fuzz::Words words("diag", reinterpret_cast<const uint8_t *>(line.data()), line.size());
      host::RunEntryPoint(diag, words.all());
    }
    arena->DropCopies();
  }
  host::Arena::SetCurrent(nullptr);
}

void AskRecords(const std::string &path, const std::string &whole) {
  const auto source = host::RecordSource::OfSnapshot(path, host::Layout::BuiltIn());
  for (const host::TableLayout &table : source->layout().tables()) {
    if (table.fields.empty()) continue;
    Try([&] {
      Bounded out;
      host::ListRequest request;
      request.table = &table;
      request.limit = 1000;
      const auto shape = host::RecordShape::Whole(table);
      const auto sink =
          host::MakeSink(host::RecordFormat::kJson, &out, {"table", table.shortName, table.spec.id}, shape,
                         table.fields, 0, nullptr);
      host::RunList(*source, request, sink.get());
    });
  }
  for (const char *value : {"192.0.2.1", "2001:db8::1", "02:00:5e:00:00:01", "7", "*a*"}) {
    Try([&] {
      host::FindValue(*source, host::SearchValue(value), [](const host::Match &) { return true; });
    });
  }
  Try([&] {
    host::CheckArena(
        *source, [](const host::Finding &) {}, [] {});
  });
  const auto other = host::RecordSource::OfSnapshot(whole, host::Layout::BuiltIn());
  Try([&] {
    Bounded out;
    const auto sink = host::MakeDiffJson(&out);
    host::RunDiff(*source, *other, host::DiffRequest::Whole(source->layout()), sink.get());
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static fuzz::DamagedArena arena;
  static const std::string whole = arena.CopyOfWhole();
  arena.Damage(data, size, 64);
  Try([&] { AskViews(arena.path()); });
  host::Arena::SetCurrent(nullptr);
  Try([&] { AskRecords(arena.path(), whole); });
  arena.Mend();
  return 0;
}
