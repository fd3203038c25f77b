#ifndef HOST_AGENT_STATE_H_
#define HOST_AGENT_STATE_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qdt::host {

// State data is told record by record and never held as a whole: a list of 65,536 entries takes no more
// memory than one of ten, and a client that reads slowly keeps nobody else waiting, since a walk stands still
// between two pieces and nothing is held for it but where it stands.

// Some data below a chain of containers.
struct StateRecord {
  std::string space;  // namespace of the containers
  std::string path;   // their names, "software-fwd/sessions"; empty for top-level data
  std::string body;   // one or more elements in XML, in the namespace of `space` unless they declare another
};

// Takes the records of one piece.
class StateSink {
 public:
  explicit StateSink(size_t room, std::string condition = {})
      : condition_(std::move(condition)), room_(room) {}

  void Take(StateRecord record) {
    bytes_ += record.body.size() + record.path.size() + record.space.size();
    records_.push_back(std::move(record));
  }
  // A walk stops behind the record that fills the piece.
  bool full() const { return bytes_ >= room_; }
  std::vector<StateRecord> &records() { return records_; }

  // Of a list, the entries that are wanted, "LEAF=NUMBER"; empty for all. A source that knows how may leave
  // out the others.
  const std::string &condition() const { return condition_; }

 private:
  const std::string condition_;
  const size_t room_;
  size_t bytes_ = 0;
  std::vector<StateRecord> records_;
};

// One part of the state data.
struct StateSource {
  std::string module;  // of the top-level node that it adds to, and that
  std::string node;
  // Tells the records from `from` on ("" for the beginning) until the sink is full. Returns where the walk
  // goes on, or "" at its end. What goes away between two calls is left out, what comes may be told or not,
  // nothing is told twice. Throws HostError when it cannot be told. Sources of one top-level node stand
  // beside each other, and so do all records of one container.
  std::function<std::string(std::string_view from, StateSink *sink)> walk;
  // The container below the top-level node that all its records stand in, where that is one: who wants none
  // of it need not have it walked.
  std::string part = {};
};

}  // namespace qdt::host

#endif  // HOST_AGENT_STATE_H_
