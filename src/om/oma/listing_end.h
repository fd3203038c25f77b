#ifndef SRC_OM_OMA_LISTING_END_H_
#define SRC_OM_OMA_LISTING_END_H_

#include <cstdint>

#include "src/om/common/log.h"
#include "src/om/common/text.h"
#include "src/om/oma/request.h"

namespace qdt {

// Room of an answer that lists sessions or server maps.
constexpr uint32_t kListingRoom = 20480;

// What a printer returns of a text that does not fit; tells the log.
inline int32_t FailPrint() {
  QDT_LOG_ERROR("Sprintf failed, ret=%d\n", kFailed);
  return kFailed;
}

// The end of a listing, where a printer adds its text. A listing is a structure with the fields `text`,
// `capacity` and `length`, as exported printers are handed it.
template <typename Listing>
class ListingEnd {
 public:
  explicit ListingEnd(Listing *listing) : listing_(*listing), begin_(listing->length) {}
  ListingEnd(const ListingEnd &) = delete;
  ListingEnd &operator=(const ListingEnd &) = delete;

  // Adds all of the text or nothing. False, with a log line, when there is no room.
  template <format::Format F, typename... Args>
  bool Print(Args... args) {
    Text text(listing_.text + listing_.length, Room());
    text.Print<F>(args...);
    return Add(text);
  }

  // What a printer returns whose prints all went well, or did not: the bytes that it has added, or -1. What
  // it added before the failure is taken back, so that a full listing ends with a whole line.
  int32_t Result(bool printed) {
    if (printed) return static_cast<int32_t>(listing_.length - begin_);
    listing_.length = begin_;
    if (Room() != 0) listing_.text[begin_] = '\0';
    return kFailed;
  }

 private:
  uint32_t Room() const {
    return listing_.length < listing_.capacity ? listing_.capacity - listing_.length : 0;
  }

  // Not part of Print, so that there is one of it.
  [[gnu::noinline]] bool Add(const Text &text) {
    if (text.failed()) {
      FailPrint();
      return false;
    }
    listing_.length += text.size();
    return true;
  }

  Listing &listing_;
  uint32_t begin_;
};

}  // namespace qdt

#endif  // SRC_OM_OMA_LISTING_END_H_
