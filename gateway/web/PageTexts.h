#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/web/PageModel.h"

namespace brenloft::web {

// The words of a page. None of these is escaped.

/// A word for a state and the class that gives it its weight.
struct StateWord {
  std::string_view word;
  std::string_view css;  ///< "em", "al", "wa", "in"; none for what needs nobody
};
StateWord wordOf(Need need);

/// What of a reading a figure shows, as the events of the stream name it.
struct LiveFigure {
  std::string_view key{};  ///< none: it does not follow them
  std::string_view unit{};
  std::optional<int32_t> limit{};  ///< that it must be told from, in the unit's own or in hundredths
};
/// One line of what needs attention.
struct Attention {
  const PageBeacon* beacon;  ///< null: the radio, which comes before all
  Need need;
  std::string figure;       ///< "8.2 °C"
  std::string why;          ///< "Above 5.0 °C since 14:08"
  std::string duration;     ///< "24 min"
  std::string rule{};       ///< of an alarm
  LiveFigure live{};        ///< where the figure follows the readings
  bool isCritical = false;  ///< an alarm that comes before others
};
/// The most urgent first.
std::vector<Attention> attentionOf(const PageModel& page);

/// "−18.9", from hundredths.
std::string decimalText(double hundredths, int places);
std::string wholeText(int32_t number);
/// "above 5.0 °C for 5 min"
std::string ruleText(const AlarmRule& rule);
/// "now" of what is there and was heard just now, else how long it is since.
std::string ageText(const PageModel& page, const PageBeacon& beacon);

/// Whether an alarm of this quantity is raised for it that does not merely tell something.
bool isAlarmed(const PageBeacon& beacon, AlarmRule::Quantity quantity);

/// The class of a need that the beacon has, else none.
std::string_view stateOf(const PageBeacon& beacon, Need need);

/// A figure of a beacon with its name.
struct Fact {
  std::string name;
  std::string value;
  std::string unit;
  std::string_view css{};  ///< the state's that it is needed attention for
};
std::vector<Fact> factsOf(const PageModel& page, const PageBeacon& beacon);
/// What is to be said of it in one paragraph.
std::string sayingOf(const PageModel& page, const PageBeacon& beacon);

struct EventText {
  StateWord state;
  std::string details;
};
EventText textOf(const PageEvent& told);

}  // namespace brenloft::web
