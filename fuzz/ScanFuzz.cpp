#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <rapidjson/document.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gateway/configuration/LiveSettings.h"
#include "gateway/history/HistoryMaintenance.h"
#include "tools/brenloft/Commands.h"

namespace {
/// The counters of what was covered.
constinit std::span<uint8_t> counters;
}  // namespace

// Looks on where the compiler's code tells the fuzzer of its counters. The linker puts it in between.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void __real___sanitizer_cov_8bit_counters_init(uint8_t* begin, uint8_t* end);
void __wrap___sanitizer_cov_8bit_counters_init(uint8_t* begin, uint8_t* end) {
  counters = {begin, end};
  __real___sanitizer_cov_8bit_counters_init(begin, end);
}
}
// NOLINTEND(bugprone-reserved-identifier)

// A process for each input must begin fast: little is kept of where memory was taken.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" const char* __asan_default_options() {
  return "malloc_context_size=2:quarantine_size_mb=4:detect_leaks=0";
}

namespace {

constexpr std::size_t kMostOctets = 16384;
/// A capture of so few octets is read in far less.
constexpr unsigned kMostSeconds = 20;

constexpr std::string_view kSettings = R"([[alarm]]
name = "warm"
quantity = "temperature"
above = 20
for = "10s"
[[alarm]]
name = "gone"
silent = 60
[[alarm]]
name = "help"
emergency = true
)";

/// One folder in memory for all runs of this process.
class Folder {
 public:
  Folder() {
    std::string name = "/dev/shm/ScanFuzzXXXXXX";
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name;
    write("settings", kSettings);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path_); }

  std::filesystem::path file(const char* name) const { return path_ / name; }
  void write(const char* name, std::string_view octets) const {
    std::ofstream(file(name), std::ios::binary) << octets;
  }
  std::string contents(const char* name) const {
    std::ifstream in(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::filesystem::path path_;
};

/// What a child process covers, for the one that chooses the next input.
class SharedCoverage {
 public:
  SharedCoverage() {
    void* const shared =
        ::mmap(nullptr, counters.size(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) std::abort();
    shared_ = {static_cast<uint8_t*>(shared), counters.size()};
  }

  void hand() const { std::ranges::copy(counters, shared_.begin()); }
  void take() const { std::ranges::copy(shared_, counters.begin()); }

 private:
  std::span<uint8_t> shared_;
};

brenloft::SearchOptions optionsIn(const Folder& folder) {
  using namespace brenloft;
  SearchOptions options;
  options.source = "capture:" + folder.file("capture").string();
  options.container = folder.file("container");
  options.format = SearchFormat::jsonl;
  options.log = true;
  options.verbose = true;
  options.gateway.keepsHistory = true;
  options.gateway.files = {{SearchFormat::readings, folder.file("readings").string()}};
  const SettingsReader reader(folder.file("settings"), SettingsReader::Absence::isWrong, {});
  const auto settings = reader.read().settings;
  if (!settings) std::abort();
  options.settings = std::make_shared<LiveSettings>(reader, settings);
  return options;
}

int statusOf(const brenloft::SearchOptions& options) {
  try {
    return static_cast<int>(brenloft::runSearch(options));
  } catch (const brenloft::Failure& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return static_cast<int>(failure.status());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return static_cast<int>(brenloft::ExitStatus::failed);
  }
}

void redirect(int stream, const std::filesystem::path& file) {
  const int opened = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (opened < 0 || ::dup2(opened, stream) < 0) std::abort();
  ::close(opened);
}

[[noreturn]] void scan(const Folder& folder, const brenloft::SearchOptions& options,
                       const SharedCoverage& coverage) {
  ::alarm(kMostSeconds);
  redirect(STDOUT_FILENO, folder.file("out"));
  redirect(STDERR_FILENO, folder.file("err"));
  const int status = statusOf(options);
  coverage.hand();
  std::_Exit(status);  // the library lives to the end of its process
}

[[noreturn]] void fail(const Folder& folder, const std::string& why) {
  std::fprintf(stderr, "%s\n%s", why.c_str(), folder.contents("err").c_str());
  std::filesystem::remove_all(folder.file("."));
  std::abort();
}

/// Each line is one object.
void checkLines(const Folder& folder, const char* name) {
  const std::string text = folder.contents(name);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    rapidjson::Document line;
    line.Parse<rapidjson::kParseValidateEncodingFlag>(text.data() + at, std::min(end, text.size()) - at);
    if (end == std::string::npos || line.HasParseError() || !line.IsObject())
      fail(folder, name + std::string(" has the line ") + text.substr(at, end - at));
    at = end + 1;
  }
}

void checkStore(const Folder& folder, const std::filesystem::path& file) {
  sqlite3* database = nullptr;
  std::string said;
  const auto add = [](void* to, int, char** columns, char**) {
    *static_cast<std::string*>(to) += columns[0];
    return 0;
  };
  if (::sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK ||
      ::sqlite3_exec(database, "PRAGMA integrity_check", add, &said, nullptr) != SQLITE_OK || said != "ok")
    fail(folder, file.string() + ": " + said + ::sqlite3_errmsg(database));
  ::sqlite3_close(database);
}

void checkFiles(const Folder& folder) {
  checkLines(folder, "out");
  checkLines(folder, "readings");
  const auto container = folder.file("container");
  for (const auto& entry : std::filesystem::recursive_directory_iterator(container))
    if (entry.path().extension() == ".sqlite") checkStore(folder, entry.path());
  const auto history = container / "history.sqlite";
  if (!std::filesystem::exists(history)) return;
  const auto problems = brenloft::checkHistory(history);
  if (!problems) fail(folder, problems.error().text);
  if (!problems->empty()) fail(folder, problems->front());
}

}  // namespace

// The input is a capture. A search in it, with log and history, ends by itself with a status for what it
// found, and leaves lines that can be read and files that are whole. Each search is a process, as the
// library lives as long as one.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
  static const Folder folder;
  static const brenloft::SearchOptions options = optionsIn(folder);
  static const SharedCoverage coverage;
  if (size > kMostOctets) return -1;
  for (const char* name : {"out", "err", "readings", "container"})
    std::filesystem::remove_all(folder.file(name));
  folder.write("capture", {reinterpret_cast<const char*>(octets), size});
  const pid_t child = ::fork();
  if (child == 0) scan(folder, options, coverage);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) std::abort();
  coverage.take();
  using brenloft::ExitStatus;
  const bool isEnded = WIFEXITED(status);
  const auto code = static_cast<ExitStatus>(WEXITSTATUS(status));
  if (!isEnded || (code != ExitStatus::done && code != ExitStatus::failed))
    fail(folder, "ended with " + std::to_string(status));
  if (code == ExitStatus::done) checkFiles(folder);
  return 0;
}
