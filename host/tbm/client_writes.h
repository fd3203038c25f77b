#ifndef HOST_TBM_CLIENT_WRITES_H_
#define HOST_TBM_CLIENT_WRITES_H_

#include <cstdint>

#include "host/tbm/table_view.h"

// Who ages an entry out writes into its record, in place. In a client that is the client's own copy: what was
// written becomes a request to the engine, and all who read the entry from then on see it ended.
namespace qdt::host::tbm {

// Lasts while a callback may write into the record that was delivered to it.
class ClientWrite {
 public:
  ClientWrite(const TableView &table, const Place &place);
  ~ClientWrite();
  ClientWrite(const ClientWrite &) = delete;
  ClientWrite &operator=(const ClientWrite &) = delete;

 private:
  const TableView &table_;
  const Place &place_;
  const bool mayEnd_;  // in a client, an entry that has not ended yet
};

// Whether the ends that a client writes are asked for, or only counted and forgotten with its copies.
enum class Ends { kAskedFor, kCounted };
void SetEnds(Ends ends);

// Asks for the end of all entries that this client has ended by a write of its own, also through pointers
// that no call of the table manager delivered to it (the flow partition's nodes), and gives up its copies of
// records. To be called when a command that may have written is over. Does nothing in the engine and for a
// snapshot. Gives the number of entries that have been ended since the last call.
uint64_t TakeClientWrites();

}  // namespace qdt::host::tbm

#endif  // HOST_TBM_CLIENT_WRITES_H_
