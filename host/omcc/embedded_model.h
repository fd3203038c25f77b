#ifndef HOST_OMCC_EMBEDDED_MODEL_H_
#define HOST_OMCC_EMBEDDED_MODEL_H_

namespace qdt::host {

// The text of yang/tavrix-software-fwd.yang.
const char *EmbeddedModel();

}  // namespace qdt::host

#endif  // HOST_OMCC_EMBEDDED_MODEL_H_
