#include <memory>
#include <string>

#include "host/base/host_error.h"
#include "host/inspect/diff.h"
#include "tools/nqecli/data_commands.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::RecordSource;

constexpr std::string_view kLive = "live";

std::unique_ptr<RecordSource> OpenSide(const Place &place, const std::string &word) {
  Place side;
  side.arena = place.arena;
  if (word != kLive) side.snapshot = word;
  return OpenSource(side);
}

}  // namespace

ExitCode Diff(const DataWords &words) {
  if (words.words.size() < 2 || words.words[0].empty() || words.words[1].empty())
    throw HostError("diff takes two snapshots, or a snapshot and the word live; try --help");
  if (words.place.saved() && !words.place.fromEnvironment)
    throw HostError("diff names both its sides itself; leave --snapshot out");
  const host::Layout &layout = host::Layout::BuiltIn();
  host::DiffRequest request;
  if (words.words.size() == 2) request = host::DiffRequest::Whole(layout);
  for (size_t i = 2; i < words.words.size(); ++i) request.Add(layout, words.words[i]);
  if (words.counters) request.volatiles = host::Volatile::kCompared;

  const auto from = OpenSide(words.place, words.words[0]);
  const auto to = OpenSide(words.place, words.words[1]);
  StandardOut out;
  const bool isJson = words.format == host::RecordFormat::kJson;
  const auto sink = isJson ? host::MakeDiffJson(&out) : host::MakeDiffLines(&out);
  host::DiffResult result;
  try {
    result = host::RunDiff(*from, *to, request, sink.get());
  } catch (const HostError &) {
    out.Spill();
    throw;
  }
  out.Spill();
  WriteAside(result.aside);
  return result.count == 0 ? kAnswered : kFailed;
}

}  // namespace qdt::nqecli
