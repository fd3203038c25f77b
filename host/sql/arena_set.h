#ifndef HOST_SQL_ARENA_SET_H_
#define HOST_SQL_ARENA_SET_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/record/record_source.h"

namespace qdt::host {

// The arenas that statements ask: one engine's, or any number of saved ones, which are read side by side.
class ArenaSet {
 public:
  // Of one arena of the set: how it is opened, and its name in the column "arena".
  struct Member {
    std::string name;
    std::function<std::unique_ptr<RecordSource>()> open;
    bool live = false;  // changes while it is read
  };

  explicit ArenaSet(bool many = false) : many_(many) {}

  // A member of the same name gives way, for statements that begin from now on.
  void Add(Member member);
  // Whether the tables show their column "arena".
  bool IsMany() const { return many_; }
  bool empty() const { return members_.empty(); }
  size_t size() const { return members_.size(); }
  const std::string &Name(size_t i) const { return members_[i].name; }
  // The number of the member of this name.
  std::optional<size_t> Find(std::string_view name) const;
  // Whether one of them changes while it is read.
  bool IsLive() const;
  // Another number after each Add.
  uint64_t generation() const { return generation_; }

  // What opens new views of a member, each for one thread and by any thread. It throws HostError.
  std::function<std::unique_ptr<RecordSource>()> Opener(size_t i) const { return members_[i].open; }

  // The view of a member that is kept for all statements of the connection's thread. Throws HostError, also
  // for an engine that has ended, and when there is no member.
  std::shared_ptr<const RecordSource> View(size_t i) const;

 private:
  bool many_;
  std::vector<Member> members_;
  std::unordered_map<std::string, size_t> numbers_;  // by name
  uint64_t generation_ = 0;
  mutable std::vector<std::shared_ptr<const RecordSource>> views_;
};

// A saved arena; a running engine's, `frozen` as it is now.
ArenaSet::Member SnapshotAt(const std::string &file);
ArenaSet::Member EngineAt(const std::string &arena, bool frozen);
// Either of them, as the path is. Throws HostError when there is no arena.
ArenaSet::Member MemberAt(const std::string &path, bool frozen);

// Whether the file of a source is such a copy, which has no name that would mean anything to others.
bool IsFrozenCopy(const RecordSource &source);

// Throws HostError when the engine behind a live source has ended.
void CheckAlive(const RecordSource &source);

}  // namespace qdt::host

#endif  // HOST_SQL_ARENA_SET_H_
