#ifndef HOST_PACKET_NEEDED_TABLE_H_
#define HOST_PACKET_NEEDED_TABLE_H_

#include <string>
#include <string_view>

#include "host/base/host_error.h"
#include "host/layout/layout.h"

namespace qdt::host {

// A table that captured packets are looked up in. Throws HostError when the layouts have none.
inline const TableLayout &NeededTable(const Layout &layout, std::string_view name) {
  const TableLayout *table = layout.FindTable(name);
  if (table != nullptr && table->spec.dataSize != 0) return *table;
  throw HostError("the layouts have no table " + std::string(name) + ", which captured packets need");
}

inline FieldRef KeyField(const TableLayout &table, std::string_view name) {
  const Field *field = table.key.Find(name);
  if (field != nullptr) return field->ref;
  throw HostError(std::string(table.place) + ": the key of " + std::string(table.shortName) +
                  " has no field " + std::string(name) + ", which captured packets need");
}

}  // namespace qdt::host

#endif  // HOST_PACKET_NEEDED_TABLE_H_
