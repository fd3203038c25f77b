#include "host/record/list.h"

#include <algorithm>
#include <functional>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

// What a record is sorted by, and where it is found again.
struct Sorted {
  WideValue number = 0;
  std::string text;
  tbm::Place place;
};

class List {
 public:
  List(const RecordSource &source, const ListRequest &request, RecordSink *sink)
      : source_(source), request_(request), sink_(sink), reader_(source, *request.table) {
    if (!request.sort.empty() && sink != nullptr) ReadSort(request.sort);
  }

  ListResult Run() {
    if (sink_ != nullptr) sink_->Begin();
    try {
      leaf_.empty() ? Walk([this] { return Show(); }) : Sort();
    } catch (const HostError &error) {
      if (sink_ != nullptr) sink_->Fail(error.what());
      throw;
    }
    if (sink_ != nullptr) sink_->End(result_.count, result_.truncated);
    return result_;
  }

 private:
  // Calls `take` with each wanted entry in the reader, until it returns false.
  void Walk(const std::function<bool()> &take) {
    const std::optional<std::vector<uint8_t>> key = WholeKey(*request_.table, request_.where);
    const bool many = request_.table->spec.lookup == Lookup::kMany;
    if (key && !many) {
      if (reader_.Find(key->data()) && IsWanted()) take();
      return;
    }
    const uint32_t groupKeySize = request_.table->spec.groupKeySize;
    std::optional<std::vector<uint8_t>> group;
    if (groupKeySize != 0) group = BeginOfKey(*request_.table, request_.where, groupKeySize);
    while (key     ? reader_.NextOfKey(key->data())
           : group ? reader_.NextOfGroup(group->data())
                   : reader_.Next()) {
      if (IsWanted() && !take()) return;
    }
  }

  bool IsWanted() const {
    const RecordBytes record(source_, reader_);
    return std::ranges::all_of(request_.where, [&](const Condition &wanted) { return wanted.Holds(record); });
  }

  bool Show() {
    if (result_.count == request_.limit) {
      result_.truncated = true;
      return false;
    }
    if (sink_ != nullptr) sink_->Record(RecordBytes(source_, reader_));
    ++result_.count;
    return true;
  }

  void ReadSort(std::string_view sort) {
    descending_ = sort.starts_with('-');
    leaf_ = LeavesAt(*request_.table, sort.substr(descending_ ? 1 : 0));
    if (leaf_.size() != 1)
      throw HostError("--sort " + Quoted(sort) + " is not one value (name an element or field)");
  }

  // A record that lacks the value comes before all that have it.
  Sorted KeyOf() const {
    const Leaf &leaf = leaf_.front();
    Sorted sorted;
    sorted.place = reader_.entry().place;
    if (leaf.part != nullptr &&
        (!reader_.Has(*leaf.part) || (leaf.part->pointer != 0 && reader_.IsStrayed(*leaf.part)))) {
      return sorted;
    }
    const uint8_t *bytes = leaf.inKey ? reader_.entry().key : reader_.entry().record;
    if (leaf.ref.kind == FieldKind::kText) {
      sorted.text = leaf.ref.GetText(bytes);
      return sorted;
    }
    sorted.number = leaf.ref.Read(bytes);
    if (IsTimeAgo(leaf.ref.kind)) sorted.number = source_.SecondsAgo(leaf.ref, sorted.number);
    // Below zero comes before zero.
    if (leaf.ref.kind == FieldKind::kSigned) sorted.number ^= WideValue{1} << 127;
    return sorted;
  }

  bool Before(const Sorted &a, const Sorted &b) const {
    const auto less = [](const Sorted &x, const Sorted &y) {
      return x.number != y.number ? x.number < y.number : x.text < y.text;
    };
    if (less(a, b)) return !descending_;
    if (less(b, a)) return descending_;
    return a.place.serial < b.place.serial;
  }

  // With a limit no more than that many records are kept, the last of them on top of a heap.
  void Sort() {
    std::vector<Sorted> kept;
    const auto before = [this](const Sorted &a, const Sorted &b) { return Before(a, b); };
    Walk([&] {
      Sorted sorted = KeyOf();
      if (kept.size() == request_.limit) {
        result_.truncated = true;
        if (kept.empty() || !Before(sorted, kept.front())) return !kept.empty();
        std::ranges::pop_heap(kept, before);
        kept.back() = std::move(sorted);
      } else {
        kept.push_back(std::move(sorted));
      }
      if (request_.limit != UINT64_MAX) std::ranges::push_heap(kept, before);
      return true;
    });
    std::ranges::sort(kept, before);
    for (const Sorted &sorted : kept) {
      // An entry that has gone since is no longer part of the answer.
      if (!reader_.Again(sorted.place)) continue;
      sink_->Record(RecordBytes(source_, reader_));
      ++result_.count;
    }
  }

  const RecordSource &source_;
  const ListRequest &request_;
  RecordSink *const sink_;
  EntryReader reader_;
  std::vector<Leaf> leaf_;  // what is sorted by
  bool descending_ = false;
  ListResult result_;
};

}  // namespace

ListResult RunList(const RecordSource &source, const ListRequest &request, RecordSink *sink) {
  return List(source, request, sink).Run();
}

}  // namespace qdt::host
