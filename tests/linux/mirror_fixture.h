#ifndef TESTS_LINUX_MIRROR_FIXTURE_H_
#define TESTS_LINUX_MIRROR_FIXTURE_H_

#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/engine/filler.h"
#include "host/netlink/message.h"
#include "host/tbm/table_sweep.h"
#include "platform/tbm.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {

// A message as the kernel writes it.
class MessageBuilder {
 public:
  template <typename Head>
  MessageBuilder(uint16_t type, const Head &head, uint16_t flags = 0) : type_(type), flags_(flags) {
    Append(&head, sizeof head);
  }

  MessageBuilder &Add(uint16_t type, const void *bytes, size_t size) {
    const nlattr head{static_cast<uint16_t>(NLA_HDRLEN + size), type};
    Append(&head, sizeof head);
    Append(bytes, size);
    return *this;
  }
  template <typename T>
  MessageBuilder &Number(uint16_t type, T number) {
    return Add(type, &number, sizeof number);
  }
  MessageBuilder &Text(uint16_t type, const std::string &text) {
    return Add(type, text.c_str(), text.size() + 1);
  }
  MessageBuilder &Bytes(uint16_t type, std::initializer_list<uint8_t> bytes) {
    return Add(type, std::data(bytes), bytes.size());
  }
  MessageBuilder &Nest(uint16_t type, const std::function<void(MessageBuilder &)> &fill) {
    const size_t at = payload_.size();
    Add(type, nullptr, 0);
    fill(*this);
    const auto length = static_cast<uint16_t>(payload_.size() - at);
    std::memcpy(payload_.data() + at, &length, sizeof length);
    return *this;
  }
  MessageBuilder &Raw(const void *bytes, size_t size) {
    Append(bytes, size);
    return *this;
  }

  const std::vector<uint8_t> &payload() const { return payload_; }
  Message message() const { return Cut(payload_); }
  // With another payload.
  Message Cut(qdt::host::Bytes payload) const { return {type_, flags_, nullptr, payload}; }

 private:
  void Append(const void *bytes, size_t size) {
    const auto *from = static_cast<const uint8_t *>(bytes);
    payload_.insert(payload_.end(), from, from + size);
    payload_.resize(NLA_ALIGN(payload_.size()));
  }
  uint16_t type_, flags_;
  std::vector<uint8_t> payload_;
};

// A neighbour of interface 7 that the kernel has reached: 10.0.0.2, 02:00:00:00:00:02.
inline MessageBuilder ReachedNeighbour() {
  ndmsg head = {};
  head.ndm_family = AF_INET;
  head.ndm_ifindex = 7;
  head.ndm_state = NUD_REACHABLE;
  MessageBuilder message(RTM_NEWNEIGH, head);
  message.Bytes(NDA_DST, {10, 0, 0, 2}).Bytes(NDA_LLADDR, {2, 0, 0, 0, 0, 2});
  return message;
}

// An arena that is filled by what is tested.
class MirrorTest : public testing::Test {
 protected:
  MirrorTest() : MirrorTest(std::map<std::string, uint32_t>()) {}
  // With room for so many entries in some tables.
  explicit MirrorTest(const std::map<std::string, uint32_t> &capacities) {
    ArenaPlan plan = Layout::BuiltIn().Plan(directory_.File("socket"));
    for (const auto &[name, capacity] : capacities)
      plan.tables[Layout::BuiltIn().FindTable(name)->spec.id].capacity = capacity;
    plan.regions.push_back(StatisticsSpec(1));
    arena_ = Arena::Create(directory_.File("arena"), plan);
    Arena::SetCurrent(arena_.get());
    writer_ = std::make_unique<TableWriter>(arena_.get());
    statistics_ = std::make_unique<Statistics>(*arena_);
    target_ = std::make_unique<FillTarget>(
        FillTarget{Layout::BuiltIn(), *arena_, *writer_, *statistics_, natPolicy_});
  }
  ~MirrorTest() override { Arena::SetCurrent(nullptr); }

  const FillTarget &target() const { return *target_; }

  // The values of a field of all entries of a table, in the order in which they came.
  static std::vector<uint64_t> Values(const std::string &table, const std::string &field) {
    struct Collected {
      FieldRef field;
      std::vector<uint64_t> values;
    } collected{Layout::BuiltIn().FindTable(table)->At(field), {}};
    TbmTblTrav(
        0, Layout::BuiltIn().FindTable(table)->spec.id,
        [](void *entry, void *context) {
          auto &all = *static_cast<Collected *>(context);
          all.values.push_back(all.field.Get(entry));
          return int32_t{-9};
        },
        &collected);
    return collected.values;
  }

  TempDir directory_;
  std::unique_ptr<Arena> arena_;
  std::unique_ptr<TableWriter> writer_;
  std::unique_ptr<Statistics> statistics_;
  std::vector<NatPolicyRule> natPolicy_;
  std::unique_ptr<FillTarget> target_;
};

}  // namespace qdt::host

#endif  // TESTS_LINUX_MIRROR_FIXTURE_H_
