// The libraries bind all that they need when they are loaded; what is measured makes no management documents.

#include "platform/omcc.h"

extern "C" {

omcc_doc *omcc_new_doc(void) { return nullptr; }
omcc_node *omcc_doc_root(omcc_doc *) { return nullptr; }
omcc_node *omcc_new_node(omcc_node *, const char *, int32_t) { return nullptr; }
int32_t omcc_new_leaf_str(omcc_node *, const char *, const char *) { return -1; }
char *omcc_format_doc(omcc_doc *, int32_t) { return nullptr; }
void omcc_free_doc(omcc_doc *) {}

}  // extern "C"
