// nqecli-sql: nqecli's companion for questions in SQL. It has a process of its own because it uses threads,
// and so that the tool itself stays small and starts at once.

#include <glob.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/layout/value_text.h"
#include "host/record/csv_out.h"
#include "host/record/row_text.h"
#include "host/sql/sql.h"
#include "host/wire/paths.h"
#include "tools/nqecli/attach.h"
#include "tools/nqecli/data_words.h"

namespace qdt::nqecli {
namespace {

using host::HostError;
using host::Quoted;
using host::RecordFormat;

// The tables' texts are escaped already; only what a statement made up itself may need it.
std::string Printable(std::string_view text) {
  std::string escaped;
  host::AppendEscaped(text, &escaped);
  const bool harmless = escaped.size() == text.size() + static_cast<size_t>(std::ranges::count(text, '\\'));
  return harmless ? std::string(text) : escaped;
}

// The answer to one statement: names once, then rows.
class RowWriter {
 public:
  RowWriter(RecordFormat format, sqlite3_stmt *statement, StandardOut *out)
      : format_(format), statement_(statement), out_(*out), json_(*out) {
    std::set<std::string> seen;
    for (int i = 0; i < sqlite3_column_count(statement); ++i) {
      const std::string given = Printable(sqlite3_column_name(statement, i));
      // Two columns of one name are two members of an object.
      std::string name = given;
      for (int number = 2; !seen.insert(name).second; ++number) name = given + "_" + std::to_string(number);
      names_.push_back(std::move(name));
    }
  }

  void Begin() {
    if (format_ == RecordFormat::kJson) {
      json_.StartObject();
      host::JsonKey(&json_, "rows");
      json_.StartArray();
    } else if (format_ == RecordFormat::kCsv) {
      CsvLine(names_);
    }
  }

  void Row() {
    ++count_;
    switch (format_) {
      case RecordFormat::kJson:
        return Object(&json_);
      case RecordFormat::kJsonLines: {
        host::JsonWriter line(out_);
        Object(&line);
        return out_.Put('\n');
      }
      case RecordFormat::kCsv: {
        std::vector<std::string> cells;
        for (size_t i = 0; i < names_.size(); ++i) cells.push_back(Text(i));
        return CsvLine(cells);
      }
      default:
        return Columns();
    }
  }

  void End() {
    if (format_ == RecordFormat::kJson) {
      json_.EndArray();
      host::JsonKey(&json_, "count");
      json_.Uint64(count_);
      json_.EndObject();
      out_.Put('\n');
    } else if (format_ == RecordFormat::kColumns) {
      ShowFirst();
    }
    out_.Spill();
  }

  // Leaves nothing behind that looks whole.
  void Fail(const std::string &message) {
    if (format_ == RecordFormat::kJsonLines) {
      host::JsonWriter line(out_);
      line.StartObject();
      host::JsonKey(&line, "error");
      host::JsonEscaped(&line, message);
      line.EndObject();
      out_.Put('\n');
    } else if (format_ == RecordFormat::kCsv) {
      CsvLine({"#error: " + message});
    } else if (format_ == RecordFormat::kColumns) {
      ShowFirst();
    } else {
      out_.Put('\n');
    }
    out_.Spill();
  }

 private:
  static constexpr size_t kMeasured = 256;

  // Bytes that are no UTF-8 come out of statements as well (CAST(x'ff' AS TEXT)).
  std::string Text(size_t i) const {
    const int column = static_cast<int>(i);
    const auto *bytes = static_cast<const char *>(sqlite3_column_blob(statement_, column));
    const std::string_view text(bytes == nullptr ? "" : bytes,
                                static_cast<size_t>(sqlite3_column_bytes(statement_, column)));
    switch (sqlite3_column_type(statement_, column)) {
      case SQLITE_NULL:
        return "";
      case SQLITE_BLOB: {
        std::string hex;
        char digits[4];
        for (const char c : text) {
          std::snprintf(digits, sizeof(digits), "%02x", static_cast<uint8_t>(c));
          hex += digits;
        }
        return hex;
      }
      case SQLITE_TEXT:
        return Printable(text);
      default:
        return reinterpret_cast<const char *>(sqlite3_column_text(statement_, column));
    }
  }

  void Object(host::JsonWriter *json) {
    json->StartObject();
    for (size_t i = 0; i < names_.size(); ++i) {
      host::JsonKey(json, names_[i]);
      const int column = static_cast<int>(i);
      switch (sqlite3_column_type(statement_, column)) {
        case SQLITE_NULL:
          json->Null();
          break;
        case SQLITE_INTEGER:
          json->Int64(sqlite3_column_int64(statement_, column));
          break;
        case SQLITE_FLOAT:
          // Not every number has a form in JSON.
          if (const double number = sqlite3_column_double(statement_, column); std::isfinite(number)) {
            json->Double(number);
          } else {
            json->Null();
          }
          break;
        default:
          host::JsonText(json, Text(i));
      }
    }
    json->EndObject();
  }

  void CsvLine(const std::vector<std::string> &cells) {
    host::CsvOut csv(&out_);
    for (const std::string &cell : cells) csv.Cell(cell);
    csv.EndLine();
  }

