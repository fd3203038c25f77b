#ifndef HOST_OMCC_MODEL_H_
#define HOST_OMCC_MODEL_H_

#include <libyang/libyang.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/host_error.h"

namespace qdt::host {

struct TreeFree {
  void operator()(lyd_node *tree) const { lyd_free_all(tree); }
};
using OwnedTree = std::unique_ptr<lyd_node, TreeFree>;

// Name and value of a request's parameter, as a user writes them.
using Parameter = std::pair<std::string, std::string>;

// What is wrong with a request, for whoever made it.
class RequestError : public HostError {
 public:
  enum class Kind : uint8_t {
    kUnknownOperation,
    kUnknownParameter,
    kGivenTwice,
    kMissingParameter,
    kInvalidValue,
  };

  RequestError(Kind kind, std::string parameter, const std::string &message)
      : HostError(message), kind_(kind), parameter_(std::move(parameter)) {}

  Kind kind() const { return kind_; }
  const std::string &parameter() const { return parameter_; }

 private:
  Kind kind_;
  std::string parameter_;
};

// `"VALUE" is no value for "NAME" (it takes WANTED)`
RequestError InvalidValue(std::string_view name, std::string_view value, std::string_view wanted);

// The management data model (yang/tavrix-software-fwd.yang) in a libyang context. It and the modules of
// NETCONF travel inside the programs; none is looked for in files. One lives at a time: the document library
// of platform/omcc.h makes its documents in it.
class Model {
 public:
  // Throws HostError.
  Model();
  ~Model();
  Model(const Model &) = delete;
  Model &operator=(const Model &) = delete;

  ly_ctx *context() const { return context_.get(); }
  const lys_module *module() const { return module_; }
  // Makes another module of yang/ a part of the context. `features`: null-terminated, or null for none.
  // Throws HostError.
  const lys_module *Implement(const char *name, const char **features = nullptr) const;

  // The one model of this process, or null.
  static const Model *Current();

  // A request of the rpc of this name, checked against the model. Throws RequestError, which names what the
  // rpc takes.
  OwnedTree MakeRequest(std::string_view rpc, const std::vector<Parameter> &parameters) const;

  // Whether the rpc changes something, and so is for those only whom a rule permits it.
  bool Changes(std::string_view rpc) const;

  // The parameters of an rpc, with their types, in the model's order.
  std::vector<Parameter> ParametersOf(std::string_view rpc) const;

  // What the model says of the rpc, of one of its parameters, and of each word that the parameter knows;
  // lines without an end at the last.
  std::string AboutOf(std::string_view rpc) const;
  std::string AboutOf(std::string_view rpc, std::string_view parameter) const;
  std::vector<Parameter> WordsOf(std::string_view rpc, std::string_view parameter) const;

 private:
  struct ContextFree {
    void operator()(ly_ctx *context) const { ly_ctx_destroy(context); }
  };
  const lysc_node *FindRpc(std::string_view rpc) const;
  void AddParameter(lyd_node *request, const Parameter &parameter) const;
  void CheckMissing(const lyd_node *request) const;
  const lysc_node_leaf *FindLeaf(std::string_view rpc, std::string_view parameter) const;

  std::unique_ptr<ly_ctx, ContextFree> context_;
  const lys_module *module_ = nullptr;
};

// Whether the model denies a node to everybody whom no rule permits it (RFC 8341, section 3.2.8).
bool IsDeniedByDefault(const lysc_node *node);

// The child of this name, or null.
const lyd_node *FindChild(const lyd_node *parent, std::string_view name);

// What libyang last said, for an error line.
std::string LibyangMessage(const ly_ctx *context);

}  // namespace qdt::host

#endif  // HOST_OMCC_MODEL_H_
