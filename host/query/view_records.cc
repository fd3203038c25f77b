#include "host/query/view_records.h"

#include <cstring>
#include <optional>
#include <vector>

#include "host/base/host_error.h"
#include "host/library/batches.h"
#include "host/query/own_records.h"
#include "host/tbm/observer.h"
#include "qdt/session.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

// Remembers the entries of one table that the table manager delivers.
class Delivered {
 public:
  explicit Delivered(uint32_t table) : table_(table) {}

  std::vector<tbm::Place> places;

 private:
  static void Note(void *context, uint32_t table, const tbm::Place &place) {
    auto *const self = static_cast<Delivered *>(context);
    if (table == self->table_) self->places.push_back(place);
  }

  const uint32_t table_;
  const tbm::Observer observer_{Note, this};
  const tbm::Observing observing_{observer_};
};

// The sessions that a query matches: the walk delivers all of them, and the view's own callback chooses.
class MatchingSessions {
 public:
  MatchingSessions(const TableQuery &ask, uint32_t table, uint32_t wanted)
      : table_(table), wanted_(wanted), delivered_(table) {
    collect_.Key = SessionKeyOf(ask);
    collect_.Records = record_;
    collect_.Limit = 1;
  }

  int32_t Walk() { return TbmTblTrav(0, table_, Take, this) == 0 ? 0 : int32_t{QDT_TBL_FAIL}; }
  const std::vector<tbm::Place> &places() const { return places_; }
  bool hasMoreBehind() const { return hasMoreBehind_; }

 private:
  static int32_t Take(void *record, void *context) {
    auto *const self = static_cast<MatchingSessions *>(context);
    self->collect_.Count = self->collect_.Bytes = 0;
    SessionNodeSearchMatch(record, &self->collect_);
    const tbm::Place place = self->delivered_.places.back();
    self->delivered_.places.clear();
    if (self->collect_.Count == 0) return QDT_TBL_CONTINUE;
    self->hasMoreBehind_ = self->places_.size() == self->wanted_;
    if (self->hasMoreBehind_) return QDT_TBL_STOP;
    self->places_.push_back(place);
    return QDT_TBL_CONTINUE;
  }

  const uint32_t table_;
  const uint32_t wanted_;
  Delivered delivered_;
  SessionCollect collect_{};
  char record_[kSessionSize];
  std::vector<tbm::Place> places_;
  bool hasMoreBehind_ = false;
};

class View {
 public:
  View(const RecordSource &source, const ViewLayout &view, const TableQuery &ask, RecordSink *sink)
      : source_(source), view_(view), ask_(ask), sink_(*sink) {}

  ViewAnswer Write() {
    int32_t code = batches_.Prepare();
    if (code == 0)
      code = view_.id == kSessionView ? Sessions() : !view_.table.empty() ? Entries() : Records();
    answer_.code = code;
    if (code == 0) {
      Begin();
      sink_.End(answer_.count, answer_.truncated);
    } else if (begun_) {
      sink_.Fail(CodeMessage(code));
      throw HostError(std::string("the query stopped in the middle: ") + CodeMessage(code));
    }
    return answer_;
  }

 private:
  void Begin() {
    if (!begun_) sink_.Begin();
    begun_ = true;
  }

  void Show(const RecordBytes &record) {
    Begin();
    sink_.Record(record);
    ++answer_.count;
  }

  void ShowEntry(EntryReader *reader, const tbm::Place &place) {
    // An entry that has gone since is no longer part of the answer.
    if (reader->Again(place)) Show(RecordBytes(source_, *reader));
  }

  int32_t Sessions() {
    if (!IsSessionKey(ask_)) return QDT_TBL_FORMAT;
    if (!IsSessionFilter(ask_)) return QDT_TBL_DATA_SIZE;
    const TableLayout &table = *source_.layout().FindTable(view_.table);
    MatchingSessions sessions(ask_, table.spec.id, batches_.Wanted());
    if (const int32_t code = sessions.Walk(); code != 0) return code;
    if (sessions.places().empty()) return QDT_TBL_DATA_SIZE;
    EntryReader reader(source_, table);
    for (const tbm::Place &place : sessions.places()) ShowEntry(&reader, place);
    answer_.truncated = sessions.hasMoreBehind();
    return 0;
  }

  // Fetches the next batch. An answer without any record is a failure, as in the diag command.
  int32_t Fetch() {
    if (const int32_t code = batches_.Next(); code != 0) return code;
    answer_.truncated = batches_.HasMoreBehind();
    return begun_ || !batches_.records().empty() ? 0 : int32_t{QDT_TBL_DATA_SIZE};
  }

  int32_t Entries() {
    const TableLayout &table = *source_.layout().FindTable(view_.table);
    Delivered delivered(table.spec.id);
    std::optional<EntryReader> reader;
    while (!batches_.AtEnd()) {
      delivered.places.clear();
      if (const int32_t code = Fetch(); code != 0) return code;
      if (!reader) reader.emplace(source_, table);
      for (const tbm::Place &place : delivered.places) ShowEntry(&*reader, place);
    }
    return 0;
  }

  int32_t Records() {
    OwnRecords own(source_.layout(), view_,
                   [this](const uint8_t *record) { Show(RecordBytes(source_, record)); });
    if (own.StandAlone()) return own.ShowAlone();
    while (!batches_.AtEnd()) {
      if (const int32_t code = Fetch(); code != 0) return code;
      if (const int32_t code = own.Show(batches_.records()); code != 0) return code;
      answer_.truncated = answer_.truncated || own.IsCut();
    }
    return 0;
  }

  const RecordSource &source_;
  const ViewLayout &view_;
  const TableQuery &ask_;
  RecordSink &sink_;
  Batches batches_{ask_};
  ViewAnswer answer_;
  bool begun_ = false;
};

class PlaceSink : public RecordSink {
 public:
  void Record(const RecordBytes &record) override { places.push_back(record.entry->entry().place); }
  void End(uint64_t, bool) override {}
  void Fail(std::string_view) override {}

  std::vector<tbm::Place> places;
};

}  // namespace

TableLayout RecordLayoutOf(const Layout &layout, const ViewLayout &view) {
  if (!view.table.empty()) return *layout.FindTable(view.table);
  TableLayout alone;
  alone.shortName = view.name;
  alone.fields = view.region.empty() ? view.fields : layout.FindRegion(view.region)->fields;
  return alone;
}

ViewAnswer WriteViewRecords(const RecordSource &source, const ViewLayout &view, const TableQuery &ask,
                            RecordSink *sink) {
  return View(source, view, ask, sink).Write();
}

std::vector<tbm::Place> ViewPlaces(const RecordSource &source, const ViewLayout &view,
                                   const TableQuery &ask) {
  // A query reads copies of some records; those of the one before are not what the engine has now.
  if (Arena *arena = Arena::Current()) arena->DropCopies();
  PlaceSink sink;
  WriteViewRecords(source, view, ask, &sink);
  return std::move(sink.places);
}

}  // namespace qdt::host
