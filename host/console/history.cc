#include "host/console/history.h"

#include <time.h>

#include <algorithm>
#include <unordered_map>

#include "host/arena/arena_layout.h"
#include "host/base/c_callback.h"
#include "host/base/host_error.h"
#include "host/base/time_text.h"
#include "host/query/statistics.h"
#include "host/web/lost_pages.h"

namespace qdt::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kInterfaceCounters[] = {"in_bytes", "in_packets", "out_bytes", "out_packets"};

uint64_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

// What has fallen was cleared: nobody knows how far it came before.
double Rate(uint64_t now, uint64_t before, double seconds) {
  return now > before ? static_cast<double>(now - before) / seconds : 0;
}

}  // namespace

// What an engine had counted when it was read last.
class History::Counters {
 public:
  // Reads all; false the first time of an engine, when there is nothing to compare with.
  bool Read(const RecordSource &source, Sample *sample) {
    const Clock::time_point now = Clock::now();
    const uint64_t identity = source.arena().header()->identity;
    const bool first = identity != identity_;
    sample->time = Now();
    sample->seconds = std::chrono::duration<double>(now - read_).count();
    identity_ = identity;
    read_ = now;
    if (first) {
      discards_.clear();
      interfaces_.clear();
    }
    ReadDiscards(source, sample);
    ReadInterfaces(source, sample);
    return !first;
  }

 private:
  struct Traffic {
    uint64_t counted[4] = {};
  };

  void ReadDiscards(const RecordSource &source, Sample *sample) {
    for (const Counter &counter : ReadCounters(source, "").counters) {
      if (counter.kind != "discard" || counter.name.empty()) continue;
      uint64_t &before = discards_.try_emplace(counter.number, counter.sum).first->second;
      if (counter.sum != 0)
        sample->discards.push_back({counter.name, counter.sum, Rate(counter.sum, before, sample->seconds)});
      before = counter.sum;
    }
    std::ranges::stable_sort(sample->discards, [](const Sample::Counted &a, const Sample::Counted &b) {
      return a.perSecond != b.perSecond ? a.perSecond > b.perSecond : a.total > b.total;
    });
    sample->discards.resize(std::min(sample->discards.size(), kMost));
  }

  void ReadInterfaces(const RecordSource &source, Sample *sample) {
    const TableLayout *table = source.layout().FindTable("fwdif");
    if (table == nullptr || source.View(*table) == nullptr) return;
    const std::vector<Leaf> leaves = CounterLeaves(*table);
    const Field *index = table->key.Find("if_index");
    EntryReader reader(source, *table);
    std::unordered_map<uint64_t, Traffic> now;
    while (reader.Next()) {
      Traffic traffic;
      for (const Leaf &leaf : leaves) traffic.counted[NumberOf(leaf)] += leaf.ref.Get(reader.entry().record);
      const uint64_t key = index->ref.Get(reader.entry().key);
      const auto before = interfaces_.find(key);
      if (before != interfaces_.end()) Compare(key, traffic, before->second, sample);
      now[key] = traffic;
    }
    interfaces_ = std::move(now);
    std::ranges::stable_sort(sample->interfaces, [](const Sample::Interface &a, const Sample::Interface &b) {
      return a.perSecond[0] + a.perSecond[2] > b.perSecond[0] + b.perSecond[2];
    });
    sample->interfaces.resize(std::min(sample->interfaces.size(), kMost));
  }

  static size_t NumberOf(const Leaf &leaf) {
    return static_cast<size_t>(std::ranges::find(kInterfaceCounters, leaf.field->name) - kInterfaceCounters);
  }

  static std::vector<Leaf> CounterLeaves(const TableLayout &table) {
    return LeavesOf(table, [](const Field &field) {
      return std::ranges::find(kInterfaceCounters, field.name) != std::end(kInterfaceCounters);
    });
  }

  static void Compare(uint64_t index, const Traffic &now, const Traffic &before, Sample *sample) {
    Sample::Interface interface { index };
    bool any = false;
    for (size_t i = 0; i < std::size(now.counted); ++i) {
      interface.perSecond[i] = Rate(now.counted[i], before.counted[i], sample->seconds);
      any = any || interface.perSecond[i] > 0;
    }
    if (any) sample->interfaces.push_back(interface);
  }

  uint64_t identity_ = 0;  // of the engine
  Clock::time_point read_;
  std::unordered_map<uint32_t, uint64_t> discards_;
  std::unordered_map<uint64_t, Traffic> interfaces_;
};

