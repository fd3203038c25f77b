#include "tests/views_data/view_map.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/base/host_error.h"

namespace qdt::host {
namespace {

class MapFile {
 public:
  explicit MapFile(const std::filesystem::path &path) : name_(path.filename().string()), in_(path) {}

  void Read(std::vector<MapView> *views) {
    for (std::string line; std::getline(in_, line);) {
      ++number_;
      if (line.empty() || line[0] == '#') continue;
      if (line[0] == '|') {
        View(views).lines.push_back({Pieces(line.substr(1)), Place()});
        continue;
      }
      const std::string word = line.substr(0, line.find(' '));
      Take(word, line.substr(std::min(word.size() + 1, line.size())), views);
    }
  }

 private:
  std::string Place() const { return name_ + ":" + std::to_string(number_); }
  [[noreturn]] void Fail(const std::string &what) const { throw HostError(Place() + ": " + what); }

  MapView &View(std::vector<MapView> *views) const {
    if (views->empty()) Fail("a view has to be named first");
    return views->back();
  }

  void Take(const std::string &word, const std::string &rest, std::vector<MapView> *views) {
    if (word == "view") {
      MapView view;
      std::istringstream(rest) >> view.id >> view.name;
      view.place = Place();
      views->push_back(std::move(view));
    } else if (word == "table") {
      View(views).table = rest;
    } else if (word == "none") {
      View(views).reason = rest;
    } else if (word == "key") {
      View(views).cases.push_back({Words(rest), {}});
    } else if (word == "query") {
      if (View(views).cases.empty()) Fail("a query without the key that it is for");
      View(views).cases.back().query = Words(rest);
    } else if (word == "hidden" || word == "steers" || word == "beyond") {
      const size_t dashes = rest.find(" -- ");
      if (dashes == rest.npos) Fail("a field is hidden without a reason (" + word + " PATH ... -- REASON)");
      for (const std::string &path : Words(rest.substr(0, dashes)))
        (word == "beyond" ? View(views).beyond : View(views).hidden)
            .push_back({path, rest.substr(dashes + 4), word == "steers"});
    } else {
      Fail("unknown word " + word);
    }
  }

  static std::vector<std::string> Words(const std::string &text) {
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
  }

  // "  Prefix  :  {prefix}".
  std::vector<MapPiece> Pieces(std::string_view line) const {
    std::vector<MapPiece> pieces;
    while (!line.empty()) {
      const size_t open = std::min(line.find('{'), line.size());
      if (open > 0) pieces.push_back({MapPiece::Kind::kLiteral, std::string(line.substr(0, open)), ""});
      line.remove_prefix(open);
      if (line.empty()) break;
      const size_t close = line.find('}');
      if (close == line.npos) Fail("a { without its }");
      pieces.push_back(Inside(line.substr(1, close - 1)));
      line.remove_prefix(close + 1);
    }
    return pieces;
  }

  // "prefix", "mask %08x", "# %2d", "? the engine's clock".
  MapPiece Inside(std::string_view text) const {
    if (text.starts_with("? ")) return {MapPiece::Kind::kOther, std::string(text.substr(2)), ""};
    const size_t blank = std::min(text.find(' '), text.size());
    MapPiece piece{MapPiece::Kind::kValue, std::string(text.substr(0, blank)), ""};
    if (blank < text.size()) piece.how = text.substr(blank + 1);
    if (piece.text == "#" || piece.text == "#1") piece.kind = MapPiece::Kind::kIndex;
    if (piece.text.empty() || piece.text == "?") Fail("nothing stands between { and }");
    return piece;
  }

  std::string name_;
  std::ifstream in_;
  int number_ = 0;
};

std::vector<MapView> ReadMaps(const std::string &folder) {
  std::vector<std::filesystem::path> files;
  for (const auto &file : std::filesystem::directory_iterator(folder)) {
    if (file.path().extension() == ".txt") files.push_back(file.path());
  }
  std::ranges::sort(files);
  std::vector<MapView> views;
  for (const auto &file : files) MapFile(file).Read(&views);
  return views;
}

}  // namespace

const std::vector<MapView> &Maps() {
  static const std::vector<MapView> maps = ReadMaps(QDT_SOURCE_DIR "/tests/views_data/maps");
  return maps;
}

}  // namespace qdt::host
