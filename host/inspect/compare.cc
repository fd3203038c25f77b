#include "host/inspect/compare.h"

#include <algorithm>
#include <cstring>

namespace qdt::host {
namespace {

bool IsVolatile(const Field &field) { return field.role != FieldRole::kState || IsTimeAgo(field.ref.kind); }

// A structure that not all records have.
bool IsPart(const Field &field) { return field.pointer != 0 || !field.selector.empty(); }

bool AreSame(const Reference &a, const Reference &b) {
  if (a.kind != b.kind) return false;
  if (a.kind == Reference::Kind::kNone || a.kind == Reference::Kind::kWild) return true;
  return a.table == b.table &&
         (a.kind == Reference::Kind::kStale || std::memcmp(a.key, b.key, a.table->spec.keySize) == 0);
}

bool ValuesAreSame(const Field &field, const FieldRef &ref, const RecordBytes &from, const RecordBytes &to) {
  switch (ref.kind) {
    case FieldKind::kText:
      return ref.GetText(from.record) == ref.GetText(to.record);
    case FieldKind::kReference:
      return AreSame(from.source.Resolve(field.targets, ref.Get(from.record)),
                     to.source.Resolve(field.targets, ref.Get(to.record)));
    case FieldKind::kUptimeAgo:
    case FieldKind::kTimeAgo:
      return from.source.SecondsAgo(ref, ref.Read(from.record)) ==
             to.source.SecondsAgo(ref, ref.Read(to.record));
    default:
      return ref.Read(from.record) == ref.Read(to.record);
  }
}

// Compares value by value.
class Walk {
 public:
  Walk(const RecordBytes &from, const RecordBytes &to, Volatile volatiles, std::vector<ValueChange> *changes)
      : from_(from), to_(to), volatiles_(volatiles), changes_(*changes) {}

  void Record(const TableLayout &table) {
    for (const Field &field : table.fields.all()) {
      path_ = table.key.Find(field.name) == nullptr ? "" : "record.";
      IsPart(field) ? Structure(field) : Node(field, 0);
    }
  }

  void Region(const RegionLayout &region) {
    for (const Field &field : region.fields.all()) Node(field, 0);
  }

 private:
  void Structure(const Field &field) {
    const Presence presence = PresenceIn(from_, field);
    if (presence != PresenceIn(to_, field)) {
      changes_.push_back({path_ + std::string(field.name), &field, field.ref, true});
    } else if (presence == Presence::kPresent) {
      Node(field, 0);
    }
  }

  void Node(const Field &field, uint32_t base) {
    if (volatiles_ == Volatile::kIgnored && IsVolatile(field)) return;
    const size_t length = path_.size();
    path_ += field.name;
    const size_t named = path_.size();
    for (uint32_t i = 0; i < std::max(field.count, 1u); ++i) {
      if (field.count != 0) path_ += "[" + std::to_string(i) + "]";
      Element(field, base + i * field.stride);
      path_.resize(named);
    }
    path_.resize(length);
  }

  void Element(const Field &field, uint32_t base) {
    if (!field.fields.empty()) {
      path_ += '.';
      for (const Field &inner : field.fields.all()) Node(inner, base + field.ref.offset);
      return;
    }
    const FieldRef ref = field.ref.At(base);
    if (!ValuesAreSame(field, ref, from_, to_)) changes_.push_back({path_, &field, ref, false});
  }

