#ifndef HOST_ARENA_TABLE_SPEC_H_
#define HOST_ARENA_TABLE_SPEC_H_

#include <cstdint>
#include <string_view>

namespace qdt::host {

constexpr uint32_t kTableCount = 109;

// The tables behind what TbmGlobalInfo points to, when they are defined.
constexpr uint32_t kServerMapTable = 64;      // its buckets are those of the server maps' hash map
constexpr uint32_t kFlowPartitionTable = 65;  // sessions: the flow partition has a node for each slot

// Packets that wait for ARP, by {u32 VPN in the upper half, u32 next hop}. The management agent's listing
// asks for {next hop, 0} and means VPN 0, so that a key with nothing under it and a second word of 0 is
// looked up once more with its words exchanged.
constexpr uint32_t kArpMissTable = 57;

// How entries are found by key.
enum class Lookup : uint8_t {
  kUnique,   // one entry a key
  kMany,     // several entries may share a key; walked with TbmTblTravNextByKey in insertion order
  kPrefix4,  // unique, and TbmTblMatch finds the longest prefix: {u16 prefix length, u16 vpn, 4 bytes network
             // order}
  kPrefix6,  // the same with a 16-byte destination
};

// Keys of route tables are {u16 prefix length, u16 VPN, destination in network order}.
constexpr uint32_t kPrefixAddressOffset = 4;

// Bytes of the destination; 0 for tables without longest-prefix match.
constexpr uint32_t PrefixAddressSize(Lookup lookup) {
  return lookup == Lookup::kPrefix4 ? 4 : lookup == Lookup::kPrefix6 ? 16 : 0;
}

// The shape of one engine table. A table with dataSize 0 is not defined: it exists by id and name only.
struct TableSpec {
  uint32_t id = 0;
  std::string_view name;    // "CAP_TABLE_..."; stays its owner's while a plan is laid out
  uint16_t keySize = 0;     // bytes compared and hashed
  uint16_t dataSize = 0;    // as the descriptor tells it
  uint32_t recordSize = 0;  // bytes of one stored entry, what a walk delivers
  uint32_t searchOffset =
      0;  // where in the record the address that TbmTblSearch delivers points (8 for table 24)
  // Bytes that are stored behind each record and that walks do not deliver: what pointers in the record lead
  // to. They come and go with their entry.
  uint32_t attachedSize = 0;
  uint32_t capacity = 0;  // entries
  uint32_t groupRuleSpec = 0;
  uint8_t groupKeySize =
      0;  // entries whose keys begin with the same so many bytes are walked together; 0: none
  Lookup lookup = Lookup::kUnique;
  bool enabled = true;
  // Where in a record its aging time stands, and its bytes. Clients may set it to 0, which ends the entry (a
  // session reset does); 0 bytes: clients change nothing in this table.
  uint32_t agingOffset = 0;
  uint8_t agingSize = 0;

  bool ClientWritable() const { return agingSize != 0; }
  // Bytes of an entry as it is written.
  uint32_t StoredSize() const { return recordSize + attachedSize; }
};

}  // namespace qdt::host

#endif  // HOST_ARENA_TABLE_SPEC_H_
