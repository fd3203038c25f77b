#ifndef TESTS_SCENARIO_FILL_FIXTURE_H_
#define TESTS_SCENARIO_FILL_FIXTURE_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "host/arena/arena.h"
#include "host/scenario/scenario.h"
#include "include/platform/tbm.h"
#include "tests/layout/test_layout.h"

namespace qdt::host {

// A real arena, not published, that this process works on.
class FillTest : public testing::Test {
 protected:
  ~FillTest() override { Arena::SetCurrent(nullptr); }

  void Fill(const Layout &layout, const std::string &text) {
    Fill(layout, Scenario::FromText("s.yaml", text, layout));
  }

  void Fill(const Layout &layout, const Scenario &scenario) {
    Arena::SetCurrent(nullptr);
    arena_.reset();
    const std::string path = testing::TempDir() + "qdt_fill_" + std::to_string(getpid());
    arena_ = Arena::Create(path, layout.Plan("/nowhere"));
    TableWriter writer(arena_.get());
    scenario.Fill(arena_.get(), &writer);
    Arena::SetCurrent(arena_.get());
  }

  // The address of the entry, null when there is none.
  static uint8_t *Find(uint32_t table, std::initializer_list<uint32_t> key) {
    void *entry = nullptr;
    return TbmTblSearch(0, table, std::data(key), &entry) == 0 ? static_cast<uint8_t *>(entry) : nullptr;
  }

  static uint8_t *Pointer(const uint8_t *at) {
    uint8_t *pointer;
    std::memcpy(&pointer, at, sizeof pointer);
    return pointer;
  }

  std::unique_ptr<Arena> arena_;
};

}  // namespace qdt::host

#endif  // TESTS_SCENARIO_FILL_FIXTURE_H_
