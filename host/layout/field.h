#ifndef HOST_LAYOUT_FIELD_H_
#define HOST_LAYOUT_FIELD_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qdt::host {

// How a value is stored. Records are little-endian; "host order" is that, "network order" the other one.
enum class FieldKind : uint8_t {
  kUnsigned,   // whole or some bits of an 8, 16, 32 or 64 bit word
  kSigned,     // two's complement
  kIpv4,       // 32 bits, host order
  kIpv4Net,    // 32 bits, network order
  kIpv6,       // 16 bytes, network order
  kIpv6Words,  // four 32-bit words, each in host order, the most significant word first
  kMac,        // 6 bytes
  kText,       // characters, NUL-padded; a text that fills its field has no NUL
  kReference,  // 64-bit address of another table's entry
  kAddress,    // of keys: area of 16 bytes for an IPv4 (host order), an IPv6 or a MAC address
  kUptimeAgo,  // 32 bits, seconds of the monotonic clock; written as the seconds that have passed since
  kTimeAgo,    // the same with seconds since 1970
};

// Any single value but a text, as a number: a MAC address is 48 bits, an IPv6 address 128. Signed values are
// sign-extended.
using WideValue = unsigned __int128;

// Where one value lies in a record and how it is stored. Looked up once by name (TableLayout::At), used many
// times.
struct FieldRef {
  uint32_t offset = 0;  // bytes from the record's start
  uint16_t size = 0;    // bytes of the word or area that holds the value
  FieldKind kind = FieldKind::kUnsigned;
  uint8_t shift = 0;  // first bit inside the word
  uint8_t bits = 0;   // number of bits, 0 for the whole word

  // The value of the field in `record`, which is at least as long as the layout says. Not for texts.
  WideValue Read(const void *record) const;
  // Stores the low bits of `value`, leaving the word's other bits alone. Not for texts.
  void Write(void *record, WideValue value) const;
  // As Write, for memory that others read meanwhile: words of 1, 2, 4 or 8 bytes at a multiple of their size
  // change in one store.
  void WriteShared(void *record, WideValue value) const;

  // The same for values of up to 64 bits.
  uint64_t Get(const void *record) const { return static_cast<uint64_t>(Read(record)); }
  void Set(void *record, uint64_t value) const { Write(record, value); }

  // The least and the greatest number that fit, of kinds that people write as numbers and have up to 64 bits.
  int64_t Least() const;
  uint64_t Greatest() const;

  // Whether Write would keep the whole value.
  bool Fits(WideValue value) const;
  // Width of the value: "1 bit", "16 bits".
  uint32_t Width() const { return bits != 0 ? bits : size * 8u; }

  // The text up to its NUL or the end of the field; stores `text`, which fits, and pads it with NULs.
  std::string_view GetText(const void *record) const;
  void SetText(void *record, std::string_view text) const;

  FieldRef At(uint32_t base) const {
    FieldRef moved = *this;
    moved.offset += base;
    return moved;
  }
};

struct Field;

// The named fields of a record or of a structure inside it, in the order of the layout file. They stand in
// constants of the program or in a LayoutStore; a set only names them.
class FieldSet {
 public:
  constexpr FieldSet() = default;
  // `byName` has the fields' places in the order of their names.
  constexpr FieldSet(const Field *fields, const uint16_t *byName, uint32_t size)
      : fields_(fields), byName_(byName), size_(size) {}

  const Field *Find(std::string_view name) const;
  // The field whose name is nearest to a mistyped one, or null when none is near.
  const Field *Nearest(std::string_view name) const;

  constexpr bool empty() const { return size_ == 0; }
  constexpr std::span<const Field> all() const;

 private:
  const Field *fields_ = nullptr;
  const uint16_t *byName_ = nullptr;
  uint32_t size_ = 0;
};

// What clears counters, as Field::clearedBy names it.
constexpr std::string_view kClearedByCpcar = "cpcar";  // the control plane's rate limits

// What a value is to those who look at an engine's state over time.
enum class FieldRole : uint8_t {
  kState,
  kCounter,  // counts what has happened; its differences are of interest
  kClock,    // a time, or what is left of one: changes by itself
};

