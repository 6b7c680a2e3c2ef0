// Files as rows of an SQLite database, each operation a transaction of its own. The bytes of a large file are a blob
// that is written and read in pieces; its row is inserted with zeros first, for a blob cannot grow.
#include <sqlite3.h>

#include <cstdio>

#include "bench/backend.h"

namespace bench {
namespace {

constexpr char kDatabase[] = "bench.sqlite";

class Sqlite : public Backend {
 public:
  explicit Sqlite(bool writeAheadLog) : writeAheadLog_(writeAheadLog) {}
  ~Sqlite() override { RemoveFiles(); }
  Sqlite(const Sqlite&) = delete;
  Sqlite& operator=(const Sqlite&) = delete;

  void FormatAndMount() override {
    RemoveFiles();
    Connect();
    Execute("PRAGMA page_size=4096");
    Configure();
    Execute("CREATE TABLE files (id INTEGER PRIMARY KEY, name TEXT UNIQUE NOT NULL, data BLOB NOT NULL)");
    Prepare();
  }
  void Mount() override {
    Connect();
    Configure();
    Prepare();
  }
  void Unmount() override {
    for (sqlite3_stmt* statement : {create_, lookUp_, rename_, delete_, list_}) sqlite3_finalize(statement);
    Check(sqlite3_close(database_), "closing");
  }

  void Create(const std::string& name) override { CreateWith(name, "", 0); }
  void CreateWith(const std::string& name, const void* bytes, size_t count) override {
    BindName(create_, 1, name);
    Check(sqlite3_bind_blob64(create_, 2, bytes, count, SQLITE_STATIC), "binding");
    Step(create_, SQLITE_DONE);
  }
  void LookUp(const std::string& name) override { IdOf(name); }
  void Rename(const std::string& from, const std::string& to) override {
    BindName(rename_, 1, to);
    BindName(rename_, 2, from);
    Step(rename_, SQLITE_DONE);
  }
  void Delete(const std::string& name) override {
    BindName(delete_, 1, name);
    Step(delete_, SQLITE_DONE);
  }
  size_t Enumerate() override {
    size_t files = 0;
    while (sqlite3_step(list_) == SQLITE_ROW) {
      Require(sqlite3_column_text(list_, 0) != nullptr && sqlite3_column_int64(list_, 1) >= 0, "listing");
      ++files;
    }
    Check(sqlite3_reset(list_), "listing");
    return files;
  }

  void OpenNew(const std::string& name, size_t size) override {
    BindName(create_, 1, name);
    Check(sqlite3_bind_zeroblob64(create_, 2, size), "binding");
    Step(create_, SQLITE_DONE);
    Open(name);
  }
  void Open(const std::string& name) override {
    Check(sqlite3_blob_open(database_, "main", "files", "data", IdOf(name), 1, &blob_), "opening");
    position_ = 0;
  }
  void Seek(size_t position) override { position_ = static_cast<int>(position); }
  void Read(void* bytes, size_t count) override {
    Check(sqlite3_blob_read(blob_, bytes, static_cast<int>(count), position_), "reading");
    position_ += static_cast<int>(count);
  }
  void Write(const void* bytes, size_t count) override {
    Check(sqlite3_blob_write(blob_, bytes, static_cast<int>(count), position_), "writing");
    position_ += static_cast<int>(count);
  }
  void Close() override { Check(sqlite3_blob_close(blob_), "closing"); }

 private:
  void Check(int code, const char* what) const {
    if (code != SQLITE_OK) std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(database_));
    Require(code == SQLITE_OK, what);
  }
  static void RemoveFiles() {
    for (const char* ending : {"", "-wal", "-shm"}) std::remove((std::string(kDatabase) + ending).c_str());
  }
  void Execute(const char* text) const { Check(sqlite3_exec(database_, text, nullptr, nullptr, nullptr), text); }
  void Connect() {
    Check(sqlite3_open_v2(kDatabase, &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr), "opening");
  }
  void Configure() const {
    Execute(writeAheadLog_ ? "PRAGMA journal_mode=WAL" : "PRAGMA journal_mode=OFF");
    Execute("PRAGMA synchronous=OFF");
    Execute("PRAGMA locking_mode=EXCLUSIVE");  // as every other here
  }
  void Prepare() {
    Prepare("INSERT INTO files (name, data) VALUES (?, ?)", &create_);
    Prepare("SELECT id, length(data) FROM files WHERE name = ?", &lookUp_);
    Prepare("UPDATE files SET name = ? WHERE name = ?", &rename_);
    Prepare("DELETE FROM files WHERE name = ?", &delete_);
    Prepare("SELECT name, length(data) FROM files ORDER BY id", &list_);
  }
  void Prepare(const char* text, sqlite3_stmt** statement) const {
    Check(sqlite3_prepare_v3(database_, text, -1, SQLITE_PREPARE_PERSISTENT, statement, nullptr), text);
  }
  void BindName(sqlite3_stmt* statement, int place, const std::string& name) const {
    Check(sqlite3_bind_text(statement, place, name.c_str(), static_cast<int>(name.size()), SQLITE_STATIC), "binding");
  }
  void Step(sqlite3_stmt* statement, int expected) const {
    Require(sqlite3_step(statement) == expected, sqlite3_errmsg(database_));
    Check(sqlite3_reset(statement), "a statement");
  }
  sqlite3_int64 IdOf(const std::string& name) const {
    BindName(lookUp_, 1, name);
    Require(sqlite3_step(lookUp_) == SQLITE_ROW, "looking up");
    const sqlite3_int64 id = sqlite3_column_int64(lookUp_, 0);
    Check(sqlite3_reset(lookUp_), "looking up");
    return id;
  }

  bool writeAheadLog_;
  sqlite3* database_ = nullptr;
  sqlite3_stmt *create_ = nullptr, *lookUp_ = nullptr, *rename_ = nullptr, *delete_ = nullptr, *list_ = nullptr;
  sqlite3_blob* blob_ = nullptr;
  int position_ = 0;
};

}  // namespace

std::unique_ptr<Backend> MakeSqlite(bool writeAheadLog) { return std::make_unique<Sqlite>(writeAheadLog); }

}  // namespace bench
