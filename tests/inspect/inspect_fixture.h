#ifndef TESTS_INSPECT_INSPECT_FIXTURE_H_
#define TESTS_INSPECT_INSPECT_FIXTURE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "host/record/record_source.h"
#include "host/scenario/scenario.h"
#include "host/tbm/table_writer.h"

namespace qdt::host {

// An engine's arena that a scenario fills, and what a tool sees of it.
class InspectTest : public testing::Test {
 protected:
  InspectTest() : path_(testing::TempDir() + "qdt_inspect_" + std::to_string(getpid())) {}
  ~InspectTest() override {
    source_.reset();
    if (arena_ != nullptr) arena_->Retire();
    unlink((path_ + ".copy").c_str());
  }

  void Fill(const std::string &text) {
    const Layout &layout = Layout::BuiltIn();
    arena_ = Arena::Create(path_, layout.Plan("/nowhere"));
    writer_ = std::make_unique<TableWriter>(arena_.get());
    Scenario::FromText("s.yaml", text, layout).Fill(arena_.get(), writer_.get());
    arena_->Publish();
  }

  // A saved copy of the arena as it is now.
  const RecordSource &Saved() {
    const std::string file = path_ + ".copy";
    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    EXPECT_GE(fd, 0);
    arena_->CopyTo(fd);
    close(fd);
    source_ = RecordSource::OfSnapshot(file, Layout::BuiltIn());
    return *source_;
  }

  // The arena of a running engine, which this process is.
  const RecordSource &Live() {
    source_ = RecordSource::OfEngine(path_, Layout::BuiltIn());
    return *source_;
  }

  static const TableLayout &Table(std::string_view name) { return *Layout::BuiltIn().FindTable(name); }

  // The delivered address of the n-th entry of a table, in order of insertion.
  void *EntryAt(std::string_view table, uint32_t n) {
    tbm::TableView view;
    EXPECT_EQ(tbm::TableView::Open(arena_.get(), Table(table).spec.id, &view), 0);
    return view.Address(n + 1);
  }

  // Overwrites the record of the n-th entry as `change` leaves it.
  void Change(std::string_view table, uint32_t n, const std::function<void(uint8_t *record)> &change) {
    const TableSpec &spec = Table(table).spec;
    std::vector<uint8_t> record(spec.StoredSize());
    void *address = EntryAt(table, n);
    std::memcpy(record.data(), static_cast<uint8_t *>(address) - spec.searchOffset, record.size());
    change(record.data());
    EXPECT_EQ(writer_->Update(spec.id, address, record.data()), 0);
  }
  void SetField(std::string_view table, uint32_t n, std::string_view field, uint64_t value) {
    Change(table, n, [&](uint8_t *record) { Table(table).At(field).Set(record, value); });
  }

  const std::string path_;
  std::unique_ptr<Arena> arena_;
  std::unique_ptr<TableWriter> writer_;
  std::unique_ptr<RecordSource> source_;
};

}  // namespace qdt::host

#endif  // TESTS_INSPECT_INSPECT_FIXTURE_H_
