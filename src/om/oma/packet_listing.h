#ifndef SRC_OM_OMA_PACKET_LISTING_H_
#define SRC_OM_OMA_PACKET_LISTING_H_

#include <cstdint>

#include "src/om/common/owned.h"

// What the listings of the packets that the engine holds have in common.
namespace qdt {

constexpr uint32_t kPacketListingRoom = 409600;

// A zeroed text of kPacketListingRoom bytes; null on failure.
inline OwnedText AllocatePacketListing(SourceLine where) {
  return AllocateZeroed<char>(where, kPacketListingRoom);
}

}  // namespace qdt

#endif  // SRC_OM_OMA_PACKET_LISTING_H_
