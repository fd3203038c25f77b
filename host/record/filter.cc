#include "host/record/filter.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

#include "host/base/host_error.h"
#include "host/layout/value_text.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

constexpr WideValue kAll = ~WideValue{0};

WideValue LowBits(uint32_t bits) { return bits >= 128 ? kAll : (WideValue{1} << bits) - 1; }

}  // namespace

bool Matches(std::string_view pattern, std::string_view text) {
  const size_t star = pattern.find('*');
  if (star == pattern.npos) return pattern == text;
  if (text.size() < star || text.substr(0, star) != pattern.substr(0, star)) return false;
  text.remove_prefix(star);
  pattern.remove_prefix(star);
  // Each piece between stars is taken where it comes first; the last one stands at the end.
  for (;;) {
    pattern.remove_prefix(std::min(pattern.find_first_not_of('*'), pattern.size()));
    const size_t next = pattern.find('*');
    if (next == pattern.npos) return text.ends_with(pattern);
    const size_t at = text.find(pattern.substr(0, next));
    if (at == text.npos) return false;
    text.remove_prefix(at + next);
    pattern.remove_prefix(next);
  }
}

WideValue AddressPrefix::Mask() const {
  const uint32_t bits = form == ValueForm::kIpv4 ? 32 : 128;
  return LowBits(bits) & ~LowBits(bits - length);
}

std::optional<AddressPrefix> ParsePrefix(std::string_view text) {
  const size_t slash = text.find('/');
  const std::string_view address = text.substr(0, slash);
  AddressPrefix prefix;
  std::string problem;
  for (const FieldRef ref :
       {FieldRef{0, 4, FieldKind::kIpv4, 0, 0}, FieldRef{0, 16, FieldKind::kIpv6, 0, 0}}) {
    const std::optional<WideValue> value = ParseValue(ref, address, &problem);
    if (!value) continue;
    prefix.form = FormOf(ref.kind);
    prefix.length = ref.size * 8u;
    if (slash != text.npos) {
      const char *end = text.data() + text.size();
      uint32_t length = 0;
      const auto [stop, error] = std::from_chars(text.data() + slash + 1, end, length);
      if (error != std::errc() || stop != end || length > prefix.length) return std::nullopt;
      prefix.length = length;
    }
    prefix.value = *value & prefix.Mask();
    return prefix;
  }
  return std::nullopt;
}

Condition::Condition(const TableLayout &table, std::string_view words) : table_(table), words_(words) {
  const std::string_view value = ReadOperator(words);
  form_ = FormOf(leaves_.front().ref.kind);
  const bool ordered = form_ != ValueForm::kReference && form_ != ValueForm::kAddress;
  if (!ordered && operator_ != Operator::kEqual && operator_ != Operator::kNotEqual)
    Fail("can be = or != only");
  ReadValue(value);
  const Leaf &leaf = leaves_.front();
  exact_ = operator_ == Operator::kEqual && leaf.inKey && leaves_.size() == 1 && mask_ == kAll && !isPattern_;
}

void Condition::Fail(const std::string &what) const {
  throw HostError(Quoted(words_) + ": " + std::string(table_.shortName) + "." + leaves_.front().path + " " +
                  what);
}

// Takes FIELD and the operator; what stands behind it is the value.
std::string_view Condition::ReadOperator(std::string_view words) {
  const size_t at = words.find_first_of("=!<>");
  if (at == words.npos || at == 0 || words.substr(at) == "!") {
    throw HostError(Quoted(words) + " is no condition (write FIELD=VALUE, with = != < <= > or >=)");
  }
  const bool withEqual = words.substr(at + 1, 1) == "=";
  switch (words[at]) {
    case '=':
      operator_ = Operator::kEqual;
      break;
    case '!':
      if (!withEqual) throw HostError(Quoted(words) + " is no condition (write FIELD!=VALUE)");
      operator_ = Operator::kNotEqual;
      break;
    case '<':
      operator_ = withEqual ? Operator::kNotGreater : Operator::kLess;
      break;
    default:
      operator_ = withEqual ? Operator::kNotLess : Operator::kGreater;
      break;
  }
  leaves_ = LeavesAt(table_, words.substr(0, at));
  std::string_view value = words.substr(at + 1);
  if (withEqual && words[at] != '=') value.remove_prefix(1);
  // "FIELD==VALUE" is what programmers write.
  if (words[at] == '=' && withEqual) value.remove_prefix(1);
  for (const Leaf &leaf : leaves_) {
    if (FormOf(leaf.ref.kind) != FormOf(leaves_.front().ref.kind))
      throw HostError(Quoted(words) + ": name one field of the structure " +
                      std::string(words.substr(0, at)));
  }
  return value;
}

