#include "gateway/web/PageWriter.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <string_view>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/web/Html.h"
#include "gateway/web/LocalTime.h"
#include "gateway/web/PageAssets.h"
#include "gateway/web/PageData.h"
#include "gateway/web/PageTexts.h"
#include "gateway/web/Sparkline.h"

namespace brenloft::web {
namespace {

using platform::Date;

std::string tag(const StateWord& state) {
  return fmt::format(R"(<span class="tag">{}</span>)", state.word);
}

// A name that somebody chose, which turns no text around it.
std::string nameHtml(std::string_view name) {
  return "<bdi>" + escaped(name) + "</bdi>";
}

std::string small(std::string_view place) {
  return place.empty() ? std::string() : fmt::format(R"( <small><bdi>{}</bdi></small>)", escaped(place));
}

// Before the script runs, a beacon's figures stand in the table of days.
std::string linkTo(const PageBeacon& beacon) {
  const std::string id = escaped(beacon.id.text());
  return fmt::format(R"(<a href="#day-{0}" data-b="{0}">{1}</a>)", id, nameHtml(beacon.name()));
}

struct Place {
  std::string name;
  std::vector<const PageBeacon*> beacons{};
};

std::vector<Place> placesOf(const PageModel& page) {
  std::vector<Place> places;
  for (const PageBeacon& beacon : page.beacons) {
    if (places.empty() || places.back().name != beacon.label.place) places.push_back({beacon.label.place});
    places.back().beacons.push_back(&beacon);
  }
  return places;
}

using Midnights = std::set<Date, std::greater<>>;  // the newest first

std::string scriptsOfPage() {
  std::string text = "\"use strict\";\n(() => {\n";
  for (const char* file : {"time.js", "charts.js", "live.js", "page.js"}) text += pageAsset(file);
  return text + "})();\n";
}

std::string dygraphsWithLicence() {
  return fmt::format("/*! Dygraphs\n{}*/\n{}\n", pageAsset("copyright"), pageAsset("dygraph.min.js"));
}

class Writer {
 public:
  Writer(const PageModel& page, const PageForm& form)
      : page_(page), form_(form), places_(placesOf(page)), attention_(attentionOf(page)) {}

  std::string write() {
    const std::map<std::string_view, std::function<std::string()>> parts{
        {"title", [this] { return escaped(form_.title); }},
        {"style", [this] { return style(); }},
        {"chip", [this] { return chip(); }},
        {"when", [this] { return when(); }},
        {"attentionCount", [this] { return count(attention_.size()); }},
        {"attention", [this] { return attention(); }},
        {"notes", [this] { return notes(); }},
        {"hidePlaces", [this] { return std::string(hasPlaces() ? "" : "hidden"); }},
        {"places", [this] { return places(); }},
        {"beaconCount", [this] { return std::to_string(page_.beacons.size()); }},
        {"beacons", [this] { return beacons(); }},
        {"days", [this] { return days(); }},
        {"events", [this] { return events(); }},
        {"footer", [this] { return footer(); }},
        {"data", [this] { return insideScript(pageData(page_, form_.seq)); }},
        {"scripts", [this] { return scripts(); }}};
    return filled(pageAsset("page.html"), [&](std::string_view name) {
      const auto part = parts.find(name);
      return part == parts.end() ? std::string() : part->second();
    });
  }

 private:
  static std::string count(std::size_t number) { return number == 0 ? "" : std::to_string(number); }

  std::string chip() const {
    if (attention_.empty()) return R"(<a class="chip none" href="#attention">Nothing needs attention</a>)";
    return fmt::format(R"(<a class="chip {}" href="#attention"><b>{}</b> need{} attention</a>)",
                       wordOf(attention_.front().need).css, attention_.size(),
                       attention_.size() == 1 ? "s" : "");
  }

  std::string when() const {
    if (form_.seq)
      return fmt::format(
          R"(<span id="live">Live</span> <span id="date">{}</span>, <span id="clock">{}</span> {})",
          dateText(page_.now()), clockText(page_.now()), escaped(zoneName(page_.now())));
    return fmt::format("Report of {}, {} {}, {}", dateText(page_.now()), clockText(page_.now()),
                       escaped(zoneName(page_.now())), durationText(page_.now() - page_.span.since));
  }

  std::string attention() const {
    std::string html;
    for (const Attention& line : attention_) {
      const StateWord state = line.beacon == nullptr ? StateWord{"Radio", "al"} : wordOf(line.need);
      const std::string who =
          line.beacon == nullptr ? "All beacons" : linkTo(*line.beacon) + small(line.beacon->label.place);
      html += fmt::format(
          R"(<li class="{}" data-k="{} {} {}">{}<span class="who">{}</span><span class="fig"{}>{}</span><span class="why">{}</span><span class="dur">{}</span></li>)"
          "\n",
          state.css, line.beacon == nullptr ? "" : escaped(line.beacon->id.text()), state.word,
          escaped(line.rule), tag(state), who, liveData(line.live), escaped(line.figure), escaped(line.why),
          escaped(line.duration));
    }
    return html;
  }

  // For the script, by which the figure says what the beacon's row says.
  static std::string liveData(const LiveFigure& live) {
    if (live.key.empty()) return {};
    return fmt::format(R"( data-q="{}" data-unit="{}" data-limit="{}")", live.key, live.unit,
                       live.limit ? std::to_string(*live.limit) : "");
  }

  std::string style() const {
    if (form_.seq) return R"(<link rel="stylesheet" href="page.css">)";
    return fmt::format(
        R"(<meta http-equiv="Content-Security-Policy" content="default-src 'none'; script-src 'nonce-{0}'; style-src 'nonce-{0}'; base-uri 'none'; form-action 'none'">)"
        "\n<style nonce=\"{0}\">\n{1}</style>",
        escaped(form_.nonce), pageAsset("page.css"));
  }

  std::string scripts() const {
    if (form_.seq) return R"(<script src="dygraph.js"></script><script src="page.js"></script>)";
    return fmt::format("<script nonce=\"{0}\">\n{1}</script>\n<script nonce=\"{0}\">\n{2}</script>",
                       escaped(form_.nonce), dygraphsWithLicence(), scriptsOfPage());
  }

  // What is to be known beside: how the radio was.
  std::string notes() const {
    std::string html;
    const auto note = [&](std::string_view css, std::string_view word, const std::string& text) {
      html +=
          fmt::format(R"(<p class="note {}">{} <span>{}</span></p>)", css, tag({word, ""}), escaped(text));
    };
    if (attention_.empty()) note("", "Quiet", quietText());
    if (const std::string text = outageText(); !text.empty()) note("", "Radio", text);
    if (page_.omitted > 0)
      note("", "Left out",
           fmt::format("{}{} more beacons have no room on this page.", page_.isMoreOmitted ? "At least " : "",
                       page_.omitted));
    return html;
  }

  std::string quietText() const {
    if (page_.beacons.empty()) return "No beacon was heard in this time.";
    const auto present = std::ranges::count_if(page_.beacons, &PageBeacon::isPresent);
    return fmt::format("Nothing needs attention. {} of {} heard.", present, page_.beacons.size());
  }

  std::string outageText() const {
    std::vector<HistorySpan> past = page_.outages;
    if (page_.deafSince && !past.empty() && past.back().until == page_.now()) past.pop_back();
    if (past.empty()) return {};
    const HistorySpan& last = past.back();
    const std::string times =
        fmt::format("from {} to {} ({})", sinceText(last.since, page_.now()),
                    sinceText(last.until, page_.now()), durationText(last.until - last.since));
    const std::string rest = " Gaps shaded grey are the radio\u2019s and not the beacons\u2019.";
    if (past.size() == 1) return "Heard nothing " + times + '.' + rest;
    return fmt::format("Heard nothing {} times, the last time {}.{}", past.size(), times, rest);
  }

  bool hasPlaces() const { return places_.size() > 1 || (places_.size() == 1 && !places_[0].name.empty()); }

  std::string places() const {
    std::string html;
    for (std::size_t i = 0; i < places_.size(); ++i) html += place(i);
    return html;
  }

  std::string place(std::size_t index) const {
    const Place& one = places_[index];
    std::size_t heard = 0;
    int32_t lowest = std::numeric_limits<int32_t>::max();
    int32_t highest = std::numeric_limits<int32_t>::min();
    std::set<Need> needs;
    for (const PageBeacon* beacon : one.beacons) {
      needs.insert(beacon->needs.begin(), beacon->needs.end());
      if (!beacon->isPresent) continue;
      ++heard;
      if (const auto temperature = beacon->latest->shown.temperature) {
        lowest = std::min(lowest, *temperature);
        highest = std::max(highest, *temperature);
      }
    }
    std::string range;
    if (lowest <= highest) {
      const std::string low = decimalText(lowest, 1);
      const std::string high = decimalText(highest, 1);
      range = (low == high ? high : low + " to " + high) + " °C";
    }
    std::string tags;
    for (const Need need : needs)
      tags += fmt::format(R"(<span class="{}">{}</span> )", wordOf(need).css, tag(wordOf(need)));
    return fmt::format(
        R"(<li><a href="#p{}">{}</a><span class="rg">{}</span><span class="hd">{}</span><span class="sts">{}</span></li>)"
        "\n",
        index, placeName(one), range, heardText(heard, one.beacons.size()), tags);
  }

  // While nothing listens, nobody knows who is there.
  std::string heardText(std::size_t heard, std::size_t all) const {
    return page_.deafSince ? counted(all, "beacon") : fmt::format("{} of {} heard", heard, all);
  }

  std::string placeName(const Place& place) const {
    if (!place.name.empty()) return nameHtml(place.name);
    return places_.size() == 1 ? "Name" : "No place";
  }

  std::string recentText() const {
    const auto length = page_.now() - page_.recent.since;
    return length == std::chrono::hours(24) ? "24 h" : durationText(length);
  }

  std::string beacons() const {
    std::string html;
    for (std::size_t i = 0; i < places_.size(); ++i) {
      html += fmt::format(
          R"(<table id="p{}"><thead><tr><th scope="col" class="pl">{}</th><th scope="col" class="s">{}</th><th scope="col">°C</th>)"
          R"(<th scope="col">% RH</th><th scope="col" class="x">Battery %</th><th scope="col" class="x">dBm</th><th scope="col" class="ag">Heard</th></tr></thead><tbody>)"
          "\n",
          i, placeName(places_[i]), recentText());
      for (const PageBeacon* beacon : places_[i].beacons) html += row(*beacon);
      html += "</tbody></table>\n";
    }
    return html;
  }

  std::string row(const PageBeacon& beacon) const {
    static const Quantities kNothing;
    const Quantities& shown = beacon.latest ? beacon.latest->shown : kNothing;
    const auto cell = [](std::string_view css, std::string_view state, const std::string& text) {
      return fmt::format(R"(<td class="{}{}{}">{}</td>)", css, state.empty() ? "" : " bad ", state, text);
    };
    const auto alarmOf = [&](AlarmRule::Quantity quantity) {
      return isAlarmed(beacon, quantity) ? wordOf(Need::alarm).css : std::string_view();
    };
    const auto decimal = [](std::optional<int32_t> value, int places) {
      return value ? decimalText(*value, places) : std::string();
    };
    const auto whole = [](std::optional<int32_t> value) { return value ? wholeText(*value) : std::string(); };
    std::string css = !beacon.needs.empty() ? std::string(wordOf(beacon.needs.front()).css) : std::string();
    if (!beacon.isPresent || page_.deafSince) css += " off";
    std::string tags;
    for (const Need need : beacon.needs)
      tags += fmt::format(R"( <span class="{}">{}</span>)", wordOf(need).css, tag(wordOf(need)));
    return fmt::format(R"(<tr class="{}" data-b="{}"><th scope="row">{}{}</th><td class="s">{}</td>)", css,
                       escaped(beacon.id.text()), linkTo(beacon), tags, sparkline(page_, beacon)) +
           cell("", alarmOf(AlarmRule::Quantity::temperature), decimal(shown.temperature, 1)) +
           cell("", alarmOf(AlarmRule::Quantity::humidity), decimal(shown.humidity, 0)) +
           cell("x", stateOf(beacon, Need::battery), whole(shown.battery)) +
           cell("x", alarmOf(AlarmRule::Quantity::rssi), beacon.latest ? whole(beacon.latest->rssi) : "") +
           cell("ag", stateOf(beacon, Need::silent), ageText(page_, beacon)) + "</tr>\n";
  }

  std::string days() const {
    Midnights midnights;
    for (const PageBeacon& beacon : page_.beacons)
      for (const PageDay& day : beacon.days) midnights.insert(day.midnight);
    std::string html = R"(<table class="days"><thead><tr><th scope="col">Beacon</th>)";
    for (const Date& day : midnights)
      html += fmt::format(R"(<th scope="col">{}</th>)", dayText(day, page_.now()));
    html += "</tr></thead>\n";
    for (const Place& place : places_) {
      html += "<tbody>";
      if (places_.size() > 1)
        html += fmt::format(R"(<tr><th colspan="{}" scope="rowgroup">{}</th></tr>)", midnights.size() + 1,
                            placeName(place));
      for (const PageBeacon* beacon : place.beacons) html += daysOf(*beacon, midnights);
      html += "</tbody>\n";
    }
    return html + "</table>";
  }

  static std::string daysOf(const PageBeacon& beacon, const Midnights& midnights) {
    std::string html = fmt::format(R"(<tr id="day-{}"><th scope="row">{}</th>)", escaped(beacon.id.text()),
                                   nameHtml(beacon.name()));
    for (const Date& day : midnights) {
      const auto found = std::ranges::find(beacon.days, day, &PageDay::midnight);
      html += found == beacon.days.end() ? "<td></td>"
                                         : fmt::format("<td>{} {}</td>", decimalText(found->lowest, 1),
                                                       decimalText(found->highest, 1));
    }
    return html + "</tr>\n";
  }

  std::string events() const {
    std::map<BeaconId, const PageBeacon*> byId;
    for (const PageBeacon& beacon : page_.beacons) byId[beacon.id] = &beacon;
    std::string html;
    for (const PageEvent& told : page_.events) {
      const BeaconEvent& event = told.event;
      const auto [state, details] = textOf(told);
      const PageBeacon* beacon = event.beacon ? byId.at(*event.beacon) : nullptr;
      html += fmt::format(R"(<tr data-e="{}"><td>{} {}</td><td class="{}">{}</td><td>{}</td><td>{}</td></tr>)"
                          "\n",
                          event.beacon ? escaped(event.beacon->text()) : "*",
                          dayText(event.heard, page_.now()), secondText(event.heard), state.css, tag(state),
                          beacon == nullptr ? "all" : nameHtml(beacon->name()) + small(beacon->label.place),
                          escaped(details));
    }
    if (html.empty()) html = R"(<tr><td colspan="4">None in this time.</td></tr>)";
    if (page_.earlierEvents > 0)
      html += fmt::format(R"(<tr><td colspan="4">{} earlier ones have no room on this page.</td></tr>)",
                          page_.earlierEvents);
    return html;
  }

  std::string footer() const {
    const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(zoneOffset(page_.now())).count();
    const std::string offset =
        fmt::format("UTC{}{}{}", minutes < 0 ? "\u2212" : "+", std::abs(minutes) / 60,
                    minutes % 60 == 0 ? "" : fmt::format(":{:02}", std::abs(minutes) % 60));
    std::string text =
        fmt::format("From {} {} to {} {}. Times are the gateway\u2019s, {} ({}).", dateText(page_.span.since),
                    clockText(page_.span.since), dateText(page_.now()), clockText(page_.now()),
                    zoneName(page_.now()), offset);
    if (page_.extent) text += fmt::format(" History since {}.", dateText(page_.extent->since));
    return escaped(text);
  }

  const PageModel& page_;
  const PageForm& form_;
  const std::vector<Place> places_;
  const std::vector<Attention> attention_;
};

}  // namespace

std::optional<std::string> pageFile(std::string_view name) {
  if (name == "page.css") return std::string(pageAsset("page.css"));
  if (name == "page.js") return scriptsOfPage();
  if (name == "dygraph.js") return dygraphsWithLicence();
  return std::nullopt;
}

std::string writePage(const PageModel& page, const PageForm& form) {
  return Writer(page, form).write();
}

}  // namespace brenloft::web
