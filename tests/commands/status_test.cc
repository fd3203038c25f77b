#include <gtest/gtest.h>

#include "host/commands/commands.h"
#include "host/engine/engine.h"
#include "tests/engine/made_up_filler.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

TEST(Status, TellsWhatTheEngineIsFilledFrom) {
  const TempDir directory;
  MadeUpFiller filler;
  Engine engine({directory.File("arena"), directory.File("socket")}, Layout::BuiltIn(), &filler);
  const EngineReply reply = RunCommandLine(engine, "status");
  EXPECT_EQ(reply.status, 0);
  EXPECT_TRUE(
      reply.text.ends_with("\nnumbers   one by one"
                           "\ntables    1 in use"
                           "\nentries   1"
                           "\ntable 11  1 of 4096  CAP_TABLE_CTRLIF_MAP\n"))
      << reply.text;
}

}  // namespace
}  // namespace qdt::host
