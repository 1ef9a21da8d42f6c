#include "service/measurement_history.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

namespace boxdim::service {
namespace {

namespace fs = std::filesystem;

// A prepared statement, finalised however the scope is left.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    rc_ = sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr);
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  bool prepared() const { return rc_ == SQLITE_OK; }
  sqlite3_stmt* get() const { return stmt_; }

 private:
  sqlite3_stmt* stmt_ = nullptr;
  int rc_ = SQLITE_ERROR;
};

MeasurementRecord record_of(sqlite3_stmt* row) {
  MeasurementRecord r;
  r.id = sqlite3_column_int64(row, 0);
  r.time_us = sqlite3_column_int64(row, 1);
  r.device_id = sqlite3_column_int(row, 2);
  r.track_id = sqlite3_column_int(row, 3);
  r.length_mm = sqlite3_column_double(row, 4);
  r.width_mm = sqlite3_column_double(row, 5);
  r.height_mm = sqlite3_column_double(row, 6);
  r.uncertainty_mm = sqlite3_column_double(row, 7);
  r.frames = sqlite3_column_int(row, 8);
  r.has_proof = sqlite3_column_int(row, 9) != 0;
  return r;
}

constexpr const char* kColumns =
    "id, time_us, device_id, track_id, length_mm, width_mm, height_mm, uncertainty_mm, frames, "
    "has_proof";

// Writes the whole file and flushes it to the disk, so that a committed
// record never points at a proof that a crash lost; an existing file is
// left as it is. False with errno set.
bool write_durably(const std::string& path, const std::vector<unsigned char>& bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const int saved = n == 0 ? ENOSPC : errno;
      ::close(fd);
      errno = saved;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  if (::fsync(fd) != 0) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return false;
  }
  return ::close(fd) == 0;
}

// The highest id among the proof pictures' names ("<id>.png"); 0 for none.
std::int64_t highest_proof_id(const fs::path& proofs) {
  std::int64_t highest = 0;
  std::error_code ec;
  for (fs::directory_iterator it(proofs, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.size() < 5 || name.size() > 23 || name.compare(name.size() - 4, 4, ".png") != 0) {
      continue;
    }
    const std::string digits = name.substr(0, name.size() - 4);
    if (!std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      continue;
    }
    try {
      highest = std::max<std::int64_t>(highest, std::stoll(digits));
    } catch (const std::out_of_range&) {
    }
  }
  return highest;
}

}  // namespace

MeasurementHistory::MeasurementHistory(const std::string& folder, int max_pages)
    : folder_(folder), database_path_((fs::path(folder) / kDatabaseName).string()) {
  std::error_code ec;
  fs::create_directories(fs::path(folder) / kProofFolder, ec);
  if (ec) throw HistoryError(folder + ": cannot be created (" + ec.message() + ")");
  lock_folder();
  if (sqlite3_open_v2(database_path_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                      nullptr) != SQLITE_OK) {
    const std::string reason = db_ ? sqlite3_errmsg(db_) : "out of memory";
    sqlite3_close(db_);
    db_ = nullptr;
    ::close(lock_fd_);
    throw HistoryError(database_path_ + ": cannot be opened (" + reason + ")");
  }
  try {
    sqlite3_busy_timeout(db_, 5000);
    // WAL with full synchronisation: a commit is on the disk when it returns,
    // and readers never wait for the writer.
    execute("PRAGMA journal_mode = WAL");
    execute("PRAGMA synchronous = FULL");
    if (max_pages > 0) {
      execute(("PRAGMA max_page_count = " + std::to_string(max_pages)).c_str());
    }
    int version = 0;
    {
      Statement read(db_, "PRAGMA user_version");
      if (!read.prepared() || sqlite3_step(read.get()) != SQLITE_ROW) fail("cannot be read");
      version = sqlite3_column_int(read.get(), 0);
    }
    if (version > kSchemaVersion) {
      throw HistoryError(database_path_ + ": written by a newer boxdim (schema version " +
                         std::to_string(version) + "; this one knows up to " +
                         std::to_string(kSchemaVersion) + ")");
    }
    if (version == 0) {
      execute(
          "BEGIN IMMEDIATE;"
          "CREATE TABLE IF NOT EXISTS measurements ("
          " id INTEGER PRIMARY KEY AUTOINCREMENT,"
          " time_us INTEGER NOT NULL,"
          " device_id INTEGER NOT NULL,"
          " track_id INTEGER NOT NULL,"
          " length_mm REAL NOT NULL,"
          " width_mm REAL NOT NULL,"
          " height_mm REAL NOT NULL,"
          " uncertainty_mm REAL NOT NULL,"
          " frames INTEGER NOT NULL,"
          " has_proof INTEGER NOT NULL DEFAULT 0);"
          "CREATE INDEX IF NOT EXISTS measurements_by_time ON measurements (time_us);"
          "PRAGMA user_version = 1;"
          "COMMIT;");
    }
    continue_ids_above_proofs();
    struct stat file;
    if (::stat(database_path_.c_str(), &file) != 0) fail("cannot be found after opening");
    device_ = file.st_dev;
    inode_ = file.st_ino;
  } catch (...) {
    sqlite3_close(db_);
    db_ = nullptr;
    ::close(lock_fd_);
    throw;
  }
}

