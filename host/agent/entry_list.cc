#include "host/agent/entry_list.h"

#include <algorithm>
#include <charconv>

#include "host/netconf/xml_text.h"
#include "host/record/record_rows.h"

namespace qdt::host {
namespace {

std::string FieldName(std::string name) {
  std::ranges::replace(name, '-', '_');
  return name;
}

const uint8_t *BytesOf(const Leaf &value, const RecordBytes &record) {
  return value.inKey ? record.key : record.record;
}

}  // namespace

EntryList::EntryList(const TableLayout &table, const lysc_node *list)
    : table_(table), name_(list->name), space_(list->module->ns), nodes_(NodesOf(list, "")) {}

std::vector<EntryList::Node> EntryList::NodesOf(const lysc_node *parent, const std::string &path) const {
  std::vector<Node> nodes;
  for (const lysc_node *child = lysc_node_child(parent); child != nullptr; child = child->next) {
    Node node{child->name, {}, {}, {}};
    const std::string here = path + FieldName(child->name);
    if (child->nodetype == LYS_CONTAINER) {
      node.inner = NodesOf(child, here + '.');
    } else {
      node.values = LeavesAt(table_, here);
      node.plain = PlainValue::Of(node.values[0].ref, PlainValue::Bits::kWords);
    }
    nodes.push_back(std::move(node));
  }
  return nodes;
}

std::string EntryList::ValueOf(const Node &leaf, const RecordBytes &record) {
  const Leaf &first = leaf.values[0];
  if (first.part != nullptr && (!record.entry->Has(*first.part) || record.entry->IsStrayed(*first.part)))
    return "";
  if (leaf.values.size() > 1) {
    uint64_t sum = 0;
    for (const Leaf &each : leaf.values) sum += each.ref.Get(BytesOf(each, record));
    return std::to_string(sum);
  }
  std::string text;
  if (leaf.plain) {
    char room[PlainValue::kRoom];
    text.assign(room, leaf.plain->Put(BytesOf(first, record), room));
  } else {
    AppendValue(&record.source, first.ref, BytesOf(first, record), &text);
  }
  return text;
}

void EntryList::Append(const std::vector<Node> &nodes, const RecordBytes &record, std::string *xml) {
  for (const Node &node : nodes) {
    if (node.inner.empty()) {
      const std::string value = ValueOf(node, record);
      if (!value.empty()) *xml += XmlLeaf(node.name, XmlText(value));
      continue;
    }
    std::string inner;
    Append(node.inner, record, &inner);
    if (!inner.empty()) *xml += Joined({"<", node.name, ">", inner, "</", node.name, ">"});
  }
}

bool EntryList::Fits(const RecordBytes &record, std::string_view condition) const {
  const size_t equals = condition.find('=');
  const auto isIt = [&](const Node &each) {
    return each.name == condition.substr(0, equals) && each.inner.empty();
  };
  const auto leaf = std::ranges::find_if(nodes_, isIt);
  return leaf == nodes_.end() || ValueOf(*leaf, record) == condition.substr(equals + 1);
}

std::string EntryList::Walk(const RecordSource &source, const std::string &path, std::string_view from,
                            StateSink *sink) const {
  if (source.View(table_) == nullptr) return "";
  EntryReader reader(source, table_);
  uint64_t serial = 0;
  std::from_chars(from.data(), from.data() + from.size(), serial);
  if (serial != 0) reader.GoBehind(serial);
  while (reader.Next()) {
    const RecordBytes record(source, reader);
    if (!sink->condition().empty() && !Fits(record, sink->condition())) continue;
    std::string body;
    Append(nodes_, record, &body);
    sink->Take({space_, path, Joined({"<", name_, ">", body, "</", name_, ">"})});
    if (sink->full()) return std::to_string(reader.entry().place.serial);
  }
  return "";
}

}  // namespace qdt::host
