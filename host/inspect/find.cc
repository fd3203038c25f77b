#include "host/inspect/find.h"

#include <algorithm>
#include <vector>

#include "host/base/host_error.h"
#include "host/inspect/key_lookup.h"
#include "host/inspect/parts.h"
#include "host/layout/value_text.h"
#include "host/record/filter.h"

namespace qdt::host {
namespace {

// The tables by which interfaces are known.
constexpr std::string_view kInterfaceTables[] = {"fwdif", "ctrlif_map_fwdif", "flowif_map_fwdif"};
// What references to interfaces lead to.
constexpr std::string_view kInterfaces = "fwdif";

bool IsInterfaceTable(std::string_view table) {
  return std::ranges::find(kInterfaceTables, table) != std::end(kInterfaceTables);
}

WideValue LowBits(const FieldRef &ref) {
  return ref.Width() >= 128 ? ~WideValue{0} : (WideValue{1} << ref.Width()) - 1;
}

}  // namespace

SearchValue::SearchValue(std::string_view text) {
  std::string problem;
  if (const std::optional<AddressPrefix> prefix = ParsePrefix(text)) {
    kind_ = prefix->form == ValueForm::kIpv4 ? Kind::kIpv4 : Kind::kIpv6;
    value_ = prefix->value;
    mask_ = prefix->Mask();
  } else if (const auto mac = ParseValue({0, 6, FieldKind::kMac, 0, 0}, text, &problem)) {
    kind_ = Kind::kMac;
    value_ = *mac;
    mask_ = LowBits({0, 6, FieldKind::kMac, 0, 0});
  } else if (const auto number = ParseValue({0, 4, FieldKind::kUnsigned, 0, 0}, text, &problem)) {
    kind_ = Kind::kInterface;
    value_ = *number;
  } else {
    isPattern_ = text.find('*') != text.npos;
    text_ = text;
    if (text.empty()) throw HostError("an empty text is in every field (name a value)");
    if (!isPattern_ && !Unescape(text, &text_))
      throw HostError(Quoted(text) + " is a text with a backslash (write \\\\ or \\x1b)");
  }
}

std::string_view SearchValue::KindName() const {
  constexpr std::string_view kNames[] = {"ipv4", "ipv6", "mac", "interface", "text"};
  return kNames[static_cast<size_t>(kind_)];
}

bool SearchValue::IsAddress() const {
  switch (kind_) {
    case Kind::kIpv4:
      return mask_ == LowBits({0, 4, FieldKind::kIpv4, 0, 0});
    case Kind::kIpv6:
      return mask_ == ~WideValue{0};
    default:
      return kind_ == Kind::kMac;
  }
}

bool SearchValue::IsFor(const Field &field) const {
  const ValueForm form = FormOf(field.ref.kind);
  switch (kind_) {
    case Kind::kIpv4:
      return form == ValueForm::kIpv4 || form == ValueForm::kAddress;
    case Kind::kIpv6:
      return form == ValueForm::kIpv6 || form == ValueForm::kAddress;
    case Kind::kMac:
      return form == ValueForm::kMac || form == ValueForm::kAddress;
    case Kind::kInterface:
      return IsInterfaceTable(field.leadsTo) ||
             std::ranges::find(field.targets, kInterfaces) != field.targets.end();
    default:
      return form == ValueForm::kText;
  }
}

bool SearchValue::MatchesAddress(const FieldRef &ref, const uint8_t *bytes, ValueForm form) const {
  const FieldRef is = ref.kind == FieldKind::kAddress ? NarrowAddressIn(ref, bytes) : ref;
  if (FormOf(is.kind) != form) return false;
  const WideValue value = is.Read(bytes);
  if ((value & mask_) != value_) return false;
  // No address at all is in no prefix.
  return value != 0 || mask_ == LowBits(is);
}

bool SearchValue::MatchesInterface(const RecordSource &source, const Field &field, const FieldRef &ref,
                                   const uint8_t *bytes) const {
  if (ref.kind != FieldKind::kReference) return (ref.Read(bytes) & LowBits(ref)) == value_;
  const uint64_t address = ref.Get(bytes);
  if (address == 0) return false;
  const Reference to = source.Resolve(field.targets, address);
  if (to.kind != Reference::Kind::kEntry || to.table->shortName != kInterfaces) return false;
  LookupKey key(*to.table);
  key.SetNumber(value_);
  return key.Equals(to.key);
}

bool SearchValue::Matches(const RecordSource &source, const Field &field, const FieldRef &ref,
                          const uint8_t *bytes) const {
  switch (kind_) {
    case Kind::kIpv4:
      return MatchesAddress(ref, bytes, ValueForm::kIpv4);
    case Kind::kIpv6:
      return MatchesAddress(ref, bytes, ValueForm::kIpv6);
    case Kind::kMac:
      return MatchesAddress(ref, bytes, ValueForm::kMac);
    case Kind::kInterface:
      return MatchesInterface(source, field, ref, bytes);
    default:
      break;
  }
  const std::string_view is = ref.GetText(bytes);
  if (!isPattern_) return is == text_;
  if (is.empty()) return false;
  std::string escaped;
  AppendEscaped(is, &escaped);
  return host::Matches(text_, escaped);
}

namespace {

// Where values of the kind stand in one table.
class TableSearch {
 public:
  TableSearch(const RecordSource &source, const TableLayout &table, const SearchValue &value)
      : source_(source), table_(table), value_(value) {
    const bool own = value.kind() == SearchValue::Kind::kInterface && IsInterfaceTable(table.shortName);
    const auto wanted = [&](const Field &field) {
      return value.IsFor(field) || (own && table.key.Find(field.name) == &field);
    };
    leaves_ = LeavesOf(table, wanted);
    for (ShapeNode &node : RecordShape::Whole(table).nodes) {
      if (node.twin != nullptr && wanted(*node.field)) twins_.push_back(std::move(node));
    }
  }