MeasurementHistory::~MeasurementHistory() {
  sqlite3_close(db_);
  ::close(lock_fd_);
}

void MeasurementHistory::lock_folder() {
  // A lock on a file of the folder's own, taken for the life of this
  // history: the system lets it go when the process ends, however it ends.
  const std::string path = (fs::path(folder_) / "history.lock").string();
  lock_fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lock_fd_ < 0) throw HistoryError(path + ": cannot be opened (" + std::strerror(errno) + ")");
  if (::flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    ::close(lock_fd_);
    lock_fd_ = -1;
    if (error != EWOULDBLOCK) {
      throw HistoryError(path + ": cannot be locked (" + std::strerror(error) + ")");
    }
    std::string holder;
    std::getline(std::ifstream(path), holder);
    throw HistoryError(folder_ + ": in use by another boxdim" +
                       (holder.empty() ? std::string() : " (process " + holder + ")") +
                       "; one service keeps one data folder");
  }
  // Who holds it, for the message a second one gives.
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(lock_fd_, 0) == 0) {
    [[maybe_unused]] const ssize_t written = ::pwrite(lock_fd_, pid.data(), pid.size(), 0);
  }
}

void MeasurementHistory::continue_ids_above_proofs() {
  const std::int64_t highest = highest_proof_id(fs::path(folder_) / kProofFolder);
  if (highest == 0) return;
  // AUTOINCREMENT hands out ids above its sequence; a database made anew
  // beside an earlier one's pictures starts above them.
  Statement read(db_, "SELECT seq FROM sqlite_sequence WHERE name = 'measurements'");
  if (!read.prepared()) fail("cannot be read");
  const int rc = sqlite3_step(read.get());
  if (rc == SQLITE_ROW && sqlite3_column_int64(read.get(), 0) >= highest) return;
  const std::string set = rc == SQLITE_ROW
                              ? "UPDATE sqlite_sequence SET seq = " + std::to_string(highest) +
                                    " WHERE name = 'measurements'"
                              : "INSERT INTO sqlite_sequence (name, seq) VALUES ('measurements', " +
                                    std::to_string(highest) + ")";
  execute(set.c_str());
}

std::string MeasurementHistory::file_problem() const {
  struct stat file;
  if (::stat(database_path_.c_str(), &file) != 0) {
    return database_path_ +
           ": was removed while the service ran; nothing more is stored until "
           "it starts again";
  }
  if (file.st_dev != device_ || file.st_ino != inode_) {
    return database_path_ +
           ": was replaced while the service ran; nothing more is stored until "
           "it starts again";
  }
  return "";
}

void MeasurementHistory::fail(const std::string& what) const {
  throw HistoryError(database_path_ + ": " + what + " (" + sqlite3_errmsg(db_) + ")");
}

void MeasurementHistory::execute(const char* sql) const {
  char* message = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
    const std::string reason = message ? message : sqlite3_errmsg(db_);
    sqlite3_free(message);
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    throw HistoryError(database_path_ + ": " + reason);
  }
}

