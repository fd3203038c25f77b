#include "host/agent/alarms.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/base/time_text.h"
#include "host/netconf/xml_text.h"

namespace qdt::host {
namespace {

constexpr char kModule[] = "ietf-alarms";
constexpr char kSpace[] = "urn:ietf:params:xml:ns:yang:ietf-alarms";
constexpr char kTypesModule[] = "tavrix-alarms";
constexpr char kTypesSpace[] = "urn:tavrix:params:xml:ns:yang:tavrix-alarms";
constexpr char kEngineModule[] = "tavrix-engine-state";
constexpr char kEngineSpace[] = "urn:tavrix:params:xml:ns:yang:tavrix-engine-state";
// What the module's max-alarm-status-changes says unless it is configured.
constexpr size_t kMostChanges = 32;

constexpr const char *kSeverities[] = {"indeterminate", "warning", "minor", "major", "critical"};

struct TypeRow {
  const char *name;
  std::vector<AlarmSeverity> severities;
  const char *about;
};

const TypeRow &RowOf(AlarmType type) {
  using enum AlarmSeverity;
  static const TypeRow kRows[] = {
      {"table-usage",
       {kMajor, kCritical},
       "A table holds more than the threshold allows, or as much as there is room for: what comes next is "
       "refused. Look at what fills it, and at the aging times of its entries."},
      {"memory-usage",
       {kMajor, kCritical},
       "The engine's shared memory is nearly used up, or all of it is in use."},
      {"packet-buffers",
       {kMajor},
       "Packets were dropped for which there was no buffer. More arrives than is forwarded, or buffers are "
       "held for too long."},
      {"engine-gone",
       {kCritical},
       "No engine can be read: it has ended, has not started, or is of another version."},
      {"sessions-used-up",
       {kMajor},
       "Somebody was refused since no more management sessions are served. End some, or raise the limit."},
      {"record-lost",
       {kMajor},
       "The record of who did what loses lines. Look at the log daemon, or at the file's disk."},
  };
  return kRows[static_cast<size_t>(type)];
}
constexpr AlarmType kLastType = AlarmType::kRecordLost;

std::string TimeLeaf(const char *name, AlarmList::Time time) {
  const auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch());
  return XmlLeaf(name, UtcText(static_cast<uint64_t>(since.count())));
}

std::string TypeLeaves(AlarmType type) {
  return Joined({"<alarm-type-id xmlns:", kTypesModule, "=\"", kTypesSpace, "\">", kTypesModule, ":",
                 RowOf(type).name, "</alarm-type-id><alarm-type-qualifier/>"});
}

const char *NameOf(AlarmSeverity severity) { return kSeverities[static_cast<size_t>(severity)]; }

std::string InventoryText() {
  std::string xml;
  for (uint8_t i = 0; i <= static_cast<uint8_t>(kLastType); ++i) {
    const auto type = static_cast<AlarmType>(i);
    xml += "<alarm-type>" + TypeLeaves(type) + "<will-clear>true</will-clear>";
    for (const AlarmSeverity severity : RowOf(type).severities)
      xml += XmlLeaf("severity-level", NameOf(severity));
    xml += XmlLeaf("description", RowOf(type).about) + "</alarm-type>";
  }
  return xml;
}

}  // namespace

AlarmResource AlarmResource::Engine() {
  return {Joined({"/", kEngineModule, ":engine"}), kEngineModule, kEngineSpace};
}

AlarmResource AlarmResource::Table(const std::string &name) {
  return {Joined({"/", kEngineModule, ":engine/", kEngineModule, ":tables/", kEngineModule, ":table[",
                  kEngineModule, ":name='", name, "']"}),
          kEngineModule, kEngineSpace};
}

AlarmResource AlarmResource::Sessions() {
  constexpr char kMonitoring[] = "ietf-netconf-monitoring";
  return {Joined({"/", kMonitoring, ":netconf-state/", kMonitoring, ":sessions"}), kMonitoring,
          "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"};
}

AlarmResource AlarmResource::Record() { return {"record", {}, {}}; }

const AlarmList::Alarm *AlarmList::Find(AlarmType type, const AlarmResource &resource) const {
  const auto isIt = [&](const Alarm &each) {
    return each.type == type && each.resource.path == resource.path;
  };
  const auto found = std::ranges::find_if(alarms_, isIt);
  return found != alarms_.end() ? &*found : nullptr;
}

std::optional<AlarmSeverity> AlarmList::Standing(AlarmType type, const AlarmResource &resource) const {
  const Alarm *alarm = Find(type, resource);
  if (alarm == nullptr || alarm->changes.front().cleared) return {};
  return alarm->changes.front().severity;
}

// Times are keys of an alarm's changes, and clients see milliseconds of them. The alarm is as it was where
// memory is short.
void AlarmList::Note(Alarm *alarm, Change change) {
  std::deque<Change> &changes = alarm->changes;
  const bool first = changes.empty();
  const bool raises = !change.cleared && (first || changes.front().cleared);
  change.time = std::chrono::floor<std::chrono::milliseconds>(change.time);
  if (!first) change.time = std::max<Time>(change.time, changes.front().time + std::chrono::milliseconds(1));
  changes.push_front(std::move(change));
  if (changes.size() > kMostChanges) changes.pop_back();
  if (first) alarm->created = changes.front().time;
  if (raises) alarm->raised = changes.front().time;
  changed_ = std::max(changed_, changes.front().time);
}

