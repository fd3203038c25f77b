#include "host/inspect/key_lookup.h"

#include <algorithm>

#include "host/record/filter.h"
#include "host/record/record_rows.h"
#include "host/tbm/status.h"

namespace qdt::host {
namespace {

bool SameValue(const FieldRef &ref, const uint8_t *a, const uint8_t *b) {
  if (ref.kind == FieldKind::kText) return ref.GetText(a) == ref.GetText(b);
  return ref.Read(a) == ref.Read(b);
}

}  // namespace

LookupKey::LookupKey(const TableLayout &table, const uint8_t *key) : table_(&table) {
  std::copy_n(key, table.spec.keySize, bytes_);
}

LookupKey::LookupKey(const TableLayout &table) : table_(&table) {
  for (const Field &field : table.key.all()) {
    if (field.constant) field.ref.Write(bytes_, *field.constant);
  }
}

void LookupKey::Set(const RecordBytes &record, std::span<const Said> said) {
  auto next = said.begin();
  for (const Field &field : table_->key.all()) {
    if (field.constant) continue;
    if (next == said.end()) return;
    field.ref.Write(bytes_, next->ref.Read(next->inKey ? record.key : record.record));
    ++next;
  }
}

void LookupKey::SetNumber(WideValue number) {
  for (const Field &field : table_->key.all()) {
    if (!field.constant) return field.ref.Write(bytes_, number);
  }
}

void LookupKey::SetField(std::string_view name, WideValue value) {
  if (const Field *field = table_->key.Find(name)) field->ref.Write(bytes_, value);
}

bool LookupKey::IsZero() const {
  return std::ranges::all_of(table_->key.all(), [this](const Field &field) {
    return field.constant || field.ref.Read(bytes_) == 0;
  });
}

bool SameKey(const TableLayout &table, const uint8_t *a, const uint8_t *b) {
  return std::ranges::all_of(table.key.all(), [&](const Field &field) { return SameValue(field.ref, a, b); });
}

bool LookupKey::Equals(const uint8_t *key) const { return SameKey(*table_, bytes_, key); }

bool LookupKey::Exists(const RecordSource &source) const {
  const tbm::TableView *view = source.View(*table_);
  tbm::Place place;
  return view != nullptr && view->Find(view->KeyOf(bytes_), &place) == tbm::kTbmOk;
}

std::string LookupKey::Text() const {
  std::string text(table_->shortName);
  text += '/';
  AppendKeyText(*table_, bytes_, &text);
  return text;
}

bool FindRoute(EntryReader *routes, WideValue vpn, WideValue address) {
  LookupKey key(routes->table());
  key.SetField("vpn", vpn);
  key.SetField("destination", address);
  return routes->Match(key.bytes());
}

}  // namespace qdt::host
