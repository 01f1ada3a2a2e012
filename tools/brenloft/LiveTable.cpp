#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/foundation/NSDateFormatter.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Readings.h"
#include "tools/brenloft/SearchEvents.h"
#include "tools/brenloft/Texts.h"

namespace brenloft {
namespace {

constexpr std::string_view kHideCursor = "\x1b[?25l";
constexpr std::string_view kShowCursor = "\x1b[?25h";
constexpr std::string_view kClearLine = "\x1b[K";
constexpr std::string_view kClearBelow = "\x1b[J";
constexpr std::string_view kPlain = "\x1b[0m";
constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kRed = "\x1b[1;31m";

// https://no-color.org
bool wantsColour() {
  const char* value = std::getenv("NO_COLOR");
  return value == nullptr || *value == '\0';
}

class LiveTable : public SearchEvents {
 public:
  explicit LiveTable(Output& out) : out_(out), hasColour_(wantsColour()) {}

  void bytes(platform::Date, const Octets&) override {}
  void beacon(platform::Date, const BRLBeaconSnapshot& record) override { keep(record); }
  void emergency(platform::Date, const BRLBeaconSnapshot& record) override { keep(record); }
  void ranged(platform::Date, const BRLRecordList& records) override {
    for (const auto& record : records.view()) keep(record->snapshot());
  }
  void radio(platform::Date, const platform::RadioState& state) override {
    radio_ = printable(radioLine(state));
    isChanged_ = true;
  }

  void tick() override {
    if (isChanged_) draw();
  }

  void makeRoom() override {
    if (drawn_ == 0) return;
    out_.write(upToFirstLine() + std::string(kClearBelow));
    out_.flush();
    drawn_ = 0;
    isChanged_ = true;
  }

  void finish() override { draw(); }

 private:
  // Records without a property that changes; uuid, major and minor tell beacons
  // apart.
  using Key = std::tuple<uint64_t, OptionalText, int64_t, int64_t>;

  void keep(const BRLBeaconSnapshot& record) {
    records_[{record.beaconType, record.uuid, record.major, record.minor}] = record;
    isChanged_ = true;
  }

  std::string upToFirstLine() const { return drawn_ == 0 ? "" : fmt::format("\x1b[{}A\r", drawn_); }

  // One write, so that the terminal never shows half a table. The cursor is
  // shown again in the same breath: however the process ends, the terminal is
  // as it was.
  void draw() {
    isChanged_ = false;
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0) size = {24, 80, 0, 0};
    const std::size_t width = size.ws_col;
    const std::size_t rows = std::max<std::size_t>(size.ws_row, 4) - 3;

    std::string frame = std::string(kHideCursor) + upToFirstLine();
    std::size_t lines = 0;
    const auto add = [&](std::string_view colour, std::string line) {
      if (line.size() > width) line.resize(width);
      const bool isColoured = hasColour_ && !colour.empty();
      frame +=
          fmt::format("{}{}{}{}\n", isColoured ? colour : "", line, isColoured ? kPlain : "", kClearLine);
      ++lines;
    };
    add("", fmt::format("{:<7}  {:<8}  {}", "state", "heard", recordHeader()));
    for (const auto& [key, record] : records_) {
      if (lines > rows) break;
      add(colourOf(record), rowOf(record));
    }
    if (records_.size() > rows)
      add("", fmt::format("… and {} more", records_.size() - rows));
    else if (!radio_.empty())
      add("", radio_);
    out_.write(frame + std::string(kClearBelow) + std::string(kShowCursor));
    out_.flush();
    drawn_ = lines;
  }

  static std::string_view colourOf(const BRLBeaconSnapshot& record) {
    if (record.status == 2) return kDim;
    return record.emergency >= 1 ? kRed : "";
  }

  static std::string rowOf(const BRLBeaconSnapshot& record) {
    // hh:mm:ss of the whole date.
    const std::string heard = record.statusUpdatedDate
                                  ? platform::rfc3339Text(*record.statusUpdatedDate).substr(11, 8)
                                  : std::string("-");
    return fmt::format("{:<7}  {:<8}  {}", record.status == 2 ? "lost" : "present", heard, recordRow(record));
  }

  Output& out_;
  const bool hasColour_;
  std::map<Key, BRLBeaconSnapshot> records_;
  std::string radio_;
  bool isChanged_ = true;
  std::size_t drawn_ = 0;  // lines on the screen
};

}  // namespace

std::unique_ptr<SearchEvents> makeLiveTable(Output& out) {
  return std::make_unique<LiveTable>(out);
}

}  // namespace brenloft
