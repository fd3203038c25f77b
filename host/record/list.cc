#include "host/record/list.h"

#include <algorithm>
#include <functional>

#include "host/base/host_error.h"
#include "host/layout/value_text.h"

namespace qdt::host {
namespace {

// What a record is sorted by, and where it is found again.
struct Sorted {
  WideValue number = 0;
  std::string text;
  tbm::Place place;
};

// IPv4 addresses before MAC addresses before IPv6 addresses, each kind in its own order.
std::string AddressInOrder(const FieldRef &field, const uint8_t *bytes) {
  const FieldRef is = NarrowAddressIn(field, bytes);
  const WideValue value = is.Read(bytes);
  std::string text(1, static_cast<char>(is.size));
  for (int shift = 120; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift);
  return text;
}

// The value by which the records are sorted.
std::vector<Leaf> SortLeaf(const ListRequest &request) {
  const std::string_view path = std::string_view(request.sort).substr(request.sort.starts_with('-') ? 1 : 0);
  std::vector<Leaf> leaves = LeavesAt(*request.table, path);
  if (leaves.size() != 1)
    throw HostError("--sort " + Quoted(request.sort) + " is not one value (name an element or field)");
  return leaves;
}

class List {
 public:
  List(const RecordSource &source, const ListRequest &request, RecordSink *sink, ListResult *result)
      : source_(source), request_(request), sink_(sink), reader_(source, *request.table), result_(*result) {
    for (const Condition &condition : request.where) condition.CheckReference(source.layout());
    if (!request.sort.empty() && sink != nullptr) {
      leaf_ = SortLeaf(request);
      descending_ = request.sort.starts_with('-');
    }
  }

  void Run() {
    if (sink_ != nullptr) sink_->Begin();
    try {
      leaf_.empty() ? Walk([this] { return Show(); }) : Sort();
    } catch (const HostError &error) {
      if (sink_ != nullptr) sink_->Fail(error.what());
      throw;
    }
    if (sink_ != nullptr) sink_->End(result_.count, result_.truncated);
  }

 private:
  // Calls `take` with each wanted entry in the reader, until it returns false.
  void Walk(const std::function<bool()> &take) {
    const std::optional<std::vector<uint8_t>> key = WholeKey(*request_.table, request_.where);
    const bool many = request_.table->spec.lookup == Lookup::kMany;
    if (key && !many) {
      if (reader_.Find(key->data()) && IsBehind() && IsWanted()) take();
      return;
    }
    if (request_.behind && leaf_.empty() && !key) reader_.GoBehind(request_.behind->serial);
    const uint32_t groupKeySize = request_.table->spec.groupKeySize;
    std::optional<std::vector<uint8_t>> group;
    if (groupKeySize != 0) group = BeginOfKey(*request_.table, request_.where, groupKeySize);
    while (key     ? reader_.NextOfKey(key->data())
           : group ? reader_.NextOfGroup(group->data())
                   : reader_.Next()) {
      if (IsBehind() && IsWanted() && !take()) return;
    }
  }

  // Of entries that share a key the walk begins anew for each page, there are few of them.
  bool IsBehind() const {
    return !request_.behind || !leaf_.empty() || reader_.entry().place.serial > request_.behind->serial;
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
    result_.last.serial = reader_.entry().place.serial;
    return true;
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
    if (leaf.ref.kind == FieldKind::kAddress) {
      sorted.text = AddressInOrder(leaf.ref, bytes);
      return sorted;
    }
    sorted.number = leaf.ref.Read(bytes);
    // The later, the fewer seconds ago; and the same on the next page, a moment later.
    if (IsTimeAgo(leaf.ref.kind)) sorted.number = UINT64_MAX - sorted.number;
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
    Sorted behind;
    if (request_.behind) {
      behind.number = request_.behind->number;
      behind.text = request_.behind->text;
      behind.place.serial = request_.behind->serial;
    }
    Walk([&] {
      Sorted sorted = KeyOf();
      if (request_.behind && !Before(behind, sorted)) return true;
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
    if (!kept.empty()) result_.last = {kept.back().place.serial, kept.back().number, kept.back().text};
  }

  const RecordSource &source_;
  const ListRequest &request_;
  RecordSink *const sink_;
  EntryReader reader_;
  std::vector<Leaf> leaf_;  // what is sorted by
  bool descending_ = false;
  ListResult &result_;
};

void AppendHex(WideValue number, std::string *text) {
  char digits[32];
  size_t count = 0;
  do {
    digits[count++] = "0123456789abcdef"[static_cast<size_t>(number & 15)];
    number >>= 4;
  } while (number != 0);
  while (count != 0) *text += digits[--count];
}

// Takes digits from the beginning of the text, at most `most`; false when there are none or more.
bool TakeHex(std::string_view *text, size_t most, WideValue *number) {
  *number = 0;
  size_t count = 0;
  for (; !text->empty() && text->front() != '.'; text->remove_prefix(1)) {
    const char c = text->front();
    const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    if (digit < 0 || ++count > most) return false;
    *number = *number << 4 | static_cast<WideValue>(digit);
  }
  return count != 0;
}

}  // namespace

std::string ListPosition::Text() const {
  std::string all;
  AppendHex(serial, &all);
  if (number == 0 && text.empty()) return all;
  all += '.';
  AppendHex(number, &all);
  if (text.empty()) return all;
  all += '.';
  for (const char c : text) {
    all += "0123456789abcdef"[static_cast<uint8_t>(c) >> 4];
    all += "0123456789abcdef"[static_cast<uint8_t>(c) & 15];
  }
  return all;
}

std::optional<ListPosition> ListPosition::Parse(std::string_view text) {
  ListPosition position;
  WideValue serial = 0;
  if (!TakeHex(&text, 16, &serial)) return std::nullopt;
  position.serial = static_cast<uint64_t>(serial);
  if (text.empty()) return position;
  text.remove_prefix(1);
  if (!TakeHex(&text, 32, &position.number)) return std::nullopt;
  if (text.empty()) return position;
  text.remove_prefix(1);
  for (; !text.empty(); text.remove_prefix(2)) {
    std::string_view digits = text.substr(0, 2);
    WideValue byte = 0;
    if (digits.size() != 2 || !TakeHex(&digits, 2, &byte) || !digits.empty()) return std::nullopt;
    position.text += static_cast<char>(byte);
  }
  return position;
}

void CheckSort(const ListRequest &request) { SortLeaf(request); }

ListResult RunList(const RecordSource &source, const ListRequest &request, RecordSink *sink) {
  ListResult result;
  RunList(source, request, sink, &result);
  return result;
}

void RunList(const RecordSource &source, const ListRequest &request, RecordSink *sink, ListResult *result) {
  List(source, request, sink, result).Run();
}

}  // namespace qdt::host
