#include "host/layout/yaml_tree.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <sstream>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "host/base/host_error.h"
#include "host/base/near_name.h"

namespace qdt::host {

const YamlNode *YamlNode::Get(std::string_view key) const {
  for (size_t i = 0; i + 1 < items.size(); i += 2) {
    if (items[i]->text == key) return items[i + 1];
  }
  return nullptr;
}

// Builds the tree from the parser's events, so that line numbers, repeated keys and the size of what aliases
// expand to are known (yaml-cpp's own tree drops the first two).
class YamlTreeBuilder : public YAML::EventHandler {
 public:
  explicit YamlTreeBuilder(YamlTree *tree) : tree_(*tree) {}

  void OnDocumentStart(const YAML::Mark &mark) override {
    if (tree_.root_ != nullptr) {
      tree_.Fail(Line(mark), "a second document begins here (a file holds one; remove the \"---\")");
    }
  }
  void OnDocumentEnd() override {}

  void OnNull(const YAML::Mark &mark, YAML::anchor_t anchor) override {
    Attach(New(YamlNode::Kind::kNull, mark, anchor));
  }

  void OnScalar(const YAML::Mark &mark, const std::string &, YAML::anchor_t anchor,
                const std::string &value) override {
    YamlNode *node = New(YamlNode::Kind::kScalar, mark, anchor);
    node->text = value;
    Attach(node);
  }

  void OnAlias(const YAML::Mark &mark, YAML::anchor_t anchor) override {
    const YamlNode *target = anchors_[anchor];
    if (std::find(open_.begin(), open_.end(), target) != open_.end()) {
      tree_.Fail(Line(mark), "an alias stands inside its own anchor (write the value out)");
    }
    Attach(target, Line(mark));
  }

  void OnSequenceStart(const YAML::Mark &mark, const std::string &, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value) override {
    Open(YamlNode::Kind::kList, mark, anchor);
  }
  void OnSequenceEnd() override { Close(); }

  void OnMapStart(const YAML::Mark &mark, const std::string &, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value) override {
    Open(YamlNode::Kind::kMap, mark, anchor);
  }

  void OnMapEnd() override {
    YamlNode *map = open_.back();
    CheckKeys(map);
    if (const YamlNode *merged = map->Get(kMerge)) Merge(map, *merged);
    Close();
  }

 private:
  // The parser counts lines from 0, and from -1 where a value is missing.
  static uint32_t Line(const YAML::Mark &mark) { return static_cast<uint32_t>(mark.line + 1); }

  YamlNode *New(YamlNode::Kind kind, const YAML::Mark &mark, YAML::anchor_t anchor) {
    YamlNode *node = &tree_.nodes_.emplace_back();
    node->kind = kind;
    node->line = Line(mark);
    if (anchor != YAML::NullAnchor) anchors_[anchor] = node;
    return node;
  }

  void Open(YamlNode::Kind kind, const YAML::Mark &mark, YAML::anchor_t anchor) {
    if (open_.size() == YamlTree::kMaxDepth) tree_.FailDepth(Line(mark));
    open_.push_back(New(kind, mark, anchor));
  }

  void Close() {
    YamlNode *node = open_.back();
    open_.pop_back();
    Attach(node);
  }

  void Attach(const YamlNode *node) { Attach(node, node->line); }

  // Puts a finished value into the list or mapping around it.
  void Attach(const YamlNode *node, uint32_t line) {
    if (open_.empty()) {
      tree_.root_ = node;
      return;
    }
    YamlNode *parent = open_.back();
    parent->items.push_back(node);
    parent->expandedSize += node->expandedSize;
    if (parent->expandedSize > YamlTree::kMaxNodes || tree_.nodes_.size() > YamlTree::kMaxNodes) {
      tree_.Fail(line, "more than " + std::to_string(YamlTree::kMaxNodes) +
                           " values with all aliases followed (use repeat for many entries)");
    }
  }

  // A mistake in a mapping, which goes on without what it is about.
  void Tell(YamlNode *map, uint32_t line, const std::string &what) {
    if (!tree_.mistakes_) tree_.Fail(line, what);
    map->isFaulty = true;
    tree_.mistakes_(tree_.Located(line, what));
  }

