#ifndef HOST_AGENT_ENTRY_LIST_H_
#define HOST_AGENT_ENTRY_LIST_H_

#include <libyang/libyang.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/agent/state.h"
#include "host/record/plain_value.h"
#include "host/record/record_json.h"
#include "host/record/record_shape.h"

namespace qdt::host {

// The entries of an engine's table as a list of the data model. Which fields are told, and what they are
// called, is the model's to say: a leaf "new-source" of a container "tcp" is the table's field
// "tcp.new_source". A leaf of a field that stands in an array is the sum of its elements.
class EntryList {
 public:
  // Both outlive it. Throws HostError for a leaf that is no field.
  EntryList(const TableLayout &table, const lysc_node *list);

  // Tells the entries from `from` on as a StateSource does: where a walk stands is the serial of the entry
  // that was told last. `path` leads to the list.
  std::string Walk(const RecordSource &source, const std::string &path, std::string_view from,
                   StateSink *sink) const;

 private:
  // A container with the nodes in it, or a leaf with the values that it is the sum of.
  struct Node {
    std::string name;
    std::vector<Node> inner;
    std::vector<Leaf> values;
    std::optional<PlainValue> plain;
  };
  std::vector<Node> NodesOf(const lysc_node *parent, const std::string &path) const;
  static void Append(const std::vector<Node> &nodes, const RecordBytes &record, std::string *xml);
  // Whether the entry has what the sink wants of it.
  bool Fits(const RecordBytes &record, std::string_view condition) const;
  static std::string ValueOf(const Node &leaf, const RecordBytes &record);

  const TableLayout &table_;
  const std::string name_;
  const std::string space_;
  const std::vector<Node> nodes_;
};

}  // namespace qdt::host

#endif  // HOST_AGENT_ENTRY_LIST_H_
