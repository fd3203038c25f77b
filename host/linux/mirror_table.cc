#include "host/linux/mirror_table.h"

#include <algorithm>
#include <cstring>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

constexpr FieldRef kNoField{};

}  // namespace

MirrorTable::MirrorTable(const FillTarget &target, std::string_view shortName)
    : layout_(target.layout.FindTable(shortName)),
      writer_(target.writer),
      usable_(layout_ != nullptr && layout_->spec.enabled) {
  if (!usable_) return;
  id_ = layout_->spec.id;
  key_.resize(layout_->spec.keySize);
  record_.resize(layout_->spec.StoredSize());
}

FieldRef MirrorTable::Key(std::string_view name) {
  const Field *field = usable_ ? layout_->key.Find(name) : nullptr;
  usable_ = field != nullptr;
  return usable_ ? field->ref : kNoField;
}

FieldRef MirrorTable::Value(std::string_view path) {
  if (!usable_) return kNoField;
  try {
    return layout_->At(path);
  } catch (const HostError &) {
    usable_ = false;
    return kNoField;
  }
}

FieldRef MirrorTable::Optional(std::string_view path) {
  const bool usable = usable_;
  const FieldRef field = Value(path);
  usable_ = usable;
  return field;
}

MirrorTable::Structure MirrorTable::Attached(std::string_view name) {
  const Field *field = usable_ ? layout_->fields.Find(name) : nullptr;
  usable_ = field != nullptr && field->pointer != 0;
  if (!usable_) return {};
  return {{.offset = field->pointer, .size = sizeof(void *)}, field->ref.offset - layout_->spec.searchOffset};
}

MirrorTable &MirrorTable::New() {
  std::ranges::fill(key_, 0);
  std::ranges::fill(record_, 0);
  return *this;
}

MirrorTable &MirrorTable::SetKey(const FieldRef &field, WideValue value) {
  if (usable_) field.Write(key_.data(), value);
  return *this;
}

MirrorTable &MirrorTable::Set(const FieldRef &field, WideValue value) {
  if (usable_ && field.size != 0) field.Write(record_.data(), value);
  return *this;
}

MirrorTable &MirrorTable::SetBytes(const FieldRef &field, const void *bytes, size_t size) {
  return Set(field, FromNetwork(bytes, size));
}

void MirrorTable::Put(void **address) {
  if (!usable_) return;
  if (*address != nullptr) {
    const uint8_t *have = static_cast<const uint8_t *>(*address) - layout_->spec.searchOffset;
    if (std::memcmp(have, record_.data(), record_.size()) != 0) writer_.Update(id_, *address, record_.data());
    return;
  }
  // The writer says when the table is full, once.
  if (writer_.Insert(id_, key_.data(), record_.data(), address) == 0) return;
  ++refused_;
  turnedAway_ = true;
}

void MirrorTable::Remove(void **address) {
  if (*address == nullptr) return;
  writer_.RemoveEntry(id_, *address);
  *address = nullptr;
  Forget();
}

bool MirrorTable::TakeRoomAgain() {
  const bool again = hasRoomAgain_;
  if (again) turnedAway_ = hasRoomAgain_ = false;
  return again;
}

DerivedTable::DerivedTable(const FillTarget &target, std::string_view shortName)
    : table_(target, shortName), many_(table_.usable() && table_.layout_->spec.lookup == Lookup::kMany) {}

void DerivedTable::Want() {
  std::string identity(table_.key_.begin(), table_.key_.end());
  if (many_) identity.append(table_.record_.begin(), table_.record_.end());
  Entry &entry = entries_[identity];
  entry.round = round_;
  table_.Put(&entry.address);
}

void DerivedTable::End() {
  for (auto at = entries_.begin(); at != entries_.end();) {
    if (at->second.round == round_) {
      ++at;
      continue;
    }
    table_.Remove(&at->second.address);
    at = entries_.erase(at);
  }
}

}  // namespace qdt::host