  void CheckKeys(YamlNode *map) {
    std::unordered_set<std::string_view> seen;
    size_t kept = 0;
    for (size_t i = 0; i < map->items.size(); i += 2) {
      const YamlNode &key = *map->items[i];
      if (!key.IsScalar()) {
        Tell(map, key.line, "a key that is not a plain name (write NAME: VALUE, and close every bracket)");
      } else if (!seen.insert(key.text).second) {
        Tell(map, key.line, Quoted(key.text) + " stands twice in one mapping (remove one)");
      } else {
        map->items[kept++] = map->items[i];
        map->items[kept++] = map->items[i + 1];
      }
    }
    map->items.resize(kept);
  }

  // "<<: *base", or "<<: [*base, *other]": the names of those mappings that this one does not have itself, of
  // the first that has them.
  void Merge(YamlNode *map, const YamlNode &merged) {
    std::unordered_set<std::string_view> names;
    size_t kept = 0;
    for (size_t i = 0; i < map->items.size(); i += 2) {
      if (map->items[i]->text == kMerge) continue;
      names.insert(map->items[i]->text);
      map->items[kept++] = map->items[i];
      map->items[kept++] = map->items[i + 1];
    }
    map->items.resize(kept);
    const std::vector<const YamlNode *> one{&merged};
    for (const YamlNode *base : merged.IsList() ? merged.items : one) {
      if (!base->IsMap()) {
        Tell(map, base->line, "\"<<\" takes mappings (write <<: *ANCHOR, or <<: [*ANCHOR, ...])");
        continue;
      }
      map->isFaulty |= base->isFaulty;
      for (size_t i = 0; i < base->items.size(); i += 2) {
        if (!names.insert(base->items[i]->text).second) continue;
        map->items.insert(map->items.end(), {base->items[i], base->items[i + 1]});
        map->expandedSize += base->items[i]->expandedSize + base->items[i + 1]->expandedSize;
      }
    }
  }

  static constexpr std::string_view kMerge = "<<";

  YamlTree &tree_;
  std::vector<YamlNode *> open_;
  std::unordered_map<YAML::anchor_t, const YamlNode *> anchors_;
};

YamlTree::YamlTree(std::string file, std::string_view text, TakeMistake mistakes)
    : file_(std::move(file)), mistakes_(std::move(mistakes)) {
  CheckCharacters(text);
  std::istringstream stream{std::string(text)};
  YamlTreeBuilder builder(this);
  try {
    YAML::Parser parser(stream);
    while (parser.HandleNextDocument(builder)) {
    }
  } catch (const YAML::Exception &error) {
    Fail(static_cast<uint32_t>(error.mark.line + 1),
         "YAML syntax: " + error.msg + " (indent with blanks, close every bracket and quote)");
  }
  if (root_ == nullptr || root_->IsNull()) Fail(0, "the file is empty (it needs at least one mapping)");
  if (!root_->IsMap()) Fail(root_->line, "not a mapping (write NAME: at the start of a line)");
}

std::string YamlTree::Located(uint32_t line, const std::string &what) const {
  std::string told = file_ + (line > 0 ? ":" + std::to_string(line) : "") + ": " + what;
  // Names of files may hold any byte: a terminal is to get none of them, and the line is to reach its end.
  for (char &c : told) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = '?';
  }
  return told;
}

// Two things that the parser does not survive well: some control characters, which it takes for the end of
// the file, dropping the rest without a word; and brackets that pile up, all of which it reads before it
// tells of one.
void YamlTree::CheckCharacters(std::string_view text) const {
  constexpr uint32_t kMaxOpenBrackets = 1000;
  uint32_t line = 1;
  uint32_t open = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte == '\n') {
      ++line;
    } else if ((byte < ' ' && byte != '\t' && byte != '\r') || byte == 0x7f) {
      Fail(line, "a control character, byte " + std::to_string(byte) + " (the file must be UTF-8 text)");
    } else if (c == '[' || c == '{') {
      if (++open > kMaxOpenBrackets) FailDepth(line);
    } else if ((c == ']' || c == '}') && open > 0) {
      --open;
    }
  }
}

void YamlTree::FailDepth(uint32_t line) const {
  Fail(line, "nested too deeply (" + std::to_string(kMaxDepth) + " levels are the limit)");
}

}  // namespace qdt::host
