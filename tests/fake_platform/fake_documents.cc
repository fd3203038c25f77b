#include "tests/fake_platform/fake_platform.h"

// The platform's document library: one document with one node is all that handlers make.

struct omcc_node {
  omcc_doc *document;
};

struct omcc_doc {
  omcc_node root{this};
  omcc_node node{this};
};

namespace {

qdt::test::FakePlatform::Documents &Documents() { return qdt::test::FakePlatform::Get().documents; }

// Whether the call is to fail.
bool Record(const std::string &call) {
  Documents().calls.push_back(call);
  return Documents().failAt == static_cast<int>(Documents().calls.size()) - 1;
}

}  // namespace

extern "C" {

omcc_doc *omcc_new_doc() {
  if (Record("document")) return nullptr;
  ++Documents().live;
  return new omcc_doc;
}

omcc_node *omcc_doc_root(omcc_doc *doc) { return &doc->root; }

omcc_node *omcc_new_node(omcc_node *parent, const char *path, int32_t kind) {
  EXPECT_EQ(parent, &parent->document->root);
  return Record("node " + std::string(path) + " " + std::to_string(kind)) ? nullptr : &parent->document->node;
}

int32_t omcc_new_leaf_str(omcc_node *node, const char *name, const char *value) {
  EXPECT_TRUE(node == nullptr || node == &node->document->node);
  const bool fails = Record("leaf " + std::string(name) + " " + value);
  return fails || node == nullptr ? -1 : 0;
}

char *omcc_format_doc(omcc_doc *, int32_t mode) {
  if (Record("format " + std::to_string(mode))) return nullptr;
  return qdt::test::FakePlatform::Get().NewText("<document/>");
}

void omcc_free_doc(omcc_doc *doc) {
  Record("free");
  --Documents().live;
  delete doc;
}

}  // extern "C"