  void Columns() {
    std::vector<std::string> cells;
    for (size_t i = 0; i < names_.size(); ++i) {
      cells.push_back(Text(i));
      if (first_.empty() && !shown_)
        isNumber_.push_back(sqlite3_column_type(statement_, static_cast<int>(i)) == SQLITE_INTEGER);
    }
    if (shown_) return host::AppendRow(cells, widths_, isNumber_, names_.size(), &out_);
    first_.push_back(std::move(cells));
    if (first_.size() == kMeasured) ShowFirst();
  }

  void ShowFirst() {
    if (std::exchange(shown_, true) || first_.empty()) return;
    widths_ = host::WidthsOf(names_, first_);
    host::AppendRow(names_, widths_, isNumber_, names_.size(), &out_);
    for (const auto &cells : first_) host::AppendRow(cells, widths_, isNumber_, names_.size(), &out_);
    first_.clear();
  }

  const RecordFormat format_;
  sqlite3_stmt *const statement_;
  StandardOut &out_;
  host::JsonWriter json_;
  std::vector<std::string> names_;
  uint64_t count_ = 0;
  std::vector<std::vector<std::string>> first_;
  std::vector<size_t> widths_;
  std::vector<bool> isNumber_;
  bool shown_ = false;
};

// Other databases are out of reach, and so are settings that are no question. Statements that write are
// refused as a whole, see Connection::Run: SQLite asks here as well when it declares a table of ours.
int Authorize(void *, int action, const char *first, const char *second, const char *, const char *) {
  static constexpr std::string_view kAsking[] = {"table_info",    "table_xinfo",   "module_list",
                                                 "function_list", "pragma_list",   "compile_options",
                                                 "table_list",    "collation_list"};
  switch (action) {
    case SQLITE_ATTACH:
    case SQLITE_DETACH:
      return SQLITE_DENY;
    case SQLITE_FUNCTION:
      return std::strcmp(second, "load_extension") == 0 ? SQLITE_DENY : SQLITE_OK;
    case SQLITE_PRAGMA:
      return std::ranges::find(kAsking, first) != std::end(kAsking) ? SQLITE_OK : SQLITE_DENY;
    default:
      return SQLITE_OK;
  }
}

constexpr char kOnlyReading[] = "only reading is possible here (SELECT, or PRAGMA table_xinfo(TABLE))";

class Connection {
 public:
  explicit Connection(std::shared_ptr<host::ArenaSet> arenas) {
    if (sqlite3_open(":memory:", &handle_) != SQLITE_OK || AddEngineTables(handle_, arenas) != SQLITE_OK)
      throw HostError(std::string("cannot start SQLite: ") + sqlite3_errmsg(handle_));
    sqlite3_set_authorizer(handle_, Authorize, nullptr);
    // A statement that asks for more than this would not end in this life.
    sqlite3_limit(handle_, SQLITE_LIMIT_LENGTH, 256 << 20);
  }
  ~Connection() { sqlite3_close(handle_); }
  Connection(const Connection &) = delete;

  // Runs the statements one after the other, up to the first that fails, which is thrown as HostError.
  void Run(const std::string &text, RecordFormat format) {
    // SQLite takes it for the end.
    if (text.find('\0') != text.npos)
      throw HostError("the statements have a byte 0 in them, which is no character of SQL");
    const char *rest = text.c_str();
    bool any = false;
    while (*rest != '\0') {
      sqlite3_stmt *statement = nullptr;
      if (sqlite3_prepare_v2(handle_, rest, -1, &statement, &rest) != SQLITE_OK) Fail();
      if (statement == nullptr) continue;  // blanks and remarks
      any = true;
      const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)> owner(statement, sqlite3_finalize);
      if (sqlite3_stmt_readonly(statement) == 0) throw HostError(kOnlyReading);
      RunOne(statement, format);
    }
    if (!any)
      throw HostError("no statement (write nqecli sql \"SELECT ...\", or statements on standard input)");
  }

 private:
  void RunOne(sqlite3_stmt *statement, RecordFormat format) {
    StandardOut out;
    RowWriter rows(format, statement, &out);
    int code = sqlite3_step(statement);
    // A statement that cannot even begin has no answer.
    if (code != SQLITE_ROW && code != SQLITE_DONE) Fail();
    rows.Begin();
    for (; code == SQLITE_ROW; code = sqlite3_step(statement)) rows.Row();
    if (code != SQLITE_DONE) {
      const std::string message = Message();
      rows.Fail(message);
      throw HostError(message);
    }
    rows.End();
  }

  std::string Message() const {
    if (sqlite3_errcode(handle_) == SQLITE_AUTH) return kOnlyReading;
    std::string message = Printable(sqlite3_errmsg(handle_));
    constexpr std::string_view kNoTable = "no such table: ";
    if (message.starts_with(kNoTable)) {
      // "main.fib" names the same.
      const size_t name = std::max(kNoTable.size(), message.rfind('.') + 1);
      const std::string nearest = host::NearestSqlTable(message.substr(name));
      message += nearest.empty() ? "; \"nqecli sql --schema\" lists them" : "; did you mean " + nearest + "?";
    }
    if (message == "no query solution")
      message += "; match has to be compared by = with a value that is known before (name its table first)";
    return message;
  }
  [[noreturn]] void Fail() const { throw HostError(Message()); }

