#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <utility>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "tools/brenloft/Keyboard.h"
#include "tools/brenloft/LiveRows.h"
#include "tools/brenloft/Messages.h"
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
constexpr std::string_view kYellow = "\x1b[33m";
constexpr std::string_view kRed = "\x1b[1;31m";

// https://no-color.org
bool wantsColour() {
  const char* value = std::getenv("NO_COLOR");
  return value == nullptr || *value == '\0';
}

// Whether the process was stopped and goes on: a shell has written to the terminal meanwhile.
std::atomic<bool> wasContinued{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

constexpr std::chrono::milliseconds kPeriod{250};

class LiveTable final : public RecordEvents {
 public:
  LiveTable(Output& out, TimeForm timeForm, Labels labels, RaisedAlarms raisedAlarms)
      : out_(out),
        times_(timeForm),
        hasColour_(wantsColour()),
        rows_(std::move(labels), std::move(raisedAlarms)) {
    std::signal(SIGCONT, [](int) { wasContinued = true; });
  }

  bool record(const Record& record) override {
    isChanged_ = true;
    now_ = std::max(now_, heardAt(record));
    return rows_.take(record);
  }
  void refused(const Reading& reading) override {
    isChanged_ = true;
    rows_.takeStranger(reading);
  }
  void radio(platform::Date, const platform::RadioState& state) override {
    radio_ = printable(radioLine(state));
    isChanged_ = true;
  }

  std::chrono::milliseconds period() const override { return kPeriod; }
  void tick(platform::Date now) override {
    findPlace();
    for (const char key : Keyboard::pressed()) isChanged_ = rows_.sortBy(key) || isChanged_;
    // Ages grow also while nothing is heard.
    using std::chrono::seconds;
    isChanged_ = isChanged_ || std::chrono::floor<seconds>(now) != std::chrono::floor<seconds>(now_);
    now_ = now;
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
    Keyboard::restore();
  }

 private:
  // A terminal of another size has broken the lines anew, and a shell has added some: where the table begins
  // is not known then.
  void findPlace() {
    const Output::Size size = Output::screenSize();
    const bool isResized = std::exchange(size_, size) != size;
    const bool isBack = wasContinued.exchange(false);
    if (isBack) Keyboard::takeAgain();
    if (isBack || isResized) isLost_ = isChanged_ = true;
  }

  std::string toFirstLine() const {
    if (isLost_) return std::string(kTop);
    return drawn_ == 0 ? "" : fmt::format("\x1b[{}A\r", drawn_);
  }

  // One write, so that the terminal never shows half a table. The cursor is shown again in the same breath:
  // however the process ends, the terminal is as it was.
  void draw() {
    isChanged_ = false;
    const std::size_t width = size_.columns;
    const std::size_t most = std::max<std::size_t>(size_.rows, 6) - 5;
    const LiveRows::Shown shown = rows_.shown(now_, width, most, times_);

    std::string frame = std::string(kHideCursor) + toFirstLine();
    std::size_t lines = 0;
    const auto add = [&](std::string_view colour, const std::string& line) {
      const bool isColoured = hasColour_ && !colour.empty();
      // Cleared before, because behind a full line clearing takes its last character.
      frame += fmt::format("{}{}{}{}\n", kClearLine, isColoured ? colour : "", fitted(line, width),
                           isColoured ? kPlain : "");
      ++lines;
    };
    add("", (now_ == platform::Date{} ? "" : times_.clock(now_) + "  ") + shown.summary);
    if (!shown.common.empty()) add("", shown.common);
    add("", shown.header);
    for (const LiveRows::Line& line : shown.lines) add(colourOf(line.mood), line.text);
    if (shown.left != 0)
      add("", fmt::format("… and {} more", shown.left));
    else if (!radio_.empty())
      add("", radio_);
    out_.write(frame + std::string(kClearBelow) + std::string(kShowCursor));
    out_.flush();
    drawn_ = lines;
    isLost_ = false;
  }

  static std::string_view colourOf(LiveRows::Mood mood) {
    switch (mood) {
      case LiveRows::Mood::alarm:
        return kRed;
      case LiveRows::Mood::absent:
        return kDim;
      case LiveRows::Mood::stranger:
        return kYellow;
      case LiveRows::Mood::usual:
        break;
    }
    return "";
  }

  Output& out_;
  TimeText times_;
  const bool hasColour_;
  LiveRows rows_;
  std::string radio_;
  platform::Date now_{};
  bool isChanged_ = true;
  bool isLost_ = false;    // where the table begins is not known
  std::size_t drawn_ = 0;  // lines on the screen
  Output::Size size_ = Output::screenSize();
};

}  // namespace

std::unique_ptr<SearchEvents> makeLiveTable(Output& out, TimeForm timeForm, Labels labels,
                                            RaisedAlarms raisedAlarms) {
  return std::make_unique<LiveTable>(out, timeForm, std::move(labels), std::move(raisedAlarms));
}

}  // namespace brenloft