bool Condition::ReadPrefix(std::string_view text) {
  const bool anyKind = form_ == ValueForm::kAddress;
  if (form_ != ValueForm::kIpv4 && form_ != ValueForm::kIpv6 && !anyKind) return false;
  if (text.find('/') == text.npos) return false;
  if (operator_ != Operator::kEqual && operator_ != Operator::kNotEqual)
    Fail("is compared with an address here (a prefix is for = and !=)");
  const std::optional<AddressPrefix> prefix = ParsePrefix(text);
  if (!prefix || (prefix->form != form_ && !anyKind))
    Fail("is not " + Quoted(text) + ", which is no prefix (such as " +
         (form_ == ValueForm::kIpv6 ? "2001:db8::/32)" : "192.0.2.0/24)"));
  const uint32_t offset = leaves_.front().ref.offset;
  if (anyKind && prefix->form == ValueForm::kIpv4) narrow_ = FieldRef{offset, 4, FieldKind::kIpv4, 0, 0};
  if (anyKind && prefix->form == ValueForm::kIpv6) narrow_ = FieldRef{offset, 16, FieldKind::kIpv6, 0, 0};
  value_ = prefix->value;
  mask_ = prefix->Mask();
  return true;
}

void Condition::ReadReference(std::string_view text) {
  if (text == "none" || text == "0") {
    reference_ = Reference::kNone;
  } else if (text == "stale") {
    reference_ = Reference::kStale;
  } else if (text.starts_with("0x")) {
    std::string problem;
    const std::optional<WideValue> address = ParseValue(leaves_.front().ref, text, &problem);
    if (!address) Fail("is a reference: " + problem);
    reference_ = Reference::kAddress;
    value_ = *address;
  } else {
    const auto &targets = leaves_.front().field->targets;
    const bool named = std::ranges::any_of(
        targets, [&](std::string_view target) { return text.starts_with(std::string(target) + "/"); });
    if (!named) {
      Fail("is a reference (write " + std::string(targets.front()) +
           "/KEY, stale, none, or an address 0x...)");
    }
    text_ = text;
    isPattern_ = text_.find('*') != text_.npos;
  }
}

void Condition::CheckReference(const Layout &layout) const {
  if (form_ != ValueForm::kReference || reference_ != Reference::kText || isPattern_) return;
  const size_t slash = text_.find('/');
  const std::string target = text_.substr(0, slash);
  std::string_view rest = std::string_view(text_).substr(slash);
  const TableLayout *table = layout.FindTable(target);
  if (table == nullptr || rest == "/stale") return;
  std::vector<uint8_t> key(table->spec.keySize);
  std::string form = target;
  bool isWhole = true;
  for (const Field &field : table->key.all()) {
    if (field.constant) {
      field.ref.Write(key.data(), *field.constant);
      continue;
    }
    if (FormOf(field.ref.kind) == ValueForm::kText || FormOf(field.ref.kind) == ValueForm::kAddress) return;
    form += "/" + std::string(field.name);
    isWhole = isWhole && !rest.empty();
    if (!isWhole) continue;
    rest.remove_prefix(1);
    const std::string_view part = rest.substr(0, rest.find('/'));
    std::string problem;
    const std::optional<WideValue> value = ParseValue(field.ref, part, &problem);
    if (!value) Fail("is a reference to " + target + ": " + problem);
    field.ref.Write(key.data(), *value);
    rest.remove_prefix(part.size());
  }
  if (!isWhole || !rest.empty()) Fail("is a reference (write " + form + ")");
  std::string shown = target + "/";
  AppendKeyText(*table, key.data(), &shown);
  if (shown != text_) Fail("is a reference that is shown as " + shown + " (write it so)");
}

void Condition::ReadValue(std::string_view text) {
  const FieldRef &ref = leaves_.front().ref;
  const bool equality = operator_ == Operator::kEqual || operator_ == Operator::kNotEqual;
  if (form_ == ValueForm::kReference) return ReadReference(text);
  if (form_ == ValueForm::kText || (form_ == ValueForm::kMac && equality && text.find('*') != text.npos)) {
    isPattern_ = equality && text.find('*') != text.npos;
    text_ = text;
    if (!isPattern_ && !Unescape(text, &text_)) Fail("is a text with a backslash (write \\\\ or \\x1b)");
    if (form_ == ValueForm::kMac)
      std::ranges::transform(text_, text_.begin(), [](unsigned char c) { return std::tolower(c); });
    return;
  }
  if (ReadPrefix(text)) return;
  std::string problem;
  if (form_ == ValueForm::kAddress) {
    narrow_ = NarrowAddress(ref, text);
    if (!narrow_) Fail("is no IPv4, IPv6 or MAC address: " + Quoted(text));
  }
  const std::optional<WideValue> value = ParseValue(narrow_.value_or(ref), text, &problem);
  if (!value) throw HostError(Quoted(words_) + ": " + problem);
  value_ = *value;
}

