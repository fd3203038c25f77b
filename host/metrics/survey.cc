#include "host/metrics/survey.h"

#include <time.h>

#include <algorithm>

#include "host/arena/arena_layout.h"
#include "host/base/host_error.h"
#include "host/inspect/check.h"

namespace qdt::host {

namespace {

constexpr uint64_t kIcmp = 1;
constexpr uint64_t kTcp = 6;
constexpr uint64_t kUdp = 17;
constexpr uint64_t kIcmpv6 = 58;

// Processor time of the calling thread.
std::chrono::nanoseconds ThreadTime() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

size_t ProtocolPlace(uint64_t protocol) {
  if (protocol == kTcp) return 0;
  if (protocol == kUdp) return 1;
  return protocol == kIcmp || protocol == kIcmpv6 ? 2 : 3;
}

// Of a session that is being made the key may not be there yet.
std::optional<SessionCounts> CountSessions(const RecordSource &source) {
  const TableLayout *table = source.layout().FindTable("session");
  if (table == nullptr || source.View(*table) == nullptr) return {};
  const FieldRef valid = table->At("valid");
  const FieldRef isIpv6 = table->At("is_ipv6");
  const Field *keys[] = {table->fields.Find("positive"), table->fields.Find("positive6")};
  const FieldRef protocols[] = {table->At("positive.protocol"), table->At("positive6.protocol")};
  SessionCounts counts = {};
  EntryReader reader(source, *table);
  while (reader.Next()) {
    const uint8_t *record = reader.entry().record;
    if (valid.Get(record) == 0) continue;
    const size_t family = isIpv6.Get(record) != 0 ? 1 : 0;
    const uint64_t protocol = reader.Has(*keys[family]) ? protocols[family].Get(record) : 0;
    ++counts[family][ProtocolPlace(protocol)];
  }
  return counts;
}

}  // namespace

Survey TakeSurvey(const RecordSource &source) {
  const auto began = std::chrono::steady_clock::now();
  Survey survey;
  survey.identity = source.arena().header()->identity;
  CheckArena(source, [&](const Finding &finding) {
    ++(finding.severity == Severity::kError ? survey.errors : survey.warnings);
    if (finding.stale && finding.table != nullptr) ++survey.stale[finding.table->shortName];
  });
  survey.sessions = CountSessions(source);
  survey.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  survey.finished = std::chrono::duration<double>(now).count();
  return survey;
}

Surveyor::Surveyor(const std::vector<MetricsTarget> &targets, const Layout &layout, Pace pace,
                   ReadGuard guard)
    : targets_(targets),
      layout_(layout),
      pace_(pace),
      guard_(std::move(guard)),
      places_(targets.size()),
      thread_([this] { Run(); }) {}

Surveyor::~Surveyor() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wakes_.notify_all();
  thread_.join();
}

std::optional<Survey> Surveyor::Last(size_t target, uint64_t identity) {
  const std::lock_guard lock(mutex_);
  Place &place = places_[target];
  const bool isOther = place.last && place.last->identity != identity;
  if (isOther) place = {};
  if (!place.wanted) wakes_.notify_all();
  place.wanted = true;
  return place.last;
}

Surveyor::Place *Surveyor::NextWanted() {
  Place *next = nullptr;
  for (Place &place : places_) {
    if (place.wanted && (next == nullptr || place.due < next->due)) next = &place;
  }
  return next;
}

std::optional<Survey> Surveyor::Look(const MetricsTarget &target) const {
  std::optional<Survey> survey;
  try {
    const auto look = [&] { survey = TakeSurvey(*target.Open(layout_)); };
    if (!ReadGuarded(guard_, look)) return {};
  } catch (const std::exception &) {
    // The scrape says that the engine is gone; of one that changes too fast the last findings stand, with
    // their time.
  }
  return survey;
}

void Surveyor::Run() {
  Clock::time_point rested = Clock::now();
  std::unique_lock lock(mutex_);
  while (!ending_) {
    Place *place = NextWanted();
    if (place == nullptr) {
      wakes_.wait(lock);
      continue;
    }
    const Clock::time_point began = Clock::now();
    const Clock::time_point due = std::max(place->due, rested);
    if (began < due) {
      wakes_.wait_until(lock, due);
      continue;
    }
    place->wanted = false;
    place->due = began + pace_.period;
    const std::chrono::nanoseconds used = ThreadTime();
    lock.unlock();
    std::optional<Survey> survey = Look(targets_[static_cast<size_t>(place - places_.data())]);
    lock.lock();
    if (survey) place->last = std::move(survey);
    rested = began + pace_.share * (ThreadTime() - used);
  }
}

}  // namespace qdt::host
