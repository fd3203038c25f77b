#include <optional>
#include <string>

#include "host/answers/documents.h"
#include "host/base/host_error.h"
#include "host/base/numbers.h"
#include "host/inspect/explain.h"
#include "host/inspect/parts.h"
#include "host/layout/value_text.h"
#include "host/record/record_rows.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::ExplainStep;
using host::HostError;
using host::Quoted;

bool IsPlain(host::ValueForm form) {
  return form == host::ValueForm::kNumber || form == host::ValueForm::kText;
}

// " valid=1 fake=0 dmac=02:00:5e:30:00:01": addresses and references only where there is one.
void AppendShown(const ExplainStep &step, std::string *line) {
  const host::RecordBytes &record = *step.found;
  for (std::string_view paths = step.shows; !paths.empty();) {
    std::string_view path = paths.substr(0, paths.find(','));
    paths.remove_prefix(std::min(path.size() + 1, paths.size()));
    const bool notZero = path.ends_with('?');
    if (notZero) path.remove_suffix(1);
    for (const host::Leaf &leaf : LeavesAt(*step.table, path)) {
      const uint8_t *bytes = leaf.inKey ? record.key : record.record;
      if (!HasLeaf(record, leaf) || !leaf.IsInUse(bytes)) continue;
      if ((notZero || !IsPlain(FormOf(leaf.ref.kind))) && leaf.ref.Read(bytes) == 0) continue;
      *line += " " + leaf.path + "=";
      if (leaf.ref.kind == host::FieldKind::kReference) {
        AppendReference(record.source.Resolve(leaf.field->targets, leaf.ref.Get(bytes)), line);
      } else {
        AppendValue(&record.source, leaf.ref, bytes, line);
      }
    }
  }
}

// "vpn=0 next_hop=192.0.2.1", "source|destination=192.0.2.1"
void AppendAsked(const ExplainStep &step, std::string *line) {
  for (size_t i = 0; i < step.asked.size(); ++i) {
    const ExplainStep::Asked &asked = step.asked[i];
    const bool isLast = i + 1 == step.asked.size();
    *line += asked.field;
    if (step.anyOf && !isLast) {
      *line += '|';
      continue;
    }
    *line += '=';
    *line += host::ValueText(asked.ref, asked.value);
    if (!isLast) *line += ' ';
  }
}

// "  MAC entry  ssw_macinfo  mac=02:00:5e:30:00:01  ->  bridge_id=1 vlan_id=10 mac=02:00:5e:30:00:01:
// static=0", with two blanks more for each step that led there, and a note in brackets behind it.
void AppendStep(const ExplainStep &step, std::string *line) {
  line->assign(2 * step.depth, ' ');
  *line += step.step;
  *line += "  ";
  *line += step.table->shortName;
  *line += "  ";
  AppendAsked(step, line);
  *line += "  ->  ";
  if (step.found == nullptr) {
    *line += "nothing";
  } else {
    AppendNamedKey(*step.table, step.found->key, line);
    std::string shown;
    AppendShown(step, &shown);
    if (!shown.empty()) *line += ":" + shown;
  }
  if (!step.note.empty()) *line += "  [" + step.note + "]";
  *line += '\n';
}

uint64_t PrintLines(StandardOut *out, const host::RecordSource &source, const host::ExplainRequest &request) {
  std::string line;
  const uint64_t count = ExplainAddress(source, request, [&](const ExplainStep &step) {
    AppendStep(step, &line);
    out->Append(line);
  });
  return count;
}

uint32_t ReadVpn(std::string_view word) {
  constexpr std::string_view kName = "vpn=";
  std::optional<uint64_t> vpn;
  if (word.starts_with(kName)) vpn = host::ReadNumber(word.substr(kName.size()));
  if (!vpn || *vpn > UINT16_MAX)
    throw HostError(Quoted(word) + " is no VPN (write vpn=N, with N from 0 to 65535)");
  return static_cast<uint32_t>(*vpn);
}

}  // namespace

ExitCode Explain(const DataWords &words) {
  if (words.words.empty() || words.words.size() > 2)
    throw HostError("explain takes an IPv4, IPv6 or MAC address, and vpn=N where that is not 0");
  const std::string &address = words.words.front();
  host::ExplainRequest request{host::SearchValue(address)};
  if (!request.address.IsAddress())
    throw HostError(Quoted(address) +
                    " is no IPv4, IPv6 or MAC address (\"nqecli find\" looks for other values)");
  if (words.words.size() == 2) request.vpn = ReadVpn(words.words.back());
  if (words.limit != UINT64_MAX) request.limit = words.limit;
  const auto source = OpenSource(words.place);
  uint64_t count = 0;
  WriteWhole([&](StandardOut *out) {
    count = words.format == host::RecordFormat::kJson
                ? host::WriteExplainDocument(out, *source, address, request)
                : PrintLines(out, *source, request);
  });
  return count != 0 ? kAnswered : kFailed;
}

}  // namespace qdt::nqecli
