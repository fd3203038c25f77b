#ifndef TOOLS_NQECLI_RECORDS_VIEW_QUERY_H_
#define TOOLS_NQECLI_RECORDS_VIEW_QUERY_H_

#include <array>
#include <string>
#include <vector>

#include "host/library/table_query.h"
#include "tools/nqecli/catalog.h"

namespace qdt::nqecli {

// What "show NAME KEYS..." asks for.
class ViewQuery {
 public:
  // Throws HostError when the words are no query of any view.
  explicit ViewQuery(const std::vector<std::string> &words);

  const TableInfo &view() const { return view_; }
  // Good as long as this lives and stays.
  host::TableQuery Ask() const;

 private:
  const TableInfo view_;
  const std::array<std::string, kKeyCount> keys_;
};

}  // namespace qdt::nqecli

#endif  // TOOLS_NQECLI_RECORDS_VIEW_QUERY_H_
