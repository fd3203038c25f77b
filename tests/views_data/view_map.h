#ifndef TESTS_VIEWS_DATA_VIEW_MAP_H_
#define TESTS_VIEWS_DATA_VIEW_MAP_H_

#include <string>
#include <vector>

namespace qdt::host {

// What maps/*.txt say of the views' texts; README.md has the language.

// A piece of a line of text.
struct MapPiece {
  enum class Kind {
    kLiteral,  // `text` itself
    kValue,    // a value: the field at the path `text`, written as `how` says
    kIndex,    // the number of the array's element that the line is about, written as `how` says
    kOther,    // what no field of the record says; `text` is the reason
  };
  Kind kind = Kind::kLiteral;
  std::string text;
  std::string how;
};

struct MapLine {
  std::vector<MapPiece> pieces;
  std::string place;  // FILE:LINE
};

// Fields whose values the text does not show, as a pattern with * for any characters.
struct MapHidden {
  std::string path;
  std::string reason;
  bool steers = false;  // the text changes with it all the same
};

// An entry that the test fills, and how the view is asked for it.
struct MapCase {
  std::vector<std::string> key;    // FIELD=VALUE
  std::vector<std::string> query;  // the diag command's four words
};

struct MapView {
  uint32_t id = 0;
  std::string name;
  std::string table;  // or region whose record is shown; empty when none is: then `reason` says why
  std::string reason;
  std::vector<MapCase> cases;
  std::vector<MapLine> lines;
  std::vector<MapHidden> hidden;
  std::vector<MapHidden> beyond;  // elements that the text shows and the array does not have
  std::string place;
};

// All views of maps/, read once. Throws HostError with the place of what is wrong.
const std::vector<MapView> &Maps();

}  // namespace qdt::host

#endif  // TESTS_VIEWS_DATA_VIEW_MAP_H_