bool Condition::Compares(const FieldRef &ref, WideValue is) const {
  const auto compare = [this](auto a, auto b) {
    switch (operator_) {
      case Operator::kLess:
        return a < b;
      case Operator::kNotGreater:
        return a <= b;
      case Operator::kGreater:
        return a > b;
      default:
        return a >= b;
    }
  };
  if (ref.kind == FieldKind::kSigned)
    return compare(static_cast<__int128>(is), static_cast<__int128>(value_));
  return compare(is, value_);
}

bool Condition::Equals(const RecordBytes &record, const Leaf &leaf, const FieldRef &ref,
                       const uint8_t *bytes) const {
  std::string text;
  switch (form_) {
    case ValueForm::kText:
      if (!isPattern_) return ref.GetText(bytes) == text_;
      AppendEscaped(ref.GetText(bytes), &text);
      return Matches(text_, text);
    case ValueForm::kReference: {
      const uint64_t address = ref.Get(bytes);
      if (reference_ == Reference::kNone) return address == 0;
      if (reference_ == Reference::kAddress) return address == value_;
      const host::Reference to = record.source.Resolve(leaf.field->targets, address);
      if (reference_ == Reference::kStale) return to.kind == host::Reference::Kind::kStale;
      AppendReference(to, &text);
      return Matches(text_, text);
    }
    case ValueForm::kAddress: {
      const FieldRef is = NarrowAddressIn(ref, bytes);
      return is.kind == narrow_->kind && (is.Read(bytes) & mask_) == value_;
    }
    default:
      break;
  }
  if (isPattern_) {
    AppendValue(nullptr, ref, bytes, &text);
    return Matches(text_, text);
  }
  const WideValue is = IsTimeAgo(ref.kind) ? record.source.SecondsAgo(ref, ref.Read(bytes)) : ref.Read(bytes);
  return (is & mask_) == value_;
}

bool Condition::HoldsFor(const RecordBytes &record, const Leaf &leaf) const {
  if (leaf.part != nullptr && record.entry != nullptr &&
      (!record.entry->Has(*leaf.part) || (leaf.part->pointer != 0 && record.entry->IsStrayed(*leaf.part)))) {
    return false;
  }
  const uint8_t *bytes = leaf.inKey ? record.key : record.record;
  if (operator_ == Operator::kEqual || operator_ == Operator::kNotEqual)
    return Equals(record, leaf, leaf.ref, bytes);
  if (form_ == ValueForm::kText) {
    const int order = leaf.ref.GetText(bytes).compare(text_);
    return operator_ == Operator::kLess         ? order < 0
           : operator_ == Operator::kNotGreater ? order <= 0
           : operator_ == Operator::kGreater    ? order > 0
                                                : order >= 0;
  }
  const WideValue is = leaf.ref.Read(bytes);
  return Compares(leaf.ref, IsTimeAgo(leaf.ref.kind) ? record.source.SecondsAgo(leaf.ref, is) : is);
}

bool Condition::Holds(const RecordBytes &record) const {
  const bool any = std::ranges::any_of(leaves_, [&](const Leaf &leaf) { return HoldsFor(record, leaf); });
  return operator_ == Operator::kNotEqual ? !any : any;
}

void Condition::WriteKey(uint8_t *key) const {
  const FieldRef &ref = leaves_.front().ref;
  form_ == ValueForm::kText ? ref.SetText(key, text_) : narrow_.value_or(ref).Write(key, value_);
}

std::optional<std::vector<uint8_t>> WholeKey(const TableLayout &table,
                                             std::span<const Condition> conditions) {
  return BeginOfKey(table, conditions, table.spec.keySize);
}

std::optional<std::vector<uint8_t>> BeginOfKey(const TableLayout &table,
                                               std::span<const Condition> conditions, uint32_t bytes) {
  if (table.key.empty()) return std::nullopt;
  std::vector<uint8_t> key(table.spec.keySize);
  for (const Field &field : table.key.all()) {
    if (field.ref.offset >= bytes) continue;
    if (field.constant) {
      field.ref.Write(key.data(), *field.constant);
      continue;
    }
    const auto named = std::ranges::find(conditions, &field, &Condition::KeyField);
    if (named == conditions.end()) return std::nullopt;
    named->WriteKey(key.data());
  }
  return key;
}

}  // namespace qdt::host
