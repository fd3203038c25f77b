#ifndef HOST_NETLINK_KERNEL_SET_H_
#define HOST_NETLINK_KERNEL_SET_H_

#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "host/netlink/message.h"

namespace qdt::host {

// Hash of an id that is a structure without gaps between its members.
template <typename Id>
struct HashOfBytes {
  static_assert(std::has_unique_object_representations_v<Id>);
  size_t operator()(const Id &id) const {
    return std::hash<std::string_view>()({reinterpret_cast<const char *>(&id), sizeof id});
  }
};

template <typename Id>
struct SameBytes {
  bool operator()(const Id &a, const Id &b) const { return std::memcmp(&a, &b, sizeof a) == 0; }
};

// When something was last told, in dumps. A dump takes its time, and notifications come on another socket
// meanwhile, so that it may show what has changed since: whatever a notification has told since the dump
// began stands, and the dump's word on it is passed over. When it is complete, what nobody has told of since
// it began is no more.
class Telling {
 public:
  uint32_t now() const { return now_; }
  bool running() const { return running_; }
  void Begin() {
    ++now_;
    running_ = true;
  }
  void End() { running_ = false; }

 private:
  uint32_t now_ = 1;
  bool running_ = false;
};

// What the kernel has of one kind, by what it is known by there.
template <typename Id, typename Object>
class KernelSet {
 public:
  // A dump begins.
  void Begin() {
    telling_.Begin();
    dropped_.clear();
  }

  // The object to be written anew, an empty one when there was none; null when a dump tells what is known
  // better.
  Object *Take(const Id &id, Told told) {
    const bool byDump = told == Told::kByDump;
    if (byDump && dropped_.contains(id)) return nullptr;
    auto [at, isNew] = members_.try_emplace(id);
    Member &member = at->second;
    if (byDump && !isNew && telling_.running() && member.told == telling_.now()) return nullptr;
    if (!byDump && telling_.running()) dropped_.erase(id);
    member.told = telling_.now();
    return &member.object;
  }

  // A notification says that it is gone. `leave` is called with what there was before it goes.
  template <typename Leave>
  void Drop(const Id &id, Leave leave) {
    if (telling_.running()) dropped_.insert(id);
    const auto at = members_.find(id);
    if (at == members_.end()) return;
    leave(at->first, at->second.object);
    members_.erase(at);
  }

  // The dump has ended. What it did not show leaves when it was complete.
  template <typename Leave>
  void End(bool complete, Leave leave) {
    telling_.End();
    dropped_.clear();
    for (auto at = members_.begin(); complete && at != members_.end();) {
      if (at->second.told == telling_.now()) {
        ++at;
        continue;
      }
      leave(at->first, at->second.object);
      at = members_.erase(at);
    }
  }

  Object *Find(const Id &id) {
    const auto at = members_.find(id);
    return at == members_.end() ? nullptr : &at->second.object;
  }
  const Object *Find(const Id &id) const { return const_cast<KernelSet *>(this)->Find(id); }

  template <typename Visit>
  void ForEach(Visit visit) {
    for (auto &[id, member] : members_) visit(id, member.object);
  }
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const auto &[id, member] : members_) visit(id, member.object);
  }
  size_t size() const { return members_.size(); }

 private:
  struct Member {
    Object object{};
    uint32_t told = 0;
  };
  Telling telling_;
  std::unordered_map<Id, Member, HashOfBytes<Id>, SameBytes<Id>> members_;
  std::unordered_set<Id, HashOfBytes<Id>, SameBytes<Id>> dropped_;  // since the dump began
};

}  // namespace qdt::host

#endif  // HOST_NETLINK_KERNEL_SET_H_
