#include <algorithm>
#include <filesystem>
#include <random>
#include <string>

#include <fmt/format.h>

#include "gateway/configuration/LiveSettings.h"
#include "gateway/history/HistoryReader.h"
#include "gateway/history/HistoryWriter.h"
#include "gateway/web/PageModel.h"
#include "gateway/web/PageWriter.h"
#include "platform/dispatch/RealTimeDispatch.h"
#include "tools/brenloft/BeaconNames.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/DocumentFile.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/SpanTexts.h"
#include "tools/brenloft/Store.h"
#include "tools/brenloft/TimeText.h"

namespace brenloft {
namespace {

std::string randomName() {
  std::random_device device;
  std::string name;
  for (int i = 0; i < 4; ++i) name += fmt::format("{:08x}", device());
  return name;
}

web::PageModel readPage(HistoryReader& reader, const ReportOptions& options, const Settings& settings) {
  const platform::Date now = platform::RealTimeDispatch::make()->date();
  HistorySpan span = spanFromTexts(options.since, options.until, now);
  const bool isOfNow = span.until >= now;
  span.until = std::min(span.until, now);
  if (span.until - span.since < std::chrono::minutes(1))
    throw Failure(ExitStatus::usage, "--since: less than a minute is too short for a page");
  const std::filesystem::path file = folderOfContainer(options.container) / kHistoryFileName;
  auto page = web::readPageModel(
      reader, settings,
      {.span = span,
       .beacons = beaconsFromTexts("--beacon", options.beacons, *options.settings),
       .end = {.isWritten = !isOfNow || HistoryReader::isWritten(file).value_or(true), .isPast = !isOfNow}});
  if (!page)
    throw Failure(ExitStatus::storeUnusable, fmt::format("{}: {}", file.string(), page.error().text));
  return *std::move(page);
}

void writeTo(const std::string& file, const std::string& page) {
  if (file.empty()) {
    Output out(Output::Buffering::blocks);
    out.write(page);
    return out.finish();
  }
  DocumentFile document(file);
  document.write(page);
  document.finish();
}

// The page is whole, but most often another time was meant.
void tellWhereAllIsEarlier(const web::PageModel& page) {
  if (!page.extent || page.extent->until > page.span.since) return;
  printMessage(
      fmt::format("nothing in that time; the history ends at {}; --since and --until choose another",
                  TimeText(TimeForm::local).whole(page.extent->until - std::chrono::microseconds(1))));
}

}  // namespace

ExitStatus runReport(const ReportOptions& options) {
  installForStore(options.container);
  if (!options.container.empty()) storeIn(options.container);  // says what is wrong with the folder
  const auto settings = options.settings->current();
  const std::filesystem::path file = folderOfContainer(options.container) / kHistoryFileName;
  const auto reader = HistoryReader::open(file);
  if (!reader) {
    const bool isAbsent = reader.error().kind == platform::Error::Kind::absent;
    throw Failure(
        ExitStatus::storeUnusable,
        fmt::format("{}: {}{}", file.string(), reader.error().text,
                    isAbsent ? "; scan --history keeps one, --container names another folder" : ""));
  }
  const web::PageModel page = readPage(**reader, options, *settings);
  writeTo(options.out, web::writePage(page, {options.title, randomName()}));
  tellWhereAllIsEarlier(page);
  return ExitStatus::done;
}

}  // namespace brenloft
