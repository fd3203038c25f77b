#include <set>
#include <sstream>

#include "host/sql/fact_module.h"
#include "host/sql/sql_columns.h"
#include "tests/sql/sql_fixture.h"

namespace qdt::host {
namespace {

// Names of all tables, as the module list has them.
std::vector<std::string> TableNames() {
  std::vector<std::string> names;
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    if (table.fields.empty()) continue;
    names.push_back(SqlTableName(table, ""));
    for (const RecordList &list : ListsOf(table)) names.push_back(SqlTableName(table, list.path));
  }
  for (const FactTable &table : FactTables()) names.push_back(table.name);
  return names;
}

std::string Quote(const std::string &name) { return "\"" + name + "\""; }

class TableTest : public CampusSqlTest {};

TEST_F(TableTest, EachIsThereOnceAndCanBeRead) {
  const std::vector<std::string> names = TableNames();
  EXPECT_GT(names.size(), 100u);
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
  for (const std::string &name : names) {
    const std::string rows = Ask("SELECT * FROM " + Quote(name));
    EXPECT_EQ(rows.find("error:"), std::string::npos) << name << ": " << rows;
    const std::string count = Ask("SELECT count(*) FROM " + Quote(name));
    EXPECT_EQ(count, std::to_string(std::ranges::count(rows, '\n')) + "\n") << name;
  }
}

TEST_F(TableTest, ColumnsAreThoseOfTheSchema) {
  for (const std::string &name : TableNames()) {
    // One line a column: ["  \"vpn\" INTEGER HIDDEN, -- meaning"].
    std::string schema;
    std::set<std::string> seen;
    std::istringstream lines(SqlSchema(name, false));
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with("  \"")) continue;
      const std::string column = line.substr(3, line.find('"', 3) - 3);
      const std::string rest = line.substr(column.size() + 5);
      schema += column + "|" + rest.substr(0, rest.find_first_of(", ")) +
                (rest.find(" HIDDEN") < rest.find("--") ? "|1\n" : "|0\n");
      EXPECT_TRUE(seen.insert(column).second) << name << "." << column;
    }
    EXPECT_EQ(Ask("SELECT name, type, hidden FROM pragma_table_xinfo('" + name + "')"), schema) << name;
    EXPECT_FALSE(schema.empty()) << name;
  }
}

TEST_F(TableTest, ListsAreThoseOfTheRecords) {
  for (const TableLayout &table : Layout::BuiltIn().tables()) {
    if (table.fields.empty()) continue;
    const RecordShape shape = RecordShape::Whole(table);
    std::vector<std::string> wanted;
    for (const RowColumn &row : ColumnsOf(shape, table.fields)) {
      const bool isReference = row.node->field->ref.kind == FieldKind::kReference;
      if (row.node->IsArray() && (row.node->IsStructure() || isReference)) wanted.push_back(row.path);
    }
    std::vector<std::string> lists;
    for (const RecordList &list : ListsOf(table)) lists.push_back(list.path);
    EXPECT_EQ(lists, wanted) << table.shortName;
  }
}

TEST_F(TableTest, Schema) {
  EXPECT_EQ(SqlSchema("nhp_fwdifs", true),
            "-- forwarding interfaces that packets leave by\n"
            "CREATE TABLE \"nhp_fwdifs\"(\n"
            "  \"arena\" TEXT, -- the arena that the row is from\n"
            "  \"index\" INTEGER, -- number of the next hop\n"
            "  \"element\" INTEGER, -- number of the element, from 0\n"
            "  \"reference\" TEXT, -- forwarding interfaces that packets leave by\n"
            "  \"reference_address\" INTEGER HIDDEN, -- address that reference holds\n"
            "  \"_address\" INTEGER HIDDEN -- where the entry lies, as references to it hold it\n"
            ");\n");
  EXPECT_THROW(
      try { SqlSchema("fibx", false); } catch (const HostError &error) {
        EXPECT_STREQ(error.what(), "unknown table \"fibx\" (did you mean fib?)");
        throw;
      },
      HostError);
  EXPECT_EQ(NearestSqlTable("nhp_l1_service"), "nhp_l1_services");
  EXPECT_EQ(NearestSqlTable("something else"), "");
}

TEST_F(TableTest, HiddenColumnsAreShownWhenTheyAreNamed) {
  EXPECT_EQ(Ask("SELECT * FROM fib WHERE prefix = 26 AND vpn = 0 AND destination = '192.0.2.64'"),
            "26|0|192.0.2.64|1|0|0|1|20|20|nhp/20\n");
  EXPECT_EQ(Ask("SELECT f.next_hop_address = n._address, n._address > 0, f._arena = n._arena FROM fib f "
                "JOIN nhp n ON n._address = f.next_hop_address WHERE f.nhp_index = 20 AND n.\"index\" = 20"),
            "1|1|1\n");
}

TEST_F(TableTest, NothingCanBeWritten) {
  EXPECT_EQ(Ask("INSERT INTO fib(vpn) VALUES (1)"), "error: table fib may not be modified");
  EXPECT_EQ(Ask("UPDATE nhp_l1_services SET type = 1"), "error: table nhp_l1_services may not be modified");
  EXPECT_EQ(Ask("DELETE FROM usage"), "error: table usage may not be modified");
  EXPECT_EQ(Ask("DROP TABLE fib"), "error: table fib may not be dropped");
}

TEST_F(TableTest, WithoutAnArenaTheyHaveNoRows) {
  Database database;
  const std::string wanted =
      "error: no arena is attached (SELECT nqe_attach('PATH'), or nqe_attach('PATH', 'frozen'))";
  EXPECT_EQ(database.Ask("SELECT * FROM fib"), wanted);
  EXPECT_EQ(database.Ask("SELECT * FROM fib WHERE match = '192.0.2.9'"), wanted);
  EXPECT_EQ(database.Ask("SELECT * FROM usage"), wanted);
}

}  // namespace
}  // namespace qdt::host
