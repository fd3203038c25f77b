#ifndef SRC_OM_NQE_CLI_STATION_KEY_H_
#define SRC_OM_NQE_CLI_STATION_KEY_H_

#include "qdt/cli.h"
#include "src/om/engine/user.h"

namespace qdt {

// The key of the station whose MAC address the text is; false when it is none. What the key has behind the
// address is zero.
inline bool ParseStation(const char *text, StationKey &key) {
  key = {};
  return QdtCliStr2Mac(text, key.mac, sizeof(key.mac)) == 0;
}

}  // namespace qdt

#endif  // SRC_OM_NQE_CLI_STATION_KEY_H_
