#ifndef HOST_TBM_OBSERVER_H_
#define HOST_TBM_OBSERVER_H_

#include "host/tbm/table_view.h"

namespace qdt::host::tbm {

// Who wants to know which entries the table manager delivers to its callers: where an entry is searched or
// matched, a rule is found in its group, a batch is filled, and before each callback of a walk. For programs
// of one thread.
struct Observer {
  void (*delivered)(void *context, uint32_t table, const Place &place);
  void *context;
};

// Null unless one stands.
inline constinit const Observer *g_observer = nullptr;

inline void NoteDelivered(const TableView &table, const Place &place) {
  if (g_observer != nullptr) [[unlikely]]
    g_observer->delivered(g_observer->context, table.id(), place);
}

// Makes an observer, which outlives this, stand for as long as this lives; there is none else.
class Observing {
 public:
  explicit Observing(const Observer &observer) { g_observer = &observer; }
  ~Observing() { g_observer = nullptr; }
  Observing(const Observing &) = delete;
  Observing &operator=(const Observing &) = delete;
};

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_OBSERVER_H_
