#include "platform/coredata/SQLiteFile.h"

#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace platform {
namespace {

// Every database file has a header, https://www.sqlite.org/fileformat.html
constexpr std::size_t kHeaderSize = 100;
constexpr std::string_view kMagic{"SQLite format 3\0", 16};
constexpr std::size_t kUserVersionAt = 60;
constexpr std::size_t kApplicationIdAt = 68;

bool isZeros(std::string_view octets) {
  return octets.find_first_not_of('\0') == std::string_view::npos;
}

bool isBlank(const SQLiteDatabase& database) {
  constexpr std::size_t piece = 65'536;
  for (uint64_t from = 0;; from += piece) {
    const std::string octets = database.octets(from, piece);
    if (!isZeros(octets)) return false;
    if (octets.size() < piece) return true;
  }
}

int64_t bigEndian32(std::string_view header, std::size_t at) {
  uint32_t number = 0;
  for (const char octet : header.substr(at, 4)) number = number << 8 | static_cast<unsigned char>(octet);
  return number;
}

}  // namespace

void refuse(const std::string& why) {
  throw SQLiteFailure(0, why);
}

SQLiteHeader SQLiteHeader::of(const std::filesystem::path& file) {
  std::error_code error;
  const auto status = std::filesystem::status(file, error);
  if (status.type() == std::filesystem::file_type::not_found) return {};
  if (error) refuse(error.message());
  if (!std::filesystem::is_regular_file(status)) refuse("not a file");
  const std::string header = SQLiteDatabase(file, SQLiteDatabase::Access::Immutable).octets(0, kHeaderSize);
  if (header.empty()) return {};
  if (isZeros(header)) return {.contents = Contents::Zeros};
  if (header.size() < kHeaderSize || !header.starts_with(kMagic)) refuse("not a database");
  return {Contents::Database, bigEndian32(header, kApplicationIdAt), bigEndian32(header, kUserVersionAt)};
}

// SQLite makes its files as the umask says, those beside the first with its permissions.
void makeForOwnerOnly(const std::filesystem::path& file) {
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  // Made by somebody else meanwhile, or not to be made at all: then opening says why.
  if (descriptor >= 0) ::close(descriptor);
}

bool hasLog(const SQLiteDatabase& database) {
  std::error_code error;
  const auto size = std::filesystem::file_size(database.logFile(), error);
  return !error && size > 0;
}

// SQLite makes nothing of zeros unless it is told that they are nothing, and then of nothing else either; so
// the file itself is looked at, once the others are locked out.
void createSchema(SQLiteDatabase& database, SQLiteHeader::Contents found,
                  const std::function<void()>& write) {
  const bool isZeros = found == SQLiteHeader::Contents::Zeros;
  if (!isZeros && database.integer("SELECT count(*) FROM sqlite_schema") != 0) return;
  database.takeForEmpty(isZeros);
  database.execute("BEGIN");
  // So that the space of deleted rows can be given back in steps. Takes the lock, and must be the first
  // change.
  database.execute("PRAGMA auto_vacuum = INCREMENTAL");
  const bool isQuickest =
      isZeros ? isBlank(database) : database.integer("SELECT count(*) FROM sqlite_schema") == 0;
  if (isQuickest) write();
  database.execute(isQuickest ? "COMMIT" : "ROLLBACK");
  database.takeForEmpty(false);
}

void requireInPlace(const SQLiteDatabase& database) {
  if (database.hasMoved()) refuse("the file was removed or replaced while in use");
}

std::vector<std::string> damagesOf(SQLiteDatabase& database) {
  std::vector<std::string> damages;
  auto integrity = database.prepare("PRAGMA integrity_check(10)");
  while (integrity.step())
    if (std::string line = integrity.textAt(0); line != "ok") damages.push_back(std::move(line));
  return damages;
}

SQLiteReadConnection::SQLiteReadConnection(Open open) : open_(std::move(open)) {
  connect();
}

void SQLiteReadConnection::connect() {
  try {
    database_ = std::make_unique<SQLiteDatabase>(open_(SQLiteDatabase::Access::ReadWrite));
    isImmutable_ = false;
  } catch (const SQLiteFailure& failure) {
    // Without the right or the room for SQLite's own files, the file alone is read.
    if (!failure.lacksPermission() && !failure.isFull()) throw;
    database_ = std::make_unique<SQLiteDatabase>(open_(SQLiteDatabase::Access::Immutable));
    isImmutable_ = true;
    if (hasLog(*database_))
      refuse("its log needs an index that cannot be made beside it; copy both to another folder");
  }
  database_->execute("PRAGMA query_only = 1");
  ++generation_;
}

bool SQLiteReadConnection::hasChanged() const {
  return isImmutable_ && !database_->isAsOpened();
}

// No lock keeps others from writing what is read as an immutable file; what they may have touched is read
// anew.
void SQLiteReadConnection::atOneMoment(const std::function<void(SQLiteDatabase&)>& read) {
  while (true) {
    try {
      read(*database_);
    } catch (const SQLiteFailure&) {
      if (!hasChanged()) throw;
    }
    requireInPlace(*database_);
    if (!hasChanged()) return;
    connect();
  }
}

}  // namespace platform
