#ifndef HOST_QUERY_OWN_RECORDS_H_
#define HOST_QUERY_OWN_RECORDS_H_

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "host/layout/layout.h"

namespace qdt::host {

// Makes the records of views that show no table's entries, in the form that their layouts describe, from what
// their searches deliver, or in its place from what their formats ask the table manager.
class OwnRecords {
 public:
  // `show` gets each record.
  OwnRecords(const Layout &layout, const ViewLayout &view, std::function<void(const uint8_t *record)> show);

  // Whether the view's search delivers nothing, and its records come from elsewhere.
  bool StandAlone() const { return maker_ != nullptr && maker_->alone != nullptr; }
  // Shows the records of such a view; 0, or a code.
  int32_t ShowAlone();
  // Shows the records of a batch; 0, or a code.
  int32_t Show(std::span<const uint8_t> batch);
  // Whether something did not fit a record.
  bool IsCut() const { return cut_; }

 private:
  struct Maker {
    uint32_t view;
    int32_t (OwnRecords::*alone)();
    int32_t (OwnRecords::*batch)(std::span<const uint8_t> batch);
  };
  static const Maker kMakers[];

  int32_t TableMemory();
  int32_t RuleCapacity();
  int32_t RateLimits(std::span<const uint8_t> batch);
  int32_t PolicyRule(std::span<const uint8_t> batch);

  void Set(std::string_view path, uint64_t value);
  void SetText(const FieldRef &field, std::string_view text);
  void ShowOne();

  const Layout &layout_;
  const ViewLayout &view_;
  const uint32_t size_;
  const std::function<void(const uint8_t *record)> show_;
  const Maker *maker_ = nullptr;
  std::vector<uint8_t> record_;
  bool cut_ = false;
};

}  // namespace qdt::host

#endif  // HOST_QUERY_OWN_RECORDS_H_
