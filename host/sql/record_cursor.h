#ifndef HOST_SQL_RECORD_CURSOR_H_
#define HOST_SQL_RECORD_CURSOR_H_

#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/sql/arena_set.h"
#include "host/sql/column_index.h"
#include "host/sql/sql_columns.h"

namespace qdt::host {

// Walks the rows of one table over all arenas of a set, in one of the ways that a statement can ask for. What
// throws is a HostError.
class RecordCursor {
 public:
  // `indexes` are those of the table.
  RecordCursor(const ArenaSet &arenas, const SqlTable &table, std::shared_ptr<ColumnIndexes> indexes);
  ~RecordCursor();

  // Each begins anew. Rows have to be asked for with Next before the first.
  //
  // All rows. When nobody is going to look at a column, records are not read.
  void Walk(bool unread);
  // The entries of a whole key, `bytes` as in the table, or of the group that a key begins with.
  void Key(std::vector<uint8_t> bytes);
  void Group(std::vector<uint8_t> bytes);
  // The entry that references with this address lead to.
  void Address(uint64_t address);
  // The route with the longest prefix that holds the key's destination, in the key's VPN.
  void Match(std::vector<uint8_t> bytes);
  // Rows whose columns may have values of this hash. All rows the first time, later on those that an index on
  // the columns gives. `hashOf` gives the hash of the current row's values.
  void Indexed(const IndexedColumns &columns, const std::function<uint64_t()> &hashOf, uint64_t hash);
  // No rows.
  void Nothing();
  // Of the calls behind this one only the rows of one arena of the set, or of all.
  void OfArena(std::optional<size_t> arena) { onlyArena_ = arena; }

  bool Next();

  // Of the current row.
  RecordBytes bytes() const { return RecordBytes(*source_, *reader_); }
  const RecordSource &source() const { return *source_; }
  // Where the entry lies, as references to it hold it.
  uint64_t address() const;
  const std::string &arena() const { return arenas_.Name(arena_); }
  // The row's number, the same whichever way has led to it: of a row that two parts of an OR have found, each
  // on its own way, SQLite keeps one by this number.
  int64_t number() const;
  uint32_t element() const { return element_; }
  // Where the element begins that the columns of a list are counted from.
  uint32_t elementBase() const { return elementBase_; }

 private:
  enum class Plan : uint8_t { kNothing, kWalk, kKey, kGroup, kAddress, kMatch, kIndexed };
  // An arena with the places of its entries in their order, for a walk over many. When nobody is going to
  // look at them their number is enough.
  struct Scanned {
    std::unique_ptr<RecordSource> source;
    std::vector<tbm::Place> places;
    size_t count = 0;
    std::exception_ptr error;  // that is to be thrown when the walk comes to this arena
  };

  void Begin(Plan plan, std::vector<uint8_t> key);
  bool NextEntry();
  bool NextArena();
  bool NextOfArena();
  bool NextScanned();
  bool NextIndexed();
  bool FirstElement();
  void UseArena(size_t i);
  using Opener = std::function<std::unique_ptr<RecordSource>()>;
  static Scanned Scan(const Opener &open, const TableLayout &table, bool unread);
  void ScanAhead();
  void TakeScanned();
  void SetElement(uint32_t element);
  ColumnIndex MakeIndex(const std::function<uint64_t()> &hashOf);
  bool IsParallel() const;

  const ArenaSet &arenas_;
  const SqlTable &table_;
  Plan plan_ = Plan::kNothing;
  std::vector<uint8_t> key_;
  uint64_t wantedAddress_ = 0;
  bool unread_ = false;
  uint32_t unreadRef_ = 0;  // of the current row, when records are not read
  std::optional<size_t> onlyArena_;

  size_t arena_ = 0;
  size_t nextArena_ = 0;
  size_t endArena_ = 0;
  bool isMany_ = false;
  bool inArena_ = false;  // rows of the current one may follow
  bool asked_ = false;    // of plans with one row: it has been looked for
  std::shared_ptr<const RecordSource> source_;
  std::unique_ptr<EntryReader> reader_;
  uint32_t sinceCheck_ = 0;

  std::deque<Scanned> ready_;                            // of the arenas from nextArena_ on
  std::vector<std::future<std::deque<Scanned>>> ahead_;  // of those behind them
  size_t nextScan_ = 0;                                  // the first behind all of these
  Scanned scanned_;                                      // its source is source_
  size_t place_ = 0;

  uint32_t element_ = 0;
  uint32_t elements_ = 0;
  uint32_t elementBase_ = 0;

  const std::shared_ptr<ColumnIndexes> indexes_;
  std::map<IndexedColumns, std::shared_ptr<const ColumnIndex>> taken_;  // of one statement
  const ColumnIndex *index_ = nullptr;
  size_t indexAt_ = 0;
  uint64_t wantedHash_ = 0;
};

}  // namespace qdt::host

#endif  // HOST_SQL_RECORD_CURSOR_H_
