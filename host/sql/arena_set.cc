#include "host/sql/arena_set.h"

#include <sys/mman.h>

#include <algorithm>

#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/wire/snapshot_copy.h"

namespace qdt::host {
namespace {

// Each view keeps a file open.
constexpr size_t kKept = 512;

// Where a file without a name is opened.
constexpr char kDescriptors[] = "/proc/self/fd/";

}  // namespace

void ArenaSet::Add(Member member) {
  ++generation_;
  const auto [at, isNew] = numbers_.emplace(member.name, members_.size());
  if (isNew) members_.emplace_back();
  views_.resize(members_.size());
  views_[at->second] = nullptr;
  members_[at->second] = std::move(member);
}

std::optional<size_t> ArenaSet::Find(std::string_view name) const {
  const auto at = numbers_.find(std::string(name));
  if (at == numbers_.end()) return std::nullopt;
  return at->second;
}

bool ArenaSet::IsLive() const { return std::ranges::any_of(members_, &Member::live); }

std::shared_ptr<const RecordSource> ArenaSet::View(size_t i) const {
  if (members_.empty())
    throw HostError("no arena is attached (SELECT nqe_attach('PATH'), or nqe_attach('PATH', 'frozen'))");
  if (views_[i] != nullptr) {
    CheckAlive(*views_[i]);
    return views_[i];
  }
  std::shared_ptr<const RecordSource> view = members_[i].open();
  if (i < kKept) views_[i] = view;
  return view;
}

ArenaSet::Member SnapshotAt(const std::string &file) {
  return {file, [file] { return RecordSource::OfSnapshot(file, Layout::BuiltIn()); }};
}

ArenaSet::Member EngineAt(const std::string &arena, bool frozen) {
  const Layout &layout = Layout::BuiltIn();
  if (!frozen) return {arena, [arena, &layout] { return RecordSource::OfEngine(arena, layout); }, true};
  // A file without a name, which goes with its last descriptor.
  const auto copy = std::make_shared<UniqueFd>(memfd_create("frozen arena", MFD_CLOEXEC));
  if (!copy->ok()) throw SystemError("cannot make room for a frozen arena");
  CopySnapshot(*Arena::Look(arena, Arena::Access::kLive), copy->get(), "cannot copy the arena",
               [] { return false; });
  const std::string path = kDescriptors + std::to_string(copy->get());
  return {arena, [copy, path, &layout] { return RecordSource::OfSnapshot(path, layout); }};
}

ArenaSet::Member MemberAt(const std::string &path, bool frozen) {
  ArenaSet::Member member = Arena::IsHeld(path) ? EngineAt(path, frozen) : SnapshotAt(path);
  member.open();  // what is wrong with it is said now
  return member;
}

bool IsFrozenCopy(const RecordSource &source) { return source.arena().path().starts_with(kDescriptors); }

void CheckAlive(const RecordSource &source) {
  if (source.IsLive() && !source.arena().EngineAlive())
    throw HostError("the engine is gone: the arena at " + source.arena().path() + " has no engine any more");
}

}  // namespace qdt::host
