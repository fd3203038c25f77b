#ifndef HOST_SESSION_DATA_WRITER_H_
#define HOST_SESSION_DATA_WRITER_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/netconf/subtree.h"
#include "host/session/request.h"

namespace qdt::host {

// What an XPath selects of a tree, both in XML, with the parents and keys of what is selected; empty when
// that is nothing. Throws RpcError for what is no path.
using SelectXpath =
    std::function<std::string(const std::string &path, const Bindings &bindings, const std::string &tree)>;

// Makes one document of the records that a walk tells (host/agent/state.h), of which it keeps nothing but the
// names of the containers that are open. A filter is asked record by record.
class DataWriter {
 public:
  DataWriter(const DataFilter &filter, const SelectXpath &selectXpath)
      : filter_(filter), selectXpath_(selectXpath) {}

  // `keys`: "LIST:KEY,KEY;..." for the lists of this part. Throws RpcError.
  void Add(const std::string &keys, const std::string &space, const std::string &path,
           const std::string &body, std::string *xml);
  // Closes what is open.
  void End(std::string *xml) { Open({}, {}, xml); }

 private:
  using Names = std::vector<std::string>;
  void Open(const std::string &space, const Names &names, std::string *xml);
  void AddTree(const std::string &keys, const std::string &space, const Names &names, const std::string &tree,
               std::string *xml);

  const DataFilter &filter_;
  const SelectXpath &selectXpath_;
  std::string openSpace_;
  Names open_;
};

}  // namespace qdt::host

#endif  // HOST_SESSION_DATA_WRITER_H_
