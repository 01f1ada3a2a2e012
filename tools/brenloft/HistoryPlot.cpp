#include "tools/brenloft/HistoryPlot.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "gateway/formats/Decimal.h"
#include "gateway/web/PageModel.h"
#include "tools/brenloft/Output.h"

namespace brenloft {
namespace {

struct PlotQuantity {
  Quantity quantity;
  std::string_view name;
  std::string_view unit;
  std::string_view asciiUnit;
  int32_t unitSize;
};
constexpr PlotQuantity kPlotQuantities[] = {
    {Quantity::temperature, "temperature", "°C", "degrees Celsius", 100},
    {Quantity::humidity, "humidity", "%", "%", 100},
    {Quantity::rssi, "signal", "dBm", "dBm", 1},
    {Quantity::battery, "battery", "%", "%", 1},
};

const PlotQuantity& factsOf(Quantity quantity) {
  return *std::ranges::find(kPlotQuantities, quantity, &PlotQuantity::quantity);
}

std::string plottedText(const PlotQuantity& facts, int32_t value) {
  if (facts.unitSize == 1) return std::to_string(value);
  std::string text;
  appendHundredths(text, value);
  return text;
}

const web::PageCurve& curveOf(const web::PageBeacon& beacon, Quantity quantity) {
  const auto index = std::ranges::find(web::kPageQuantities, quantity) - web::kPageQuantities.begin();
  return beacon.layers.front().curves[static_cast<std::size_t>(index)];
}

// Weather; of what measures none, the signal.
std::vector<Quantity> quantitiesOf(const web::PageBeacon& beacon, const std::vector<Quantity>& asked) {
  if (!asked.empty()) return asked;
  std::vector<Quantity> measured;
  for (const Quantity quantity : {Quantity::temperature, Quantity::humidity})
    if (!curveOf(beacon, quantity).points.empty()) measured.push_back(quantity);
  if (measured.empty()) measured.push_back(Quantity::rssi);
  return measured;
}

std::string plotOf(const web::PageBeacon& beacon, Quantity quantity, const PlotRequest& request,
                   const ChartForm& form) {
  const PlotQuantity& facts = factsOf(quantity);
  const web::PageCurve& curve = curveOf(beacon, quantity);
  if (curve.points.empty()) return {};
  const auto lowest = std::ranges::min(curve.points, {}, &HistoryPoint::minimum).minimum;
  const auto highest = std::ranges::max(curve.points, {}, &HistoryPoint::maximum).maximum;
  const std::string title = fmt::format("{}: {} in {}, {} to {}", printable(beacon.name()), facts.name,
                                        form.isBraille ? facts.unit : facts.asciiUnit,
                                        plottedText(facts, lowest), plottedText(facts, highest));
  return drawn({.title = title,
                .unitSize = facts.unitSize,
                .span = request.span,
                .now = request.now,
                .points = curve.points,
                .breaks = curve.breaks},
               form);
}

// LC_ALL, else LC_CTYPE, else LANG, as every program has it; without setting the locale of this one.
bool isUTF8Locale() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;
    std::string codeset;
    for (const char c : std::string_view(value))
      if (c != '-') codeset += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return codeset.find(".utf8") != std::string::npos;
  }
  return false;
}

}  // namespace

platform::Result<std::string> plotHistory(HistoryReader& reader, const Settings& settings,
                                          const PlotRequest& request, const ChartForm& form) {
  const auto page = web::readPageModel(reader, settings, {request.span, request.beacons});
  if (!page) return page.error();
  std::string text;
  for (const web::PageBeacon& beacon : page->beacons) {
    if (beacon.layers.empty()) continue;
    for (const Quantity quantity : quantitiesOf(beacon, request.quantities)) {
      const std::string plot = plotOf(beacon, quantity, request, form);
      if (!plot.empty()) text += (text.empty() ? "" : "\n") + plot;
    }
  }
  return text;
}

ChartForm chartFormOfTerminal() {
  return {.width = Output::screenSize().columns, .isBraille = isUTF8Locale()};
}

}  // namespace brenloft