  sqlite3 *handle_ = nullptr;
};

// Whether the words stand for many files; a file that is called just so is this one file.
bool IsPattern(const std::string &words) {
  return words.find_first_of("*?[") != words.npos && access(words.c_str(), F_OK) != 0;
}

std::vector<std::string> FilesOf(const std::string &pattern) {
  if (!IsPattern(pattern)) return {pattern};
  glob_t found = {};
  std::vector<std::string> files;
  if (glob(pattern.c_str(), 0, nullptr, &found) == 0)
    files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  globfree(&found);
  if (files.empty()) throw HostError("no file fits " + Quoted(pattern));
  return files;
}

std::string ReadStatements() {
  std::string text;
  char part[65536];
  ssize_t size;
  while ((size = read(STDIN_FILENO, part, sizeof(part))) > 0) text.append(part, static_cast<size_t>(size));
  if (size < 0) throw host::SystemError("cannot read the statements from standard input");
  return text;
}

constexpr char kHelp[] =
    "usage: nqecli [--arena PATH | --snapshot FILE] sql [--json|--ndjson|--csv|--column] [--frozen] "
    "[STATEMENTS]\n"
    "       nqecli sql --schema [TABLE]\n"
    "\n"
    "Asks the engine's tables in SQL; without STATEMENTS they are read from standard input.\n"
    "\n"
    "options:\n"
    "  --json, --ndjson, --csv, --column\n"
    "                       the form of the answer; columns unless told otherwise\n"
    "  --frozen             answer from one moment of a running engine\n"
    "  --schema [TABLE]     the tables as SQL\n";

constexpr char kMoreHelp[] =
    "  With --snapshot 'DIR/*.snapshot' many saved arenas are read, whose names stand in the column arena.\n"
    "\n"
    "examples:\n"
    "  nqecli sql \"SELECT next_hop, dmac FROM arp WHERE valid = 1\"\n"
    "  nqecli sql --schema arp\n"
    "\n"
    "exit codes: 0 an answer, 2 bad usage, no engine, or a statement that failed\n";

struct Words {
  Place place;
  RecordFormat format = RecordFormat::kColumns;
  bool frozen = false;
  bool schema = false;
  bool help = false;
  std::vector<std::string> plain;
};

Words ReadWords(host::Arguments arguments) {
  Words words;
  const auto take = [&] {
    words.plain.emplace_back(arguments.front());
    arguments.Take(arguments.front());
  };
  while (!arguments.empty()) {
    if (arguments.Take("--")) {
      while (!arguments.empty()) take();
    } else if (arguments.Take("--json")) {
      SetFormat(&words.format, "--json", RecordFormat::kJson);
    } else if (arguments.Take("--ndjson")) {
      SetFormat(&words.format, "--ndjson", RecordFormat::kJsonLines);
    } else if (arguments.Take("--csv")) {
      SetFormat(&words.format, "--csv", RecordFormat::kCsv);
    } else if (arguments.Take("--column")) {
      SetFormat(&words.format, "--column", RecordFormat::kColumns);
    } else if (arguments.Take("--frozen")) {
      words.frozen = true;
    } else if (arguments.Take("--schema")) {
      words.schema = true;
    } else if (arguments.Take("--help")) {
      words.help = true;
    } else if (!TakePlace(&arguments, &words.place)) {
      // A statement may begin with a comment.
      if (arguments.front().starts_with("--") &&
          arguments.front().find_first_of(" \t\n") == std::string_view::npos)
        throw HostError("unknown option " + Quoted(arguments.front()) + "; try --help");
      take();
    }
  }
  return words;
}

ExitCode Sql(host::Arguments arguments) {
  Words words = ReadWords(arguments);
  if (words.help) return Print(kHelp + PlaceHelp() + kMoreHelp);
  TakeEnvironment(&words.place);
  if (words.plain.size() > 1) throw HostError("sql takes one text of statements; put it between quotes");
  const bool many = IsPattern(words.place.snapshot);
  if (words.schema) return Print(host::SqlSchema(words.plain.empty() ? "" : words.plain.front(), many));
  const std::vector<std::string> files =
      words.place.saved() ? FilesOf(words.place.snapshot) : std::vector<std::string>{};
  const auto arenas = std::make_shared<host::ArenaSet>(many);
  for (const std::string &file : files) arenas->Add(host::SnapshotAt(file));
  if (files.empty())
    arenas->Add(
        host::EngineAt(words.place.arena.empty() ? host::DefaultArena() : words.place.arena, words.frozen));
  Connection(arenas).Run(words.plain.empty() ? ReadStatements() : words.plain.front(), words.format);
  return kAnswered;
}

}  // namespace
}  // namespace qdt::nqecli

int main(int argc, char **argv) { return qdt::nqecli::RunTool(argc, argv, qdt::nqecli::Sql); }
