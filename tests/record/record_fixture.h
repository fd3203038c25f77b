#ifndef TESTS_RECORD_RECORD_FIXTURE_H_
#define TESTS_RECORD_RECORD_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host/arena/arena.h"
#include "host/layout/layout.h"
#include "host/record/list.h"
#include "host/record/record_source.h"
#include "host/regions/statistics.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

// A directory of its own, which goes with its owner.
class TestDirectory {
 public:
  TestDirectory() {
    std::string name = testing::TempDir() + "qdt_record.XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~TestDirectory() { std::filesystem::remove_all(path_); }
  TestDirectory(const TestDirectory &) = delete;
  TestDirectory &operator=(const TestDirectory &) = delete;

  std::string File(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// A published arena of a layout, with its writer. Several may stand side by side in one process.
class TestArena {
 public:
  static constexpr uint32_t kCores = 3;

  TestArena(const std::string &path, const Layout &layout) : layout_(layout), path_(path) {
    ArenaPlan plan = layout.Plan("/nowhere");
    plan.regions.push_back(StatisticsSpec(kCores));
    arena_ = Arena::Create(path, plan);
    arena_->Publish();
    writer_ = std::make_unique<TableWriter>(arena_.get());
  }

  Arena &arena() { return *arena_; }
  TableWriter &writer() { return *writer_; }
  const Layout &layout() const { return layout_; }

  // Its own mapping of the arena, elsewhere.
  std::unique_ptr<RecordSource> Source() const { return RecordSource::OfSnapshot(path_, layout_); }
  std::unique_ptr<RecordSource> LiveSource() const { return RecordSource::OfEngine(path_, layout_); }

 private:
  const Layout &layout_;
  std::string path_;
  std::unique_ptr<Arena> arena_;
  std::unique_ptr<TableWriter> writer_;
};

}  // namespace qdt::host

#endif  // TESTS_RECORD_RECORD_FIXTURE_H_