void AlarmList::Tell(const Alarm &alarm) const {
  const Change &last = alarm.changes.front();
  publish_({last.time, kModule, "alarm-notification",
            Joined({"<alarm-notification xmlns=\"", kSpace, "\">", NameText(alarm), ChangeText(last),
                    "</alarm-notification>"})});
}

void AlarmList::Raise(AlarmType type, const AlarmResource &resource, AlarmSeverity severity,
                      const std::string &text, Time now) {
  if (Standing(type, resource) == severity) return;
  auto *alarm = const_cast<Alarm *>(Find(type, resource));
  if (alarm == nullptr) {
    Alarm fresh{type, resource, {}, {}, {}};
    Note(&fresh, {now, false, severity, text});
    alarm = &alarms_.emplace_back(std::move(fresh));
  } else {
    Note(alarm, {now, false, severity, text});
  }
  Tell(*alarm);
}

void AlarmList::Clear(AlarmType type, const AlarmResource &resource, const std::string &text, Time now) {
  const auto severity = Standing(type, resource);
  if (!severity) return;
  auto *alarm = const_cast<Alarm *>(Find(type, resource));
  Note(alarm, {now, true, *severity, text});
  Tell(*alarm);
}

void AlarmList::ClearAll(AlarmType type, const std::string &text, Time now) {
  for (Alarm &alarm : alarms_) {
    if (alarm.type == type) Clear(type, alarm.resource, text, now);
  }
}

std::string AlarmList::NameText(const Alarm &alarm) {
  const AlarmResource &resource = alarm.resource;
  std::string xml = "<resource";
  if (!resource.module.empty()) xml += " xmlns:" + resource.module + "=\"" + resource.space + '"';
  return xml + '>' + XmlEscaped(resource.path) + "</resource>" + TypeLeaves(alarm.type);
}

std::string AlarmList::ChangeText(const Change &change) {
  return TimeLeaf("time", change.time) +
         XmlLeaf("perceived-severity", change.cleared ? "cleared" : NameOf(change.severity)) +
         XmlLeaf("alarm-text", change.text);
}

std::string AlarmList::AlarmText(const Alarm &alarm) {
  const Change &last = alarm.changes.front();
  std::string xml = "<alarm>" + NameText(alarm) + TimeLeaf("time-created", alarm.created) +
                    XmlLeaf("is-cleared", last.cleared ? "true" : "false") +
                    TimeLeaf("last-raised", alarm.raised) + TimeLeaf("last-changed", last.time) +
                    XmlLeaf("perceived-severity", NameOf(last.severity)) + XmlLeaf("alarm-text", last.text);
  for (const Change &change : alarm.changes)
    xml += "<status-change>" + ChangeText(change) + "</status-change>";
  return xml + "</alarm>";
}

std::string AlarmList::SummaryText() const {
  std::string xml;
  for (size_t i = 0; i < std::size(kSeverities); ++i) {
    size_t total = 0, cleared = 0;
    for (const Alarm &alarm : alarms_) {
      if (static_cast<size_t>(alarm.changes.front().severity) != i) continue;
      ++total;
      cleared += alarm.changes.front().cleared;
    }
    xml += "<alarm-summary>" + XmlLeaf("severity", kSeverities[i]) + XmlLeaf("total", total) +
           XmlLeaf("not-cleared", total - cleared) + XmlLeaf("cleared", cleared) + "</alarm-summary>";
  }
  return xml;
}

// Alarms keep their places, so that a walk stands at one.
std::string AlarmList::WalkAlarms(std::string_view from, StateSink *sink) const {
  constexpr char kPath[] = "alarms/alarm-list";
  size_t place = 0;
  std::from_chars(from.data(), from.data() + from.size(), place);
  if (from.empty()) {
    std::string body = XmlLeaf("number-of-alarms", alarms_.size());
    if (!alarms_.empty()) body += TimeLeaf("last-changed", changed_);
    sink->Take({kSpace, kPath, std::move(body)});
  }
  for (; place < alarms_.size(); ++place) {
    if (sink->full()) return std::to_string(place);
    sink->Take({kSpace, kPath, AlarmText(alarms_[place])});
  }
  return "";
}

std::vector<StateSource> AlarmList::Sources() const {
  return {{kModule, "alarms",
           [](std::string_view, StateSink *sink) {
             sink->Take({kSpace, "alarms/alarm-inventory", InventoryText()});
             return std::string();
           },
           "alarm-inventory"},
          {kModule, "alarms",
           [this](std::string_view, StateSink *sink) {
             sink->Take({kSpace, "alarms/summary", SummaryText()});
             return std::string();
           },
           "summary"},
          {kModule, "alarms",
           [this](std::string_view from, StateSink *sink) { return WalkAlarms(from, sink); }, "alarm-list"}};
}

}  // namespace qdt::host
