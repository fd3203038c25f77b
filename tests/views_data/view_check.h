#ifndef TESTS_VIEWS_DATA_VIEW_CHECK_H_
#define TESTS_VIEWS_DATA_VIEW_CHECK_H_

#include <rapidjson/document.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/views_data/view_map.h"
#include "tests/views_data/view_stage.h"

namespace qdt::host {

// Holds texts of one view against the record as data, line by line, as the map says, and keeps in mind what
// was seen.
class ViewCheck {
 public:
  // `shown` outlives the check. `stage` has what the texts show of other records.
  ViewCheck(const MapView &view, const Shown &shown, const ViewStage &stage);

  // Empty when each line of `text` says what `json` says; else what is wrong first.
  std::string Hold(const std::string &text, const std::string &json);

  // How many different values of the field at each path have been found in texts.
  size_t Seen(const std::string &path) const;
  // Lines of the map that no text has had yet.
  std::vector<std::string> Unused() const;

 private:
  using Captures = std::vector<std::string_view>;

  const MapLine *FindLine(std::string_view line, const rapidjson::Document &record, Captures *captures);
  bool Applies(const MapLine &line, const rapidjson::Document &record) const;
  static bool Fits(const MapLine &line, std::string_view text, Captures *captures);
  std::string HoldLine(const MapLine &line, const Captures &captures, const rapidjson::Document &record);
  std::string HoldPiece(const MapPiece &piece, std::string_view shown, const rapidjson::Document &record);
  bool IsBeyond(const std::string &path);
  void TakeNext(const std::string &text, size_t at, const rapidjson::Document &record, std::string *path);
  std::string Expected(const MapPiece &piece, const std::string &path, const rapidjson::Document &record);
  std::optional<std::string> Other(const std::string &name, const std::vector<std::string> &key,
                                   const std::string &path, const std::string &how) const;
  std::optional<std::string> Referred(const std::string &path, const rapidjson::Document &record,
                                      const std::string &how);
  std::string Sum(const std::string &pattern, const std::string &how, const rapidjson::Document &record);
  const Field *FieldAt(const std::string &path);

  const MapView &view_;
  const Shown &shown_;
  const ViewStage &stage_;
  std::map<std::string, const Field *> fields_;
  std::map<std::string, std::set<std::string>> seen_;
  std::set<const MapLine *> used_;
  size_t next_ = 0;                         // line of the map behind the one that was found last
  uint32_t index_ = 0;                      // number of the element that the lines are about: [i]
  std::map<std::string, uint32_t> passed_;  // elements of arrays that lines have read, by path
};

// Whether a * in the pattern stands for any characters that make it the path.
bool IsLike(std::string_view pattern, std::string_view path);

}  // namespace qdt::host

#endif  // TESTS_VIEWS_DATA_VIEW_CHECK_H_