// A field by name: one value, a structure, or an array of either.
struct Field {
  std::string_view name;
  FieldRef ref;         // the value, or element 0; for structures only the offset counts
  uint32_t count = 0;   // elements of an array, 0 for a single value or structure
  uint32_t stride = 0;  // bytes from one element to the next
  FieldSet fields;      // of a structure, their offsets counted from its start
  std::span<const std::string_view> targets;  // short names of the tables that a reference can lead to
  std::optional<WideValue> constant;          // key fields that always hold one value
  std::string_view clearedBy;                 // word of the engine's command that sets the field to 0, if any
  uint32_t line = 0;                          // in the layout file

  // Where the record points to the structure when an entry has it; 0 for other fields. Structures that one
  // pointer leads to may share bytes.
  uint32_t pointer = 0;
  // Of two structures that one pointer can lead to: the field of the record that tells them apart, and its
  // value where it is this one.
  std::string_view chosenBy;
  uint32_t chosenValue = 0;

  // A structure that a record holds only when a field of its key has one of these values; the structures that
  // one key field selects may share bytes.
  std::string_view selector;
  std::span<const uint32_t> selectedBy;
  // Where that field stands, chosenBy or selector: who asks about many records does not look for a name each
  // time.
  FieldRef choice;

  // Bytes of one element.
  uint32_t elementSize = 0;

  // What the field means to people and programs that read records without knowing the engine.
  FieldRole role = FieldRole::kState;
  std::string_view about;  // one line, without a full stop; empty when nobody has said it yet
  std::string_view unit;   // "bytes", "s"; empty for plain numbers

  // Of a number: the table whose entries have it as their key. 0 and the field's highest value lead nowhere.
  // Where `mustLead` is set the entry has to be there; else it may be, as with interfaces of other boards.
  std::string_view leadsTo;
  bool mustLead = false;
  // Of a reference: the fields beside it, in the order of the target's key, that say which entry it leads to.
  std::span<const std::string_view> agreesWith;
  // Of a number: the array beside it whose elements it counts.
  std::string_view counts;
};

constexpr std::span<const Field> FieldSet::all() const { return {fields_, size_}; }

// The words of the layouts for kinds of values.
struct FieldType {
  std::string_view name;  // "u16", "ipv4_net"
  FieldKind kind;
  uint16_t size;  // bytes; 0 where each field says how long it is
};
std::span<const FieldType> FieldTypes();
// The word for the field's kind.
std::string_view TypeName(const FieldRef &field);

constexpr bool IsTimeAgo(FieldKind kind) {
  return kind == FieldKind::kUptimeAgo || kind == FieldKind::kTimeAgo;
}

// How a value is written by people: fields whose forms agree can take one and the same text.
enum class ValueForm : uint8_t { kNumber, kIpv4, kIpv6, kMac, kText, kReference, kAddress };
constexpr ValueForm FormOf(FieldKind kind) {
  switch (kind) {
    case FieldKind::kIpv4:
    case FieldKind::kIpv4Net:
      return ValueForm::kIpv4;
    case FieldKind::kIpv6:
    case FieldKind::kIpv6Words:
      return ValueForm::kIpv6;
    case FieldKind::kMac:
      return ValueForm::kMac;
    case FieldKind::kText:
      return ValueForm::kText;
    case FieldKind::kReference:
      return ValueForm::kReference;
    case FieldKind::kAddress:
      return ValueForm::kAddress;
    default:
      return ValueForm::kNumber;
  }
}

// Reads `text` in the form of `field` ("10.1.0.7", "0x1f", "02:00:5e:00:53:01", "true" for single bits).
// On failure returns nothing and says in *problem what is wrong and how to mend it. Not for texts.
std::optional<WideValue> ParseValue(const FieldRef &field, std::string_view text, std::string *problem);

// A number of entries or elements, read alike.
std::optional<uint32_t> ParseCount(std::string_view text);

// The field of one kind that a kAddress field is for the address `text`, or nothing when that is none.
std::optional<FieldRef> NarrowAddress(const FieldRef &field, std::string_view text);

// What a record holds in place of the value that people write: of a time ago the time, else the value itself.
WideValue StoredValue(const FieldRef &field, WideValue written);

// "65536 does not fit 16 bits (0 to 65535)". `shown` is the value as the user knows it.
std::string RangeProblem(const FieldRef &field, const std::string &shown);

// The value in the form that ParseValue reads.
std::string ValueText(const FieldRef &field, WideValue value);

}  // namespace qdt::host

#endif  // HOST_LAYOUT_FIELD_H_
