#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <map>
#include <tuple>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "gateway/Texts.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

constexpr std::string_view kHideCursor = "\x1b[?25l";
constexpr std::string_view kShowCursor = "\x1b[?25h";
constexpr std::string_view kClearLine = "\x1b[K";
constexpr std::string_view kClearBelow = "\x1b[J";
constexpr std::string_view kTop = "\x1b[H";
constexpr std::string_view kPlain = "\x1b[0m";
constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kRed = "\x1b[1;31m";

// https://no-color.org
bool wantsColour() {
  const char* value = std::getenv("NO_COLOR");
  return value == nullptr || *value == '\0';
}

winsize terminalSize() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0) size = {24, 80, 0, 0};
  return size;
}

// Whether the process was stopped and goes on: a shell has written to the terminal meanwhile.
std::atomic<bool> wasContinued{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

constexpr std::chrono::milliseconds kPeriod{250};

class LiveTable : public SearchEvents {
 public:
  LiveTable(Output& out, TimeForm timeForm) : out_(out), times_(timeForm), hasColour_(wantsColour()) {
    std::signal(SIGCONT, [](int) { wasContinued = true; });
  }

  bool beacon(platform::Date, const BRLBeaconSnapshot& record) override { return show(record, false); }
  bool emergency(platform::Date, const BRLBeaconSnapshot& record) override {
    keep(record);
    return true;
  }
  bool ranged(platform::Date, const BRLRecordList& records) override {
    bool isShown = false;
    for (const auto& record : records.view()) {
      keep(record->snapshot());
      if (record->beaconType() == 2) isShown = true;
    }
    return isShown;
  }
  bool left(platform::Date, const BRLBeaconSnapshot& record) override { return show(record, true); }
  bool returned(platform::Date, const BRLBeaconSnapshot& record) override { return show(record, false); }
  void radio(platform::Date, const platform::RadioState& state) override {
    radio_ = printable(radioLine(state));
    isChanged_ = true;
  }

  std::chrono::milliseconds period() const override { return kPeriod; }
  void tick(platform::Date) override {
    findPlace();
    if (isChanged_) draw();
  }

  void makeRoom() override {
    findPlace();
    if (drawn_ == 0 && !isLost_) return;
    out_.write(toFirstLine() + std::string(kClearBelow));
    out_.flush();
    isLost_ = false;
    drawn_ = 0;
    isChanged_ = true;
  }

  void finish() override {
    findPlace();
    draw();
  }

 private:
  // Records without a property that changes; uuid, major and minor tell beacons apart.
  using Key = std::tuple<uint64_t, BRLOptionalText, int64_t, int64_t>;

  struct Row {
    BRLBeaconSnapshot record;
    bool hasLeft = false;
  };

  Row& keep(const BRLBeaconSnapshot& record) {
    isChanged_ = true;
    Row& row = rows_[{record.beaconType, record.uuid, record.major, record.minor}];
    row.record = record;
    return row;
  }
  bool show(const BRLBeaconSnapshot& record, bool hasLeft) {
    keep(record).hasLeft = hasLeft;
    return true;
  }

  // A terminal of another size has broken the lines anew, and a shell has added some: where the table begins
  // is not known then.
  void findPlace() {
    const winsize size = terminalSize();
    const bool isResized = size.ws_row != size_.ws_row || size.ws_col != size_.ws_col;
    size_ = size;
    if (wasContinued.exchange(false) || isResized) isLost_ = isChanged_ = true;
  }

  std::string toFirstLine() const {
    if (isLost_) return std::string(kTop);
    return drawn_ == 0 ? "" : fmt::format("\x1b[{}A\r", drawn_);
  }

  // One write, so that the terminal never shows half a table. The cursor is shown again in the same breath:
  // however the process ends, the terminal is as it was.
  void draw() {
    isChanged_ = false;
    const std::size_t width = size_.ws_col;
    const std::size_t rows = std::max<std::size_t>(size_.ws_row, 4) - 3;

    std::string frame = std::string(kHideCursor) + toFirstLine();
    std::size_t lines = 0;
    const auto add = [&](std::string_view colour, std::string line) {
      const bool isColoured = hasColour_ && !colour.empty();
      // Cleared before, because behind a full line clearing takes its last character.
      frame += fmt::format("{}{}{}{}\n", kClearLine, isColoured ? colour : "", fitted(std::move(line), width),
                           isColoured ? kPlain : "");
      ++lines;
    };
    add("", fmt::format("{:<7}  {:<{}}  {}", "state", "heard", times_.clockWidth(), recordHeader()));
    for (const auto& [key, row] : rows_) {
      if (lines > rows) break;
      add(colourOf(row), textOf(row));
    }
    if (rows_.size() > rows)
      add("", fmt::format("… and {} more", rows_.size() - rows));
    else if (!radio_.empty())
      add("", radio_);
    out_.write(frame + std::string(kClearBelow) + std::string(kShowCursor));
    out_.flush();
    drawn_ = lines;
    isLost_ = false;
  }

  static std::string_view colourOf(const Row& row) {
    if (row.record.status == 2 || row.hasLeft) return kDim;
    return row.record.emergency >= 1 ? kRed : "";
  }

  std::string textOf(const Row& row) {
    const BRLBeaconSnapshot& record = row.record;
    const char* state = record.status == 2 ? "lost" : row.hasLeft ? "left" : "present";
    const std::string heard =
        record.statusUpdatedDate ? times_.clock(*record.statusUpdatedDate) : std::string("-");
    return fmt::format("{:<7}  {:<{}}  {}", state, heard, times_.clockWidth(), recordRow(record));
  }

  Output& out_;
  TimeText times_;
  const bool hasColour_;
  std::map<Key, Row> rows_;
  std::string radio_;
  bool isChanged_ = true;
  bool isLost_ = false;    // where the table begins is not known
  std::size_t drawn_ = 0;  // lines on the screen
  winsize size_ = terminalSize();
};

}  // namespace

std::unique_ptr<SearchEvents> makeLiveTable(Output& out, TimeForm timeForm, Labels) {
  return std::make_unique<LiveTable>(out, timeForm);
}

}  // namespace brenloft
