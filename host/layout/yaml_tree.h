#ifndef HOST_LAYOUT_YAML_TREE_H_
#define HOST_LAYOUT_YAML_TREE_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/host_error.h"

namespace qdt::host {

// One value of a YAML file, with the line it stands on.
struct YamlNode {
  enum class Kind : uint8_t { kNull, kScalar, kList, kMap };

  Kind kind = Kind::kNull;
  bool isFaulty = false;  // of a mapping: names may be missing for a mistake that has been told
  uint32_t line = 0;
  uint64_t expandedSize = 1;            // nodes that a walk over it meets, aliases followed
  std::string text;                     // of a scalar, as written
  std::vector<const YamlNode *> items;  // of a list; of a mapping key, value, key, value ...

  bool IsList() const { return kind == Kind::kList; }
  bool IsMap() const { return kind == Kind::kMap; }
  bool IsScalar() const { return kind == Kind::kScalar; }
  bool IsNull() const { return kind == Kind::kNull; }

  // The value of `key` in a mapping, or null.
  const YamlNode *Get(std::string_view key) const;
};

// A whole YAML file, checked so that whoever walks it needs no bounds of its own: one document, mapping keys
// are plain texts and unique, merged mappings ("<<") are part of those that name them, at most kMaxDepth
// levels, at most kMaxNodes nodes even when aliases are followed.
class YamlTree {
 public:
  static constexpr uint32_t kMaxDepth = 16;
  static constexpr uint64_t kMaxNodes = 8'000'000;
  // Bytes of the largest files that are read.
  static constexpr uint64_t kMaxFileSize = 128u << 20;

  // Takes the line of a mistake that leaves the rest of the file readable.
  using TakeMistake = std::function<void(const std::string &line)>;

  // Throws HostError "FILE:LINE: what is wrong (how to mend it)". With `mistakes` those within one mapping
  // (a name that is none or stands twice, a wrong "<<") go there, and the mapping lacks what they are about.
  YamlTree(std::string file, std::string_view text, TakeMistake mistakes = {});

  // The document, which is a mapping.
  const YamlNode &root() const { return *root_; }
  const std::string &file() const { return file_; }

  // Throws HostError "FILE:LINE: WHAT". Lines count from 1; line 0 stands for the whole file.
  [[noreturn]] void Fail(uint32_t line, const std::string &what) const {
    throw HostError(Located(line, what));
  }

 private:
  friend class YamlTreeBuilder;

  std::string Located(uint32_t line, const std::string &what) const;
  void CheckCharacters(std::string_view text) const;
  [[noreturn]] void FailDepth(uint32_t line) const;

  std::string file_;
  TakeMistake mistakes_;
  std::deque<YamlNode> nodes_;
  const YamlNode *root_ = nullptr;
};

}  // namespace qdt::host

#endif  // HOST_LAYOUT_YAML_TREE_H_
