#include "simulator/device/settings.h"

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "factory_sql.h"
#include "schema_sql.h"
#include "simulator/device/device.h"
#include "simulator/tools/text.h"

namespace camera {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxValue = 100;   // characters shown of a value
constexpr std::size_t kMaxChanges = 60;  // lines shown of one change

bool on_board = false;

using Rows = std::vector<std::vector<std::pair<std::string, std::string>>>;  // column and value

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};

int append_row(void* rows, int count, char** values, char** names) {
  auto& row = static_cast<Rows*>(rows)->emplace_back();
  for (int i = 0; i < count; i++)
    row.emplace_back(names[i], values[i] != nullptr ? values[i] : "");
  return 0;
}

// Runs the statements and appends their rows. Returns an empty text or the fault.
std::string run_sql(const std::string& sql, const char* path, int flags, Rows& rows) {
  if (!inside_private_device() && !on_board) return kOutsideDevice;
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path, &opened, flags, nullptr);
  const std::unique_ptr<sqlite3, CloseDatabase> database(opened);
  if (result != SQLITE_OK) return std::string("Cannot open ") + path;
  sqlite3_busy_timeout(database.get(), 1000);
  if (sqlite3_exec(database.get(), sql.c_str(), append_row, &rows, nullptr) != SQLITE_OK) {
    return std::string(path) + ": " + sqlite3_errmsg(database.get());
  }
  return "";
}

Rows select_rows(sqlite3* database, const std::string& sql) {
  Rows rows;
  if (sqlite3_exec(database, sql.c_str(), append_row, &rows, nullptr) != SQLITE_OK) rows.clear();
  return rows;
}

std::string create_database(const std::string& path, const std::string& individual) {
  std::error_code ignored;
  for (const char* suffix : {"", "-journal", "-wal", "-shm"})
    fs::remove(path + suffix, ignored);
  std::ofstream(path, std::ios::binary | std::ios::trunc).close();
  return execute(
      std::string("pragma synchronous=off; begin;") + kSchemaSql + kFactorySql + individual + "commit;",
      path.c_str());
}

// All tables by name, with their columns in the order of their definition.
constexpr const char* kColumns =
    "select t.name, c.name from sqlite_master t, pragma_table_info(t.name) c where t.type = 'table' "
    "order by t.name, c.cid";

std::string replace_rows(const std::string& source) {
  std::string sql = "pragma trusted_schema=off; attach '" + source + "' as source; begin immediate;";
  for (const std::vector<std::string>& table : query("select name from sqlite_master where type='table'")) {
    sql += "delete from main." + table[0] + ";insert into main." + table[0] + " select * from source." +
           table[0] + ";";
  }
  return execute(sql + "commit;");
}

std::string shown(const std::string& value) {
  return value.size() > kMaxValue ? value.substr(0, kMaxValue) + "..." : value;
}

}  // namespace

std::string execute(const std::string& sql, const char* database) {
  Rows rows;
  return run_sql(sql, database, SQLITE_OPEN_READWRITE, rows);
}

std::vector<std::vector<std::string>> query(const std::string& sql, const char* database) {
  Rows rows;
  if (!run_sql(sql, database, SQLITE_OPEN_READWRITE, rows).empty()) return {};
  std::vector<std::vector<std::string>> values;
  for (auto& row : rows) {
    auto& line = values.emplace_back();
    for (auto& [name, value] : row)
      line.push_back(std::move(value));
  }
  return values;
}

void use_settings_of_this_machine() {
  on_board = true;
}

std::string create_settings() {
  const Identity& own = own_identity();
  const std::string individual = "update Network set IPAddress='" + own.address + "', Gateway='" +
                                 own.gateway + "', DDNSHostname='" + own.name + "';update System set uuid='" +
                                 own.device_id + "';";
  for (const char* path : {kDefaultsDatabase, kDatabase}) {
    std::string fault = create_database(path, individual);
    if (!fault.empty()) return fault;
  }
  return "";
}

std::string restore_factory_rows() {
  return replace_rows(kDefaultsDatabase);
}