  bool empty() const { return leaves_.empty(); }

  // False when no more are wanted.
  bool Run(const TakeMatch &take) const {
    EntryReader reader(source_, table_);
    while (reader.Next()) {
      if (!Look(RecordBytes(source_, reader), take)) return false;
    }
    return true;
  }

 private:
  bool Look(const RecordBytes &record, const TakeMatch &take) const {
    for (const Leaf &leaf : leaves_) {
      const uint8_t *bytes = leaf.inKey ? record.key : record.record;
      if (!value_.Matches(source_, *leaf.field, leaf.ref, bytes) || !HasLeaf(record, leaf)) continue;
      if (!take({&table_, nullptr, record.key, leaf.path, record, *leaf.field, leaf.ref, bytes}))
        return false;
    }
    for (const ShapeNode &node : twins_) {
      const Field &twin = *node.twin;
      if (!value_.Matches(source_, twin, twin.ref, record.record) || !DiffersFromKey(node, record)) continue;
      const std::string path = "record." + std::string(twin.name);
      if (!take({&table_, nullptr, record.key, path, record, twin, twin.ref, record.record})) return false;
    }
    return true;
  }

  const RecordSource &source_;
  const TableLayout &table_;
  const SearchValue &value_;
  std::vector<Leaf> leaves_;
  std::vector<ShapeNode> twins_;  // of the key's fields
};

bool SearchRegion(const RecordSource &source, const RegionLayout &region, const SearchValue &value,
                  const TakeMatch &take) {
  const std::vector<Leaf> leaves = LeavesOf(region, [&](const Field &field) { return value.IsFor(field); });
  if (leaves.empty()) return true;
  const std::vector<uint8_t> bytes = source.ReadRegion(region);
  if (bytes.empty()) return true;
  const RecordBytes record(source, bytes.data());
  return std::ranges::all_of(leaves, [&](const Leaf &leaf) {
    return !value.Matches(source, *leaf.field, leaf.ref, bytes.data()) ||
           take({nullptr, &region, nullptr, leaf.path, record, *leaf.field, leaf.ref, bytes.data()});
  });
}

}  // namespace

void FindValue(const RecordSource &source, const SearchValue &value, const TakeMatch &take) {
  for (const TableLayout &table : source.layout().tables()) {
    if (table.fields.empty() || source.View(table) == nullptr) continue;
    const TableSearch search(source, table, value);
    if (!search.empty() && !search.Run(take)) return;
  }
  for (const RegionLayout &region : source.layout().regions()) {
    if (!SearchRegion(source, region, value, take)) return;
  }
}

}  // namespace qdt::host
