#include "host/query/own_records.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "host/tbm/acl_rules.h"
#include "platform/engine.h"
#include "platform/tbm.h"
#include "qdt/tables.h"

namespace qdt::host {
namespace {

constexpr uint32_t kRateLimitView = 45;
constexpr uint32_t kTableMemoryView = 47;
constexpr uint32_t kRuleCapacityView = 59;
constexpr uint32_t kPolicyView = 67;

std::string_view Trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return text.substr(0, text.find_last_not_of(" \r") + 1);
}

std::string_view TakeLine(std::string_view *text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(line.size() + 1, text->size()));
  return line;
}

// Whether there are descriptors of just the tables that the views know.
bool HasDescriptors() {
  return g_tbmGlobalInfo != nullptr && g_tbmGlobalInfo->tables != nullptr &&
         g_tbmGlobalInfo->tableCount == kTableCount;
}

}  // namespace

const OwnRecords::Maker OwnRecords::kMakers[] = {
    {kRateLimitView, nullptr, &OwnRecords::RateLimits},
    {kTableMemoryView, &OwnRecords::TableMemory, nullptr},
    {kRuleCapacityView, &OwnRecords::RuleCapacity, nullptr},
    {kPolicyView, nullptr, &OwnRecords::PolicyRule},
};

OwnRecords::OwnRecords(const Layout &layout, const ViewLayout &view,
                       std::function<void(const uint8_t *record)> show)
    : layout_(layout),
      view_(view),
      size_(view.region.empty() ? view.recordSize : layout.FindRegion(view.region)->spec.size),
      show_(std::move(show)),
      record_(size_) {
  for (const Maker &maker : kMakers) {
    if (maker.view == view.id) maker_ = &maker;
  }
}

int32_t OwnRecords::ShowAlone() { return (this->*maker_->alone)(); }

int32_t OwnRecords::Show(std::span<const uint8_t> batch) {
  if (maker_ != nullptr) return (this->*maker_->batch)(batch);
  if (batch.size() % size_ != 0) return QDT_TBL_DATA_SIZE;
  for (; !batch.empty(); batch = batch.subspan(size_)) show_(batch.data());
  return 0;
}

void OwnRecords::Set(std::string_view path, uint64_t value) { view_.At(path).Set(record_.data(), value); }

void OwnRecords::SetText(const FieldRef &field, std::string_view text) {
  cut_ = cut_ || text.size() > field.size;
  field.SetText(record_.data(), text.substr(0, field.size));
}

void OwnRecords::ShowOne() {
  show_(record_.data());
  std::ranges::fill(record_, 0);
}

int32_t OwnRecords::TableMemory() {
  if (!HasDescriptors()) return QDT_TBL_UNSUPPORTED;
  for (uint32_t id = 0; id < kTableCount; ++id) {
    const TbmTableDesc &table = g_tbmGlobalInfo->tables[id];
    uint32_t bytes = 0;
    TbmTblMemStat(0, id, &bytes);
    Set("id", id);
    Set("enabled", table.enable);
    Set("capacity", table.spec);
    Set("entries", table.entryNum);
    Set("bytes", bytes);
    SetText(view_.At("name"), table.name == nullptr ? "" : table.name);
    ShowOne();
  }
  return 0;
}

int32_t OwnRecords::RuleCapacity() {
  uint32_t groups = 0, rules = 0;
  if (!HasDescriptors() || TbmTblAclEntryNum(0, kAclGroupTable, &groups, &rules) != 0)
    return QDT_TBL_UNSUPPORTED;
  const TbmTableDesc &table = g_tbmGlobalInfo->tables[kAclGroupTable];
  Set("group_capacity", table.spec);
  Set("groups", groups);
  Set("rule_capacity", table.groupRuleSpec);
  Set("rules", rules);
  ShowOne();
  return 0;
}

// The limit in packets a second stands in the rate limit that the protocol's record names.
int32_t OwnRecords::RateLimits(std::span<const uint8_t> batch) {
  const TableLayout &protocols = *layout_.FindTable("cpcar_pro");
  const TableLayout &cars = *layout_.FindTable("car");
  if (batch.size() % protocols.spec.recordSize != 0) return QDT_TBL_DATA_SIZE;
  for (; !batch.empty(); batch = batch.subspan(protocols.spec.recordSize)) {
    const auto value = [&](std::string_view name) { return protocols.At(name).Get(batch.data()); };
    const auto car = static_cast<uint32_t>(value("car_id"));
    void *entry = nullptr;
    if (const int32_t code = TbmTblSearch(0, cars.spec.id, &car, &entry); code != 0) return code;
    const char *name = QdtGetNameByProId(static_cast<uint32_t>(value("protocol")));
    Set("protocol", value("protocol"));
    Set("wireless", value("wireless"));
    Set("car_id", car);
    Set("pps", cars.At("cbs").Get(entry) >> 32);
    SetText(view_.At("name"), name == nullptr ? "" : name);
    ShowOne();
  }
  return 0;
}

// The rule comes as a text of lines "NAME : VALUE".
int32_t OwnRecords::PolicyRule(std::span<const uint8_t> batch) {
  std::string_view text(reinterpret_cast<const char *>(batch.data()), batch.size());
  text = text.substr(0, text.find('\0'));
  const Field &properties = *view_.fields.Find("properties");
  uint32_t shown = 0;
  while (!text.empty()) {
    const std::string_view line = TakeLine(&text);
    if (Trimmed(line).empty()) continue;
    if (shown == properties.count) {
      cut_ = true;
      break;
    }
    const size_t colon = line.find(':');
    const std::string path = "properties[" + std::to_string(shown++) + "].";
    if (colon != line.npos) SetText(view_.At(path + "name"), Trimmed(line.substr(0, colon)));
    SetText(view_.At(path + "value"), Trimmed(line.substr(colon == line.npos ? 0 : colon + 1)));
  }
  ShowOne();
  return 0;
}

}  // namespace qdt::host
