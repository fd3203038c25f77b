#ifndef HOST_SCENARIO_ENTRY_TEMPLATE_H_
#define HOST_SCENARIO_ENTRY_TEMPLATE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/layout/layout.h"
#include "host/layout/yaml_tree.h"
#include "host/scenario/mistakes.h"

namespace qdt::host {

// One entry of a scenario with its names looked up and its texts read: what `repeat` makes many entries of.
class EntryTemplate {
 public:
  // A reference still known by the key of the entry that it leads to.
  struct Reference {
    FieldRef field;
    const TableLayout *target = nullptr;
    std::string key;     // bytes
    bool stale = false;  // without a key: to any place where no entry is
    const YamlNode *node = nullptr;
    std::string path;
    std::string wanted;  // the key as an error line shows it
  };

  // `owner` is the table's or region's name in error lines; `counting` says whether values may count up.
  // With `mistakes` those of fields are noted, and what was bound then is of no use.
  EntryTemplate(const YamlTree &tree, const Layout &layout, std::string_view owner, bool counting,
                Mistakes *mistakes = nullptr);

  // Reads the fields that `entry`, a mapping, gives. `key` is null for regions. Throws HostError.
  void Bind(const FieldSet &fields, const FieldSet *key, const YamlNode &entry);

  // To be called between Bind and Write: for `count` repetitions of so many bytes each.
  void Prepare(uint32_t count, uint32_t keySize, uint32_t recordSize);

  // Writes repetition `i` as a whole. Throws HostError when a value has counted past its field. `record` may
  // be null when a record has no bytes.
  void Write(uint32_t i, uint8_t *key, uint8_t *record) const;

  // How to have no two repetitions with the same key, when none of the key's fields counts.
  std::optional<std::string> WhyAllKeysAreOne(uint32_t count) const;

  // The references of repetition `i`.
  std::vector<Reference> References(uint32_t i) const;
  // Whether it has references or structures that are attached to it.
  bool LeadsElsewhere() const { return !references_.empty() || !attached_.empty(); }

  // The structures that the record points to, where each of its repetitions has them.
  struct Attached {
    FieldRef pointer;
    uint32_t at = 0;  // of the structure, from the record's start
  };
  const std::vector<Attached> &attached() const { return attached_; }

 private:
  // One value and where it goes; repetition i gets start + i * step.
  struct Value {
    FieldRef field;
    bool inKey = false;
    WideValue start = 0;
    WideValue step = 0;
    std::string text;  // of a text field
    const YamlNode *node = nullptr;
    std::string path;
  };

  // A structure that stands in the record only for some values of a key field.
  struct Variant {
    const Field *field = nullptr;
    const YamlNode *node = nullptr;
  };

  struct UnboundReference {
    Reference reference;
    std::unique_ptr<EntryTemplate> key;  // fills the target's key; null where none is named
  };

  // A value that differs from repetition to repetition.
  struct Counter {
    const Value *value;
    bool isPlain;  // fits its field in each of them, which holds it as it is counted
  };

  void BindRestOfKey(const FieldSet &key, const YamlNode &entry);
  void BindOwn(const FieldSet &fields, const FieldSet &key, const YamlNode &own);
  void BindVariant(const Field &field, const YamlNode &node);
  void BindAttached(const Field &field, const YamlNode &node);
  void BindTimes(const FieldSet &fields, const YamlNode &entry);
  void TakePointer(const Field &field, const YamlNode &node);
  void BindStrayed(const Field &field, const YamlNode &node);
  void CheckVariants(uint32_t i) const;
  void CheckAgreement(const uint8_t *record) const;
  void BindNamed(const FieldSet &fields, const FieldSet *key, const YamlNode &map, size_t item, uint32_t base,
                 const std::string &prefix);
  [[noreturn]] void FailUnknown(const FieldSet &fields, const FieldSet *key, const YamlNode &name,
                                const std::string &prefix) const;
  void BindMap(const FieldSet &fields, const FieldSet *key, const YamlNode &map, uint32_t base,
               const std::string &prefix);
  void BindField(const Field &field, const YamlNode &node, uint32_t base, const std::string &path);
  void BindArray(const Field &field, const YamlNode &node, uint32_t base, const std::string &path);
  void BindElement(const Field &field, const YamlNode &node, uint32_t base, const std::string &path);
  void BindValue(const FieldRef &field, bool inKey, const YamlNode &node, const std::string &path);
  std::string ReadText(const FieldRef &field, const YamlNode &node, const std::string &path) const;
  void BindReference(const Field &field, const YamlNode &node, uint32_t base, const std::string &path);
  void BindTarget(const Field &field, std::string_view table, const YamlNode &node, uint32_t base,
                  const std::string &path);
  WideValue Parse(const FieldRef &field, const YamlNode &node, const std::string &path) const;
  WideValue At(const Value &value, uint32_t i) const;
  std::string KeyText(uint32_t i) const;
  [[noreturn]] void Fail(const YamlNode &node, std::string_view path, const std::string &what) const;

  const YamlTree &tree_;
  const Layout &layout_;
  std::string owner_;
  std::string table_;  // whose fields, or the region's, they are
  bool counting_;
  Mistakes *mistakes_;
  bool isEntry_ = false;  // entries may say repeat and record, the keys of references may not
  std::vector<Value> values_;
  // What all repetitions share, with zeros elsewhere, and what they do not.
  std::vector<uint8_t> sharedKey_, sharedRecord_;
  std::vector<Counter> counters_;
  std::vector<Variant> variants_;
  bool variantsShare_ = false;  // two of them stand in the same bytes, and have to agree
  std::vector<UnboundReference> references_;
  std::vector<Attached> attached_;
  std::vector<uint32_t> pointers_;  // those that are given, by their place in the record
};

}  // namespace qdt::host

#endif  // HOST_SCENARIO_ENTRY_TEMPLATE_H_