MeasurementRecord MeasurementHistory::add(MeasurementRecord record,
                                          const std::vector<unsigned char>& proof_png,
                                          std::string* proof_problem) {
  const std::lock_guard<std::mutex> lock(mutex_);
  // Stored into a file nobody can read any more, a record would be lost.
  if (const std::string problem = file_problem(); !problem.empty()) throw HistoryError(problem);
  execute("BEGIN IMMEDIATE");
  {
    Statement insert(db_,
                     "INSERT INTO measurements (time_us, device_id, track_id, length_mm, "
                     "width_mm, height_mm, uncertainty_mm, frames, has_proof) "
                     "VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0)");
    if (!insert.prepared()) {
      sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      fail("cannot be written");
    }
    sqlite3_stmt* s = insert.get();
    sqlite3_bind_int64(s, 1, record.time_us);
    sqlite3_bind_int(s, 2, record.device_id);
    sqlite3_bind_int(s, 3, record.track_id);
    sqlite3_bind_double(s, 4, record.length_mm);
    sqlite3_bind_double(s, 5, record.width_mm);
    sqlite3_bind_double(s, 6, record.height_mm);
    sqlite3_bind_double(s, 7, record.uncertainty_mm);
    sqlite3_bind_int(s, 8, record.frames);
    if (sqlite3_step(s) != SQLITE_DONE) {
      const std::string reason = sqlite3_errmsg(db_);
      sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      throw HistoryError(database_path_ + ": " + reason);
    }
  }
  record.id = sqlite3_last_insert_rowid(db_);
  record.has_proof = false;
  std::string problem;
  if (!proof_png.empty()) {
    const std::string path =
        (fs::path(folder_) / kProofFolder / (std::to_string(record.id) + ".png")).string();
    if (write_durably(path, proof_png)) {
      record.has_proof = true;
      Statement mark(db_, "UPDATE measurements SET has_proof = 1 WHERE id = ?");
      sqlite3_bind_int64(mark.get(), 1, record.id);
      if (!mark.prepared() || sqlite3_step(mark.get()) != SQLITE_DONE) record.has_proof = false;
    } else if (errno == EEXIST) {
      problem = path + ": already exists (an earlier history's picture), left as it is";
    } else {
      problem = path + ": cannot be written (" + std::strerror(errno) + ")";
      std::error_code ignored;
      fs::remove(path, ignored);
    }
  }
  execute("COMMIT");
  if (proof_problem) *proof_problem = problem;
  return record;
}

std::vector<MeasurementRecord> MeasurementHistory::list(const HistoryQuery& query) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  // From a starting point, the first ones after it; else the newest.
  const bool from_start = query.after_id || query.since_time_us;
  const std::string sql = std::string("SELECT ") + kColumns +
                          " FROM measurements WHERE id > ? AND time_us >= ?"
                          " ORDER BY id " +
                          (from_start ? "ASC" : "DESC") + " LIMIT ?";
  Statement select(db_, sql.c_str());
  if (!select.prepared()) fail("cannot be read");
  sqlite3_bind_int64(select.get(), 1, query.after_id.value_or(0));
  sqlite3_bind_int64(select.get(), 2, query.since_time_us.value_or(INT64_MIN));
  sqlite3_bind_int(select.get(), 3, query.limit);
  std::vector<MeasurementRecord> records;
  int rc;
  while ((rc = sqlite3_step(select.get())) == SQLITE_ROW)
    records.push_back(record_of(select.get()));
  if (rc != SQLITE_DONE) fail("cannot be read");
  if (from_start) std::reverse(records.begin(), records.end());
  return records;
}

std::optional<MeasurementRecord> MeasurementHistory::find(std::int64_t id) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::string sql = std::string("SELECT ") + kColumns + " FROM measurements WHERE id = ?";
  Statement select(db_, sql.c_str());
  if (!select.prepared()) fail("cannot be read");
  sqlite3_bind_int64(select.get(), 1, id);
  const int rc = sqlite3_step(select.get());
  if (rc == SQLITE_ROW) return record_of(select.get());
  if (rc != SQLITE_DONE) fail("cannot be read");
  return std::nullopt;
}

std::int64_t MeasurementHistory::count() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  Statement select(db_, "SELECT COUNT(*) FROM measurements");
  if (!select.prepared() || sqlite3_step(select.get()) != SQLITE_ROW) fail("cannot be read");
  return sqlite3_column_int64(select.get(), 0);
}

std::optional<std::string> MeasurementHistory::proof_path(std::int64_t id) const {
  const std::optional<MeasurementRecord> record = find(id);
  if (!record || !record->has_proof) return std::nullopt;
  // The name comes from the id alone: nothing a request says reaches the path.
  return (fs::path(folder_) / kProofFolder / (std::to_string(record->id) + ".png")).string();
}

std::string MeasurementHistory::integrity_check() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  Statement check(db_, "PRAGMA integrity_check");
  if (!check.prepared() || sqlite3_step(check.get()) != SQLITE_ROW) fail("cannot be checked");
  const unsigned char* text = sqlite3_column_text(check.get(), 0);
  return text ? reinterpret_cast<const char*>(text) : "";
}

}  // namespace boxdim::service
