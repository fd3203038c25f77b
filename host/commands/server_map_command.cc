#include "host/commands/server_map_command.h"

#include <algorithm>

#include "host/base/host_error.h"
#include "host/engine/engine.h"
#include "platform/tbm.h"

namespace qdt::host {
namespace {

// Ages out the server maps that have an address.
struct Sweep {
  const TableLayout &table;
  const FieldRef type, agingTime;
  const uint32_t address;
};

// Whether one of the entry's addresses is the one; structures stand in it as its type says.
bool HasAddress(const Sweep &sweep, const FieldSet &fields, uint32_t base, const void *entry) {
  const uint64_t type = sweep.type.Get(entry);
  return std::any_of(fields.all().begin(), fields.all().end(), [&](const Field &field) {
    if (field.fields.empty())
      return field.ref.kind == FieldKind::kIpv4 && field.ref.At(base).Get(entry) == sweep.address;
    const auto &types = field.selectedBy;
    return std::find(types.begin(), types.end(), type) != types.end() &&
           HasAddress(sweep, field.fields, base + field.ref.offset, entry);
  });
}

// What an operator has configured stays: the NAT server's entries and the no-PAT entries that go with it.
bool IsConfigured(uint64_t type) {
  constexpr uint64_t kNatServer = 0, kNoPat = 1, kNatServerReverse = 14;
  return type == kNatServer || type == kNoPat || type == kNatServerReverse;
}

int32_t AgeOut(void *entry, void *context) {
  constexpr int32_t kGoOn = -9;
  const auto &sweep = *static_cast<const Sweep *>(context);
  if (!IsConfigured(sweep.type.Get(entry)) && HasAddress(sweep, sweep.table.fields, 0, entry))
    sweep.agingTime.WriteShared(entry, 0);
  return kGoOn;
}

uint32_t CountServerMaps() {
  uint32_t count = 0;
  return TbmTblEntryNum(0, kServerMapTable, &count) == 0 ? count : 0;
}

}  // namespace

std::string RunServerMapCommand(Engine &engine, std::span<const std::string> words) {
  if (words.size() != 3 || words[0] != "reset-server-map" || words[1] != "ip")
    throw HostError("server-map what? The engine knows: server-map reset-server-map ip ADDRESS");
  std::string problem;
  const auto address = ParseValue(FieldRef{0, 4, FieldKind::kIpv4}, words[2], &problem);
  if (!address) throw HostError("server-map reset-server-map ip: " + problem);
  const TableLayout &table = engine.layout().Table(kServerMapTable);
  Sweep sweep{table, table.At("type"), table.At("aging_time"), static_cast<uint32_t>(*address)};
  const uint32_t before = CountServerMaps();
  TbmTblTrav(0, kServerMapTable, AgeOut, &sweep);
  engine.AgeServerMaps();
  return "server maps reset: " + std::to_string(before - CountServerMaps()) + "\n";
}

}  // namespace qdt::host