void WriteSample(JsonWriter *json, const Sample &sample) {
  json->SetMaxDecimalPlaces(3);
  json->StartObject();
  JsonKey(json, "number");
  json->Uint64(sample.number);
  JsonKey(json, "time");
  JsonText(json, UtcText(sample.time));
  JsonKey(json, "seconds");
  json->Double(sample.seconds);
  JsonKey(json, "discards");
  json->StartArray();
  for (const Sample::Counted &counted : sample.discards) {
    json->StartObject();
    JsonKey(json, "name");
    JsonEscaped(json, counted.name);
    JsonKey(json, "total");
    json->Uint64(counted.total);
    JsonKey(json, "per_second");
    json->Double(counted.perSecond);
    json->EndObject();
  }
  json->EndArray();
  JsonKey(json, "interfaces");
  json->StartArray();
  for (const Sample::Interface &interface : sample.interfaces) {
    json->StartObject();
    JsonKey(json, "if_index");
    json->Uint64(interface.index);
    for (size_t i = 0; i < std::size(kInterfaceCounters); ++i) {
      JsonKey(json, kInterfaceCounters[i]);
      json->Double(interface.perSecond[i]);
    }
    json->EndObject();
  }
  json->EndArray();
  json->EndObject();
}

History::History() : thread_([this] { Run(); }) {}

History::~History() {
  Stop();
  thread_.join();
}

void History::Stop() {
  const std::lock_guard lock(mutex_);
  stopping_ = true;
  changed_.notify_all();
}

void History::Keep(WebEngine *engine) {
  if (!Want(engine))
    throw HostError("curves are kept of " + std::to_string(kEngines) + " engines at most; name fewer");
  const std::lock_guard lock(mutex_);
  looked_[engine].until = Clock::time_point::max();
}

bool History::Want(WebEngine *engine) {
  const std::lock_guard lock(mutex_);
  const Clock::time_point now = Clock::now();
  std::erase_if(looked_, [now](const auto &each) { return each.second.until < now; });
  if (looked_.size() >= kEngines && !looked_.contains(engine)) return false;
  Looked &looked = looked_[engine];
  looked.until = std::max(looked.until, now + kInterest);
  if (looked.counters != nullptr) return true;
  looked.counters = std::make_shared<Counters>();
  changed_.notify_all();
  return true;
}

std::vector<Sample> History::Read(WebEngine *engine, uint64_t after, std::chrono::seconds seconds) {
  const std::lock_guard lock(mutex_);
  const auto found = looked_.find(engine);
  std::vector<Sample> samples;
  if (found == looked_.end()) return samples;
  const uint64_t oldest = Now() - static_cast<uint64_t>(seconds.count()) * 1000000000;
  for (const Sample &sample : found->second.samples) {
    if (sample.number > after && sample.time >= oldest) samples.push_back(sample);
  }
  return samples;
}

bool History::Wait(WebEngine *engine, uint64_t after, std::chrono::milliseconds moment) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, moment, [&] {
    const auto found = looked_.find(engine);
    return stopping_ || (found != looked_.end() && found->second.number > after);
  });
  return !stopping_;
}

// One engine after the other; what is slow or damaged costs those behind it a little of their time. Returns
// how many.
size_t History::Look(Clock::time_point now, std::unique_lock<std::mutex> *lock) {
  std::vector<WebEngine *> wanted;
  for (const auto &[engine, looked] : looked_) {
    if (looked.until >= now) wanted.push_back(engine);
  }
  for (WebEngine *engine : wanted) {
    const auto at = looked_.find(engine);
    if (at == looked_.end()) continue;
    // Kept here: the engine may be dropped while it is read.
    const std::shared_ptr<Counters> counters = at->second.counters;
    Sample sample;
    bool whole = false;
    lock->unlock();
    try {
      Survive([&] {
        const WebEngine::Loan source = engine->Borrow();
        whole = counters->Read(*source, &sample);
      });
    } catch (const std::exception &) {  // it is told by its state; there is no sample
    }
    lock->lock();
    const auto found = looked_.find(engine);
    if (!whole || found == looked_.end()) continue;
    sample.number = ++found->second.number;
    found->second.samples.push_back(std::move(sample));
    if (found->second.samples.size() > kSamples) found->second.samples.pop_front();
  }
  return wanted.size();
}

void History::Run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    const Clock::time_point begin = Clock::now();
    // Where memory is short there is no sample.
    const size_t looked = UnlessShort<size_t>(1, [&] { return Look(begin, &lock); });
    changed_.notify_all();
    // A new engine is begun with at once.
    const size_t count = looked_.size();
    changed_.wait_until(lock, begin + kPeriod,
                        [&] { return stopping_ || (looked == 0 && looked_.size() != count); });
  }
}

}  // namespace qdt::host