  const RecordBytes &from_;
  const RecordBytes &to_;
  const Volatile volatiles_;
  std::vector<ValueChange> &changes_;
  std::string path_;
};

// Sets the bits of a value in the mask of its record.
void MarkBits(const FieldRef &ref, uint8_t *mask) {
  if (ref.bits == 0) {
    std::memset(mask + ref.offset, 0xff, ref.size);
    return;
  }
  for (uint32_t bit = ref.shift; bit < uint32_t{ref.shift} + ref.bits; ++bit)
    mask[ref.offset + bit / 8] = static_cast<uint8_t>(mask[ref.offset + bit / 8] | 1u << bit % 8);
}

}  // namespace

Presence PresenceIn(const RecordBytes &record, const Field &field) {
  if (!record.entry->Has(field)) return Presence::kAbsent;
  return field.pointer != 0 && record.entry->IsStrayed(field) ? Presence::kStrayed : Presence::kPresent;
}

RecordComparison::RecordComparison(const Layout &layout, const TableLayout &table, Volatile volatiles)
    : layout_(layout), table_(table), volatiles_(volatiles) {
  const size_t words = tbm::RoundUpToWord(table.spec.StoredSize()) / tbm::kWord;
  parts_.emplace_back().mask.resize(words);
  for (const Field &field : table.fields.all()) {
    if (!IsPart(field)) {
      Add(field, 0, &parts_.front());
    } else {
      AddPart(field);
    }
  }
  // Only the words from the first to the last that count.
  for (Part &part : parts_) {
    while (!part.mask.empty() && part.mask.back() == 0) part.mask.pop_back();
    const auto isZero = [](uint64_t word) { return word == 0; };
    const auto first = std::ranges::find_if_not(part.mask, isZero);
    part.firstWord = static_cast<uint32_t>(first - part.mask.begin());
    part.mask.erase(part.mask.begin(), first);
  }
}

void RecordComparison::AddPart(const Field &field) {
  Part part;
  part.field = &field;
  part.mask.resize(parts_.front().mask.size());
  Add(field, 0, &part);
  parts_.push_back(std::move(part));
}

void RecordComparison::Add(const Field &field, uint32_t base, Part *part) {
  if (volatiles_ == Volatile::kIgnored && IsVolatile(field)) return;
  // Of two moments the same time is other seconds ago.
  comparesTimes_ = comparesTimes_ || IsTimeAgo(field.ref.kind);
  for (uint32_t i = 0; i < std::max(field.count, 1u); ++i) {
    const uint32_t at = base + i * field.stride;
    if (!field.fields.empty()) {
      for (const Field &inner : field.fields.all()) Add(inner, at + field.ref.offset, part);
    } else if (field.ref.kind == FieldKind::kReference) {
      Link &link = part->links.emplace_back();
      link.ref = field.ref.At(at);
      for (const std::string_view target : field.targets) {
        if (const TableLayout *table = layout_.FindTable(target)) link.targets.push_back(table);
      }
    } else {
      MarkBits(field.ref.At(at), reinterpret_cast<uint8_t *>(part->mask.data()));
    }
  }
}

bool RecordComparison::BitsAreEqual(const Part &part, const uint8_t *from, const uint8_t *to) {
  // Records stand at whole words (EntryReader).
  const auto *a = reinterpret_cast<const uint64_t *>(from) + part.firstWord;
  const auto *b = reinterpret_cast<const uint64_t *>(to) + part.firstWord;
  const uint64_t *mask = part.mask.data();
  uint64_t differ = 0;
  for (size_t i = 0; i < part.mask.size(); ++i) differ |= (a[i] ^ b[i]) & mask[i];
  return differ == 0;
}

// Never true for records that differ. False also for some that do not: texts that differ behind their NUL.
bool RecordComparison::LooksEqual(const RecordBytes &from, const RecordBytes &to) const {
  for (const Part &part : parts_) {
    if (part.field != nullptr) {
      const bool isThere = from.entry->Has(*part.field);
      if (isThere != to.entry->Has(*part.field)) return false;
      if (!isThere) continue;
      if (part.field->pointer != 0 &&
          (from.entry->IsStrayed(*part.field) || to.entry->IsStrayed(*part.field)))
        return false;
    }
    if (!BitsAreEqual(part, from.record, to.record)) return false;
    for (const Link &link : part.links) {
      const uint64_t a = link.ref.Get(from.record);
      const uint64_t b = link.ref.Get(to.record);
      if ((a | b) == 0) continue;
      if (!AreSame(from.source.Resolve(link.targets, a), to.source.Resolve(link.targets, b))) return false;
    }
  }
  return true;
}

bool RecordComparison::Equal(const RecordBytes &from, const RecordBytes &to) {
  if (!comparesTimes_ && LooksEqual(from, to)) return true;
  changes_.clear();
  Walk(from, to, volatiles_, &changes_).Record(table_);
  return changes_.empty();
}

void CompareRegions(const RegionLayout &region, const RecordBytes &from, const RecordBytes &to,
                    Volatile volatiles, std::vector<ValueChange> *changes) {
  Walk(from, to, volatiles, changes).Region(region);
}

}  // namespace qdt::host
