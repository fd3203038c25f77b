#include "tests/unit/frame/scripted_view.h"

#include <utility>

#include "tests/fake_platform/fake_platform.h"

// A registry of this binary's own stands in for the library's: a linker takes an archive's member only for
// names that nobody has defined.
namespace qdt::test {

Script g_script;

namespace {

// Each search of a query finds the context as the one before left it; the first finds it initialised.
void ExpectOwnContext(TbmTravContext *ctx) {
  EXPECT_EQ(ctx->opaque[0], g_script.searches.size()) << "not this query's traversal";
  ++ctx->opaque[0];
}

int32_t ScriptedSearch(void **record, uint32_t *recordLen, TbmTravContext *ctx, uint32_t loopNum,
                       const char *key1, uint32_t key2, uint32_t key3, uint32_t key4) {
  ExpectOwnContext(ctx);
  EXPECT_EQ(*record, nullptr) << "the last batch was not released";
  EXPECT_EQ(FakePlatform::Get().liveAllocations(), 0u);
  g_script.searches.push_back({loopNum, key1, key2, key3, key4});
  if (g_script.batches.empty()) {
    ADD_FAILURE() << "a search too many";
    return 0;
  }
  const Batch batch = std::move(g_script.batches.front());
  g_script.batches.pop_front();
  *recordLen = batch.length;
  if (batch.delivers) *record = malloc_ex(g_mallocHandle, "scripted_view", __LINE__, batch.length + 1);
  g_script.record = *record;
  g_script.pendingText = batch.text;
  g_script.pendingCode = batch.formatCode;
  return batch.found;
}

int32_t ScriptedFormat(char *out, uint32_t room, const void *record, int32_t recordLen) {
  EXPECT_EQ(record, g_script.record);
  g_script.formats.push_back({static_cast<uint32_t>(out - g_script.answer), room, recordLen});
  if (g_script.pendingCode != 0) return g_script.pendingCode;
  const std::string &text = g_script.pendingText;
  if (text.size() >= room) return QDT_TBL_FORMAT;
  std::memcpy(out, text.c_str(), text.size() + 1);
  return static_cast<int32_t>(text.size());
}

}  // namespace
}  // namespace qdt::test

#define ROW \
  { qdt::test::ScriptedSearch, qdt::test::ScriptedFormat }
#define ROWS_4 ROW, ROW, ROW, ROW
#define ROWS_8 ROWS_4, ROWS_4

// The rows that differ are those of scripted_view.h.
const TableOps g_nqeTblOps[QDT_DIAG_TABLE_COUNT] = {
    ROWS_8,
    ROWS_4,
    ROW,
    ROW,                 // 0 to 13
    {nullptr, nullptr},  // 14
    ROWS_4,
    ROW,                                   // 15 to 19
    {nullptr, qdt::test::ScriptedFormat},  // 20
    {qdt::test::ScriptedSearch, nullptr},  // 21
    ROWS_8,
    ROWS_8,
    ROWS_8,
    ROWS_8,
    ROWS_8,
    ROWS_8,
    ROWS_8,
    ROWS_8,
    ROW,
    ROW,
    ROW,  // 22 to 88
};

const uint8_t g_qdtTblGetAllItemsOfOneKey[QDT_DIAG_TABLE_COUNT] = {0, 0, 0, 0, 0, 0, 0, 1};
