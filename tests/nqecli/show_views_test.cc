#include <gtest/gtest.h>

#include <map>
#include <string>

#include "host/layout/layout.h"
#include "host/library/table_lines.h"
#include "qdt/tables.h"

namespace qdt::nqecli {
namespace {

using host::Layout;
using host::ViewLayout;

TEST(ShowViewsTest, EveryTableOfTheDiagCommandHasAViewOfItsNameAndNoOtherViewsAreThere) {
  std::map<uint32_t, std::string> named, laidOut;
  for (const host::TableLine &line : host::TableLines()) named[line.id] = line.name;
  for (const ViewLayout &view : Layout::BuiltIn().views()) laidOut[view.id] = view.name;
  EXPECT_EQ(laidOut, named);
  EXPECT_EQ(laidOut.size(), 87u);
  for (uint32_t id = 0; id < QDT_DIAG_TABLE_COUNT; ++id)
    EXPECT_EQ(Layout::BuiltIn().FindView(id) != nullptr, g_nqeTblOps[id].search != nullptr) << id;
}

TEST(ShowViewsTest, SevenViewsShowNoTable) {
  std::map<std::string, std::string> others;
  for (const ViewLayout &view : Layout::BuiltIn().views()) {
    if (view.table.empty()) {
      others[std::string(view.name)] = view.region;
    } else {
      EXPECT_EQ(view.table, view.name);
    }
  }
  const std::map<std::string, std::string> expected = {{"acl_whole_machine_spec", ""},
                                                       {"cpcar_pro_pps", ""},
                                                       {"dropid", ""},
                                                       {"mac_carId", ""},
                                                       {"nat_policy", ""},
                                                       {"station_trace", "PKT_TRACE_CTX_PTR"},
                                                       {"tbm_memory_stat", ""}};
  EXPECT_EQ(others, expected);
}

}  // namespace
}  // namespace qdt::nqecli
