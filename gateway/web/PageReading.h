#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "gateway/web/PageModel.h"
#include "gateway/web/PageStory.h"

namespace brenloft::web {

// What reading a page and reading one chart have in common. Inside, what cannot be read is thrown.

struct Unreadable {
  platform::Error error;
};
template <typename Value>
Value require(platform::Result<Value> result) {
  if (!result) throw Unreadable{result.error()};
  return *std::move(result);
}

/// The narrowest width that shows so long a span in at most so many pieces: a whole part of a day, because
/// others beat with the day and draw waves that are not there.
std::chrono::seconds widthFor(std::chrono::microseconds span, std::size_t pieces);

/// When a beacon was not there, or nothing listened.
std::vector<HistorySpan> silencesOf(const HistorySpan& span, const std::vector<HistorySpan>& presence,
                                    std::vector<HistorySpan> outages);
/// Pieces of one width, broken where there is a silence between two of them.
PageCurve curveOf(std::vector<HistoryPoint> points, std::chrono::seconds width,
                  const std::vector<HistorySpan>& silences);
PageLayer readLayer(HistoryReader& reader, const BeaconId& beacon, const HistorySpan& span,
                    std::size_t pieces, const std::vector<HistorySpan>& silences);

void eachRow(HistoryReader& reader, const HistoryFilter& filter,
             const std::function<void(const HistoryRow&)>& take);
/// The newest reading of each of these beacons before the end of a span; those that have none in it may be
/// left out.
std::map<BeaconId, Reading> latestIn(HistoryReader& reader, const std::vector<BeaconId>& beacons,
                                     const HistorySpan& span);
/// Of everything that happened to these beacons and to the gateway before the end of a span.
PageStory readStory(HistoryReader& reader, const HistorySpan& span, const PageEnd& end,
                    std::vector<BeaconId> beacons);
/// Whether a beacon was there at the end of the span, as far as its newest reading and the events tell.
bool isPresent(const BeaconStory* story, const std::optional<Reading>& latest);
/// When it was there.
std::vector<HistorySpan> presenceOf(const BeaconStory* story, bool isPresent, const HistorySpan& span);
/// From when on a history of this extent tells whether it was there.
platform::Date knownSince(const BeaconStory* story, const HistorySpan& extent);

}  // namespace brenloft::web
