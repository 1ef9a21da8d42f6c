// Every measured box of the station, kept in an SQLite database in a folder
// of its own with each box's proof picture beside it. A record is committed
// to disk before add() returns, so that whatever was reported survives the
// process being killed; the schema carries a version for later migrations.
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "service/measurement_record.h"

namespace boxdim::service {

// The history cannot be opened, read or written; the message names the file
// and the reason (e.g. "boxdim-data/history.sqlite3: database or disk is full").
class HistoryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct HistoryQuery {
  std::optional<std::int64_t> after_id;       // only ids above this
  std::optional<std::int64_t> since_time_us;  // only those measured at or after this
  int limit = 100;
};

class MeasurementHistory {
 public:
  // The schema this build writes; an older one is migrated on opening, a
  // newer one refused.
  static constexpr int kSchemaVersion = 1;
  static constexpr const char* kDatabaseName = "history.sqlite3";
  static constexpr const char* kProofFolder = "proofs";

  // Opens or creates the history in `folder` (created when missing), and
  // holds the folder for this process alone: a second history on it, in
  // this process or another, is refused while this one lives. Record ids go
  // on above every proof picture already in the folder, so that a history
  // started anew never writes over an earlier one's pictures.
  // `max_pages` bounds the database's size in pages, as a nearly full disk
  // would (for tests); 0 leaves it unbounded.
  explicit MeasurementHistory(const std::string& folder, int max_pages = 0);
  ~MeasurementHistory();
  MeasurementHistory(const MeasurementHistory&) = delete;
  MeasurementHistory& operator=(const MeasurementHistory&) = delete;

  // Stores the record with its proof picture (PNG bytes; empty: none) and
  // returns it with its id. The proof is written before the record is
  // committed, never over an existing file; a proof that cannot be written
  // leaves the record without one and says why in `proof_problem`. Throws
  // HistoryError when the record cannot be committed, or when the database
  // file was removed or replaced since it was opened.
  MeasurementRecord add(MeasurementRecord record, const std::vector<unsigned char>& proof_png,
                        std::string* proof_problem = nullptr);

  // Newest first: the newest `limit` records, or with an id or a time to
  // start from, the first `limit` after it, so that a client catching up
  // page by page misses none.
  std::vector<MeasurementRecord> list(const HistoryQuery& query) const;
  std::optional<MeasurementRecord> find(std::int64_t id) const;
  std::int64_t count() const;
  // The proof picture's path, when the record has one.
  std::optional<std::string> proof_path(std::int64_t id) const;
  // SQLite's own check of the database file: "ok" when it is sound.
  std::string integrity_check() const;
  // Why the database file on disk is no longer the one this history holds
  // (removed, or replaced by another file); "" while it is.
  std::string file_problem() const;

  const std::string& database_path() const { return database_path_; }

 private:
  [[noreturn]] void fail(const std::string& what) const;
  void execute(const char* sql) const;

  // Holds the folder's lock file, and the next id above its proof pictures.
  void lock_folder();
  void continue_ids_above_proofs();

  std::string folder_;
  std::string database_path_;
  sqlite3* db_ = nullptr;
  int lock_fd_ = -1;
  // The database file's identity when opened.
  dev_t device_ = 0;
  ino_t inode_ = 0;
  mutable std::mutex mutex_;  // one connection, used from the web server's threads too
};

}  // namespace boxdim::service