std::string check_export(const std::string& path) {
  Rows verdict;
  Rows columns;
  Rows own;
  if (!run_sql("pragma trusted_schema=off; pragma quick_check(1)", path.c_str(), SQLITE_OPEN_READONLY,
               verdict)
           .empty() ||
      verdict.empty()) {
    return "it is no SQLite database";
  }
  if (verdict.back()[0].second != "ok") return "the database is damaged";
  if (!run_sql(kColumns, path.c_str(), SQLITE_OPEN_READONLY, columns).empty() ||
      !run_sql(std::string(kSchemaSql) + kColumns, ":memory:", SQLITE_OPEN_READWRITE, own).empty() ||
      columns != own) {
    return "its tables are not those of this camera";
  }
  return "";
}

std::string import_settings(const std::string& path) {
  std::string fault = check_export(path);
  return fault.empty() ? replace_rows(path) : fault;
}

SettingsWatch::SettingsWatch() {
  sqlite3_open_v2(kDatabase, &database_, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_busy_timeout(database_, 1000);
  const std::vector<std::string> known = changes();
}

SettingsWatch::~SettingsWatch() {
  sqlite3_close(database_);
}

std::map<std::string, SettingsWatch::Table> SettingsWatch::read() const {
  std::map<std::string, Table> tables;
  for (const auto& found : select_rows(database_, "select name from sqlite_master where type='table'")) {
    const std::string& name = found[0].second;
    const Rows key = select_rows(database_, "select name from pragma_table_info('" + name + "') where pk=1");
    Table& table = tables[name];
    for (auto& row : select_rows(database_, "select * from \"" + name + "\"")) {
      const std::string id =
          key.empty() ? (table.empty() ? "" : std::to_string(table.size())) : row[0].second;
      table.emplace(id, std::move(row));
    }
  }
  return tables;
}

// The key of a table is its first column.
void SettingsWatch::compare(const std::string& table, const Table& before, const Table& after,
                            std::vector<std::string>& changes) {
  const auto place = [&table](const std::string& key) {
    return key.empty() ? table : table + "[" + key + "]";
  };
  for (const auto& [key, row] : before) {
    const auto now = after.find(key);
    if (now == after.end()) {
      changes.push_back(place(key) + " removed");
      continue;
    }
    for (std::size_t i = 0; i < row.size() && i < now->second.size(); i++) {
      const auto& [column, value] = row[i];
      if (value == now->second[i].second) continue;
      const std::string cell = place(key) + "." + column + ": ";
      changes.push_back(column == "Password" ? cell + "changed, not shown"
                                             : cell + shown(value) + " -> " + shown(now->second[i].second));
    }
  }
  for (const auto& [key, row] : after) {
    if (before.count(key) > 0) continue;
    std::string line = place(key) + " added:";
    for (const auto& [column, value] : row) {
      if (column != "Password" && value != key && !value.empty()) line += " " + column + " " + shown(value);
    }
    changes.push_back(line);
  }
}

std::vector<std::string> SettingsWatch::changes() {
  const Rows version = select_rows(database_, "pragma data_version");
  const std::string now = version.empty() ? "" : version[0][0].second;
  if (!now.empty() && now == version_) return {};
  auto tables = read();
  std::vector<std::string> changes;
  for (const auto& [name, rows] : tables)
    compare(name, tables_[name], rows, changes);
  version_ = now;
  tables_ = std::move(tables);
  if (changes.size() > kMaxChanges) {
    const std::size_t more = changes.size() - kMaxChanges;
    changes.resize(kMaxChanges);
    changes.push_back("and " + std::to_string(more) + " more");
  }
  return changes;
}

std::string SettingsWatch::json() const {
  std::string tables;
  for (const auto& [name, rows] : tables_) {
    std::string list;
    for (const auto& [key, row] : rows) {
      std::string object;
      for (const auto& [column, value] : row) {
        if (column == "Password") continue;
        object += (object.empty() ? "" : ",") + json_text(column) + ":" + json_text(value);
      }
      list += (list.empty() ? "{" : ",{") + object + "}";
    }
    tables += (tables.empty() ? "" : ",") + json_text(name) + ":[" + list + "]";
  }
  return "{" + tables + "}";
}

}  // namespace camera
