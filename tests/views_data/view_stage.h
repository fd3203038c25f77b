#ifndef TESTS_VIEWS_DATA_VIEW_STAGE_H_
#define TESTS_VIEWS_DATA_VIEW_STAGE_H_

#include <rapidjson/document.h>

#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "host/record/record_json.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

// What a view shows records of: a table, or a region.
class Shown {
 public:
  explicit Shown(const TableLayout &table) : table_(&table) {}
  explicit Shown(const RegionLayout &region) : region_(&region) {}
  // By name; throws HostError when there is none.
  static Shown Of(const std::string &name);

  std::string name() const { return std::string(table_ != nullptr ? table_->shortName : region_->spec.name); }
  const FieldSet &fields() const { return table_ != nullptr ? table_->fields : region_->fields; }
  const TableLayout *table() const { return table_; }
  const RegionLayout *region() const { return region_; }
  std::vector<Leaf> Leaves() const { return table_ != nullptr ? LeavesOf(*table_) : LeavesOf(*region_); }
  // The values of the record itself, not those of the key.
  std::vector<Leaf> OwnLeaves() const;

 private:
  const TableLayout *table_ = nullptr;
  const RegionLayout *region_ = nullptr;
};

// A real arena, filled with what the views look for besides their own records, whose one entry of a table is
// filled with bytes and then asked for as text, the way "nqecli show" asks, and as data.
class ViewStage {
 public:
  // Of the scenario stage.yaml.
  ViewStage();
  ~ViewStage();

  // The table's entry of the key, "FIELD=VALUE ...", which is made when it is not there; or the region.
  void Take(const Shown &shown, const std::vector<std::string> &key);

  // How an entry is filled.
  enum class Fill {
    kFields,  // each field with a value of its own, counts as their arrays are long, all that can be attached
    kBytes,   // with random bytes; pointers lead to what they can lead to, to nothing, or astray
  };
  void FillEntry(Fill fill, std::mt19937_64 *chance);
  // Gives one value of the entry another one.
  void Change(const Leaf &leaf, std::mt19937_64 *chance);
  std::vector<uint8_t> record() const { return record_; }
  void SetRecord(std::vector<uint8_t> record);

  // What the view says to the words of a query.
  std::string Text(uint32_t view, const std::vector<std::string> &query) const;
  // The entry by `shown`, which may be another layout of the same table than the one that it was filled by.
  std::string Json(const Shown &shown) const;
  // Another entry, or the first one of a table, or a region; nothing when there is no such entry.
  std::optional<std::string> JsonOf(const std::string &name, const std::vector<std::string> &key) const;

  const RecordSource &source() const { return *source_; }

 private:
  void FillLeaf(const Leaf &leaf, std::mt19937_64 *chance);
  void FillReference(const Leaf &leaf, std::mt19937_64 *chance);
  void Agree(const Leaf &leaf, const Reference &to);
  void FillCounts(Fill fill, const FieldSet &fields, uint32_t base, std::mt19937_64 *chance);
  void FillSelectors(Fill fill, std::mt19937_64 *chance);
  void Attach(bool always, std::mt19937_64 *chance);
  void Update();

  std::string directory_;
  std::unique_ptr<Arena> arena_;
  std::unique_ptr<TableWriter> writer_;
  std::unique_ptr<RecordSource> source_;
  std::optional<Shown> shown_;
  std::vector<Leaf> leaves_;
  std::vector<uint8_t> key_;
  std::vector<uint8_t> record_;  // with what is attached to it
  void *address_ = nullptr;      // as searches deliver it, or of the region
};

}  // namespace qdt::host

#endif  // TESTS_VIEWS_DATA_VIEW_STAGE_H_
