#ifndef HOST_OMCC_MODEL_H_
#define HOST_OMCC_MODEL_H_

#include <libyang/libyang.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qdt::host {

struct TreeFree {
  void operator()(lyd_node *tree) const { lyd_free_all(tree); }
};
using OwnedTree = std::unique_ptr<lyd_node, TreeFree>;

// Name and value of a request's parameter, as a user writes them.
using Parameter = std::pair<std::string, std::string>;

// The management data model (yang/tavrix-software-fwd.yang, which travels inside the programs) in a libyang
// context. One lives at a time: the document library of platform/omcc.h makes its documents in it.
class Model {
 public:
  // `searchPath`: a directory of further modules, or empty. Throws HostError.
  explicit Model(const std::string &searchPath = {});
  ~Model();
  Model(const Model &) = delete;
  Model &operator=(const Model &) = delete;

  ly_ctx *context() const { return context_.get(); }
  const lys_module *module() const { return module_; }
  // The one model of this process, or null.
  static const Model *Current();

  // A request of the rpc of this name, checked against the model. Throws HostError, which names what the rpc
  // takes.
  OwnedTree MakeRequest(std::string_view rpc, const std::vector<Parameter> &parameters) const;

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
  const lysc_node_leaf *FindLeaf(std::string_view rpc, std::string_view parameter) const;

  std::unique_ptr<ly_ctx, ContextFree> context_;
  const lys_module *module_ = nullptr;
};

// The child of this name, or null.
const lyd_node *FindChild(const lyd_node *parent, std::string_view name);

// What libyang last said, for an error line.
std::string LibyangMessage(const ly_ctx *context);

}  // namespace qdt::host

#endif  // HOST_OMCC_MODEL_H_
