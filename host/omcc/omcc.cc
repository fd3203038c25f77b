#include "host/omcc/omcc.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "host/base/c_callback.h"
#include "host/omcc/libyang_memory.h"
#include "host/omcc/model.h"
#include "platform/memory.h"

// Leaves come one by one and a list's entry cannot stand in a data tree before its keys do, so that a
// document is noted down while it is built and becomes a tree when it is formatted. Names and values are
// checked when they come.

struct omcc_node {
  omcc_doc *document;
  std::string path;         // in the data model; empty for the root
  const lysc_node *schema;  // null for the root
  std::vector<std::pair<std::string, std::string>> leaves;
};

struct omcc_doc {
  const qdt::host::Model *model;
  omcc_node root;
  std::deque<omcc_node> nodes;  // keeps their addresses
};

namespace {

using qdt::host::Model;
using qdt::host::OwnedTree;
using qdt::host::UnlessShort;

const char *ValueOf(omcc_request *request, const char *name) {
  const lyd_node *leaf = qdt::host::FindChild(reinterpret_cast<const lyd_node *>(request), name);
  return leaf != nullptr ? lyd_get_value(leaf) : nullptr;
}

const lysc_node *ChildSchema(const lysc_node *parent, const char *name) {
  return lys_find_child(parent, parent->module, name, 0, 0, 0);
}

// "/module:path[key='value']..." for libyang, which makes the keys' leaves from it. Keys that were not given
// are left out, and libyang refuses the path.
std::string InstancePath(const omcc_node &node) {
  std::string path = node.path;
  for (const lysc_node *child = lysc_node_child(node.schema); child != nullptr; child = child->next) {
    if (!lysc_is_key(child)) continue;
    for (const auto &[name, value] : node.leaves) {
      if (name == child->name) path += "[" + name + "='" + value + "']";
    }
  }
  return path;
}

// Adds the node and its leaves to `tree`. False when libyang refuses it.
bool AddNode(const ly_ctx *context, const omcc_node &node, OwnedTree *tree) {
  lyd_node *first = nullptr;
  lyd_node *entry = nullptr;
  const std::string path = InstancePath(node);
  if (lyd_new_path2(tree->get(), context, path.c_str(), nullptr, 0, LYD_ANYDATA_STRING, LYD_NEW_PATH_UPDATE,
                    &first, &entry) != LY_SUCCESS)
    return false;
  if (*tree == nullptr) tree->reset(first);
  if (entry == nullptr && lyd_find_path(tree->get(), path.c_str(), 0, &entry) != LY_SUCCESS) return false;
  for (const auto &[name, value] : node.leaves) {
    if (lysc_is_key(ChildSchema(node.schema, name.c_str()))) continue;
    if (lyd_new_term(entry, nullptr, name.c_str(), value.c_str(), 0, nullptr) != LY_SUCCESS) return false;
  }
  return true;
}

char *HeapText(const char *text, size_t length) {
  auto *copy = static_cast<char *>(malloc_ex(g_mallocHandle, "host/omcc/omcc", __LINE__, length + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

}  // namespace

extern "C" {

int32_t omcc_parse_str(omcc_request *request, const char *name, const char **text) {
  const char *value = ValueOf(request, name);
  if (value == nullptr) return -1;
  *text = value;
  return 0;
}

int32_t omcc_parse_uint(omcc_request *request, const char *name, uint64_t *value) {
  const char *text = ValueOf(request, name);
  if (text == nullptr) return -1;
  const char *const end = text + std::strlen(text);
  uint64_t number = 0;
  const auto [stop, error] = std::from_chars(text, end, number);
  if (error != std::errc() || stop != end) return -1;
  *value = number;
  return 0;
}

int32_t omcc_parse_bool(omcc_request *request, const char *name, uint8_t *value) {
  const char *text = ValueOf(request, name);
  if (text == nullptr) return -1;
  const bool isTrue = std::strcmp(text, "true") == 0;
  if (!isTrue && std::strcmp(text, "false") != 0) return -1;
  *value = isTrue ? 1 : 0;
  return 0;
}

omcc_doc *omcc_new_doc(void) {
  const Model *model = Model::Current();
  if (model == nullptr) return nullptr;
  return UnlessShort<omcc_doc *>(nullptr, [model] {
    auto *doc = new omcc_doc{model, {}, {}};
    doc->root.document = doc;
    return doc;
  });
}

omcc_node *omcc_doc_root(omcc_doc *doc) { return doc == nullptr ? nullptr : &doc->root; }

// The model knows what stands at a path, so that the kind is not looked at.
omcc_node *omcc_new_node(omcc_node *parent, const char *path, int32_t) {
  if (parent == nullptr || path == nullptr) return nullptr;
  omcc_doc &doc = *parent->document;
  return UnlessShort<omcc_node *>(nullptr, [&]() -> omcc_node * {
    const std::string whole = parent->path + path;
    const lysc_node *schema = lys_find_path(doc.model->context(), nullptr, whole.c_str(), 0);
    if (schema == nullptr) return nullptr;
    return &doc.nodes.emplace_back(omcc_node{&doc, whole, schema, {}});
  });
}

int32_t omcc_new_leaf_str(omcc_node *node, const char *name, const char *value) {
  if (node == nullptr || node->schema == nullptr || name == nullptr || value == nullptr) return -1;
  const lysc_node *leaf = ChildSchema(node->schema, name);
  if (leaf == nullptr || leaf->nodetype != LYS_LEAF) return -1;
  const ly_ctx *context = node->document->model->context();
  if (lyd_value_validate(context, leaf, value, std::strlen(value), nullptr, nullptr, nullptr) != LY_SUCCESS)
    return -1;
  return UnlessShort(-1, [&] {
    node->leaves.emplace_back(name, value);
    return 0;
  });
}

// XML whatever the mode.
char *omcc_format_doc(omcc_doc *doc, int32_t) {
  if (doc == nullptr) return nullptr;
  return UnlessShort<char *>(nullptr, [doc]() -> char * {
    OwnedTree tree;
    for (const omcc_node &node : doc->nodes) {
      if (!AddNode(doc->model->context(), node, &tree)) return nullptr;
    }
    const std::string text = qdt::host::Printed(tree.get(), LYD_PRINT_WITHSIBLINGS);
    return HeapText(text.c_str(), text.size());
  });
}

void omcc_free_doc(omcc_doc *doc) { delete doc; }

}  // extern "C"
