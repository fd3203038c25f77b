#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "host/arena/arena_layout.h"
#include "host/base/fd.h"
#include "tests/host/host_fixture.h"

namespace qdt::host {
namespace {

class ArenaCopyTest : public HostTest {};

// Of any length, in any VPN: for each number one of its own.
template <typename Key>
Key MakeRoute(uint32_t number) {
  constexpr uint32_t kBits = sizeof(Key::address) * 8;
  Key route = {};
  route.length = static_cast<uint16_t>(16 + number % (kBits - 15));
  route.vpn = static_cast<uint16_t>(number % 3 * 1000);
  route.address[0] = static_cast<uint8_t>(number >> 8);
  route.address[1] = static_cast<uint8_t>(number);
  return route;
}

// Whatever is done to the tables after a moment is in the pages that have changed since: a copy of then, with
// these laid over it, is the arena of now, byte for byte.
TEST_F(ArenaCopyTest, PiecesAreTheArenaAtOneMoment) {
  Start();
  std::mt19937 random(11);
  std::vector<void *> many(2000);
  // Parts of several pages, chains that lead from page to page.
  const auto change = [&](uint32_t table, uint32_t number) {
    const uint32_t shared = number % 7;
    const RouteKey4 route4 = MakeRoute<RouteKey4>(number);
    const RouteKey6 route6 = MakeRoute<RouteKey6>(number);
    const void *key = table == kRoute4Table   ? &route4
                      : table == kRoute6Table ? static_cast<const void *>(&route6)
                      : table == kManyTable   ? &shared
                                              : &number;
    const Flow flow = {Record::Make(number, random()), Record::Make(number, random())};
    void *entry = nullptr;
    if (table == kManyTable) {
      // From anywhere in its chain.
      void *&any = many[random() % many.size()];
      if (any != nullptr) {
        EXPECT_EQ(writer_->RemoveEntry(table, any), 0);
        any = nullptr;
      } else {
        EXPECT_EQ(writer_->Insert(table, key, &flow, &any), 0);
      }
    } else if (TbmTblSearch(0, table, key, &entry) != 0) {
      writer_->Insert(table, key, &flow, nullptr);
    } else if (random() % 2 == 0) {
      EXPECT_EQ(writer_->Update(table, entry, &flow), 0);
    } else {
      EXPECT_EQ(writer_->Remove(table, key), 0);
    }
  };
  constexpr uint32_t kTables[] = {kUniqueTable, kManyTable,   kServerMapTable,
                                  kRoute4Table, kRoute6Table, kFlowPartitionTable};
  for (uint32_t number = 0; number < 3000; ++number) {
    for (const uint32_t table : kTables) change(table, number % 1500);
  }
  const auto text = [](const std::string &path) {
    std::string bytes(std::filesystem::file_size(path), 0);
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
  };
  for (int round = 0; round < 40; ++round) {
    const uint32_t moment = engine_->MarkMoment();
    const std::string early = Snapshot();
    for (uint32_t changes = random() % 12; changes > 0; --changes)
      change(kTables[random() % std::size(kTables)], random() % 1500);
    if (round % 3 == 0) Add(kTinyTable, static_cast<uint32_t>(round), 1);
    const std::string rest = dir_ + "/rest";
    const int fd = open(rest.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    engine_->CopyChanged(moment, fd);
    const int copy = open(early.c_str(), O_RDWR);
    CopyData(fd, copy, 0, engine_->header()->totalSize, "cannot copy");
    close(copy);
    close(fd);
    ASSERT_TRUE(text(early) == text(path_)) << "round " << round;
    std::filesystem::remove(early);
    if (round % 3 == 0) {
      const uint32_t key = static_cast<uint32_t>(round);
      ASSERT_EQ(writer_->Remove(kTinyTable, &key), 0);
    }
  }
}

}  // namespace
}  // namespace qdt::host
