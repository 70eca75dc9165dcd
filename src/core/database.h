// The device configuration database, which the camera's daemons share. Each statement is its own transaction,
// except inside a Transaction. The schema is the device's: the service reads and writes rows and never
// creates tables.
#pragma once

#include <sys/types.h>

#include <ctime>

#include "core/connection.h"
#include "core/rows.h"

namespace psia {

/// The service's connections. A lock held by a daemon is waited for up to 1.05 s per statement, then the
/// statement fails. How statements are written is said at Connection.
class Database {
 public:
  Database() = default;
  ~Database() = default;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  Database(Database&&) = delete;
  Database& operator=(Database&&) = delete;

  /// Opens the database file `path`; false when that fails, and nothing is left open.
  [[nodiscard]] bool open(const char* path);

  /// Call before the accounts are read: notices when the path leads to another file than the open one (it was
  /// moved there, or a link was pointed elsewhere), and opens that. Forgets what SQLite keeps of a file that
  /// was written to meanwhile: SQLite itself takes a copied file with the same change counter for the old
  /// one. False when there is another file and it cannot be opened. Then nobody may be let in. Where there is
  /// no file the open one stays in use. Costs a stat(2).
  [[nodiscard]] bool follow_file();
  /// Opens the file at the path anew, for one that was copied over the old one and can no longer be read.
  /// False when it cannot be opened; the old one then stays open. Does nothing while the connection is
  /// closed.
  bool open_again();

  /// Runs a statement that reads.
  [[nodiscard]] Rows query(const char* format, ...) __attribute__((format(printf, 2, 3)));

  /// Runs a statement that writes; false when it failed. Changing no row is success.
  [[nodiscard]] bool execute(const char* format, ...) __attribute__((format(printf, 2, 3)));

  /// Runs "update system set uuid='%s'" with `identifier` on the configuration database and, over a second
  /// connection that then stays open until the service ends, on the factory defaults database. When the
  /// defaults database could be opened the connection to the *configuration* database is closed, and every
  /// later statement fails until the service is started again: a camera that has just been given its identity
  /// is meant to be restarted before it is used.
  void store_identifier(const char* identifier);

 private:
  friend class Transaction;
  enum class TransactionState { kNone, kExpected, kOpen, kFailed };
  /// What stat(2) tells of a file; no file has an inode of 0.
  struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    timespec changed{};    // when it was written to
    bool settled = false;  // a later write would show in `changed`
  };
  [[nodiscard]] FileState file_state() const;
  [[nodiscard]] bool begin_expected_transaction();
  /// Fails the rest of a list whose statement, with this SQLite result, waited for a lock in vain.
  void take_result(int result);

  const char* path_ = nullptr;
  FileState file_;  // of the open file, when it was last looked at
  Connection connection_;
  Connection defaults_;          // closed until an identifier was stored
  bool waited_in_vain_ = false;  // for a lock, since rows were last read
  TransactionState transaction_ = TransactionState::kNone;
};

/// Makes one transaction of all that Database::execute runs while this lives, because each transaction waits
/// for the medium several times. A statement that fails is left out, the others are stored. When the
/// transaction itself fails, nothing is stored, and the statements after the failure fail, too. So do all
/// statements after one that waited for a lock in vain before the transaction began: a list must not wait
/// once an item. Must not live while a control message is sent: the daemons need the database.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();  // commits unless commit() was called
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  Transaction(Transaction&&) = delete;
  Transaction& operator=(Transaction&&) = delete;

  /// Stores what was executed; false when nothing is stored of it. Further statements are transactions of
  /// their own again.
  [[nodiscard]] bool commit();

 private:
  Database& database_;
};

}  // namespace psia
