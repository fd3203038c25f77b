#ifndef SRC_OM_OMA_SESSION_FILTER_H_
#define SRC_OM_OMA_SESSION_FILTER_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "qdt/session.h"
#include "src/om/oma/session_flow.h"

// The filter of session queries and resets, as a table of rows.
namespace qdt {

// A number in the first word, or an IPv6 address as four host-order words. Zero filters nothing.
struct FilterValue {
  uint32_t words[4];

  bool IsZero() const { return (words[0] | words[1] | words[2] | words[3]) == 0; }
};

// A session that is held against the filter. Its key is read when a row first asks for it.
class Candidate {
 public:
  explicit Candidate(const SessionRecord &record) : session(record) {}

  FlowState Read() {
    if (!asked_) state_ = ReadFlow(session, flow_);
    asked_ = true;
    return state_;
  }

  // Behind Read; zero unless the key could be read.
  const SessionFlow &flow() const { return flow_; }

  const SessionRecord &session;

 private:
  bool asked_ = false;
  FlowState state_ = FlowState::kAbsent;
  SessionFlow flow_;
};

// What a comparator returns.
enum Compared : int32_t { kPasses = 0, kFails = 1, kCannotCompare = 2 };

// The rows that others know by their place.
enum SessionFilterIndex { kFilterLimit = 14, kFilterVerbose = 15, kFilterType = 19, kSessionFilterRows = 20 };

// What the session is compared with, by row.
extern FilterValue g_sessionFilter[kSessionFilterRows];

// The request's parameter that a row stands for.
const char *SessionFilterName(size_t row);

// Holds a session against a row's value; a value of Compared.
using SessionComparator = int32_t (*)(Candidate &candidate, const FilterValue &value);

// By row.
extern const std::array<SessionComparator, kSessionFilterRows> g_sessionComparators;

// Values of the type.
enum SessionType : uint32_t { kSessionIpv4 = 1, kSessionIpv6 = 2 };

}  // namespace qdt

#endif  // SRC_OM_OMA_SESSION_FILTER_H_
