// The camera's settings: the database that the service and the daemons share, and the one with the factory
// defaults. Reports which rows have changed, and whether a file is an export of the settings.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;

namespace camera {

constexpr const char* kDatabase = "/usr/local/orvid/morvid.db";
constexpr const char* kDefaultsDatabase = "/usr/local/orvid/conf/default.db";

/// Lets the functions below work on this machine's own files, outside a private device. For camera-daemons
/// alone, which runs on boards.
void use_settings_of_this_machine();

/// Runs one or more statements. Returns an empty text, or what the database says.
[[nodiscard]] std::string execute(const std::string& sql, const char* database = kDatabase);

/// The rows of a select, each value as text (NULL as an empty one). No rows also when it fails.
[[nodiscard]] std::vector<std::vector<std::string>> query(const std::string& sql,
                                                          const char* database = kDatabase);

/// Creates both databases in their factory state, in place of those that were there. The settings come last,
/// because start scripts wait for them. Returns an empty text or the fault.
[[nodiscard]] std::string create_settings();

/// Replaces all rows of the settings by those of the defaults database. Returns an empty text or the fault.
[[nodiscard]] std::string restore_factory_rows();

/// Checks that a file is an export of these settings: an undamaged SQLite database with the same tables and
/// columns. Returns an empty text or the reason why it is not.
[[nodiscard]] std::string check_export(const std::string& path);

/// Replaces all rows of the settings by those of an export. Returns an empty text, or the fault; the settings
/// have then not changed.
[[nodiscard]] std::string import_settings(const std::string& path);

/// Reports which rows have changed: "Network.NTPServer: pool.ntp.org -> 10.0.0.1". Of a password it reports
/// only that it changed.
class SettingsWatch {
 public:
  /// Begins with the settings as they are now. Only after create_settings; a later create_settings needs a
  /// new object.
  SettingsWatch();
  SettingsWatch(const SettingsWatch&) = delete;
  SettingsWatch(SettingsWatch&&) = delete;
  SettingsWatch& operator=(const SettingsWatch&) = delete;
  SettingsWatch& operator=(SettingsWatch&&) = delete;
  ~SettingsWatch();

  /// What changed since the last call.
  [[nodiscard]] std::vector<std::string> changes();

  /// All rows as JSON without the passwords: {"Network":[{"IPAddress":"...",...}],...}.
  [[nodiscard]] std::string json() const;

 private:
  using Row = std::vector<std::pair<std::string, std::string>>;  // column and value
  using Table = std::map<std::string, Row>;                      // by key
  [[nodiscard]] std::map<std::string, Table> read() const;
  static void compare(const std::string& table, const Table& before, const Table& after,
                      std::vector<std::string>& changes);

  sqlite3* database_ = nullptr;
  std::string version_;
  std::map<std::string, Table> tables_;
};

}  // namespace camera
