#include <string>
#include <vector>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "platform/bluetooth/radios/RadioInventory.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"

namespace brenloft {
namespace {

using platform::RadioCandidate;

// What needs no radio stands behind what this machine has.
std::vector<RadioCandidate> allSources(const platform::RadioInventory& inventory) {
  auto all = inventory.candidates;
  all.push_back({.address = "demo", .name = "simulated beacons", .why = "needs no radio"});
  all.push_back(
      {.address = "capture:FILE", .name = "recorded advertisements", .why = "btsnoop, pcap, pcapng"});
  return all;
}

std::string row(std::string_view source, std::string_view state, std::string_view name,
                std::string_view why) {
  return fmt::format("{:<24}  {:<13}  {:<28}  {}\n", source, state, printable(name), printable(why));
}

void writeTable(const std::vector<RadioCandidate>& sources, Output& out) {
  out.write(row("source", "state", "name", "how, or why not"));
  for (const auto& [address, name, state, why] : sources)
    out.write(row(address, platform::textOf(state), name, why));
}

void writeLines(const std::vector<RadioCandidate>& sources, std::string_view automatic, Output& out) {
  JsonLine line;
  for (const auto& [address, name, state, why] : sources) {
    line.beginObject().plainKey("source").text(address).plainKey("state").text(platform::textOf(state));
    line.plainKey("name")
        .text(name)
        .plainKey("why")
        .text(why)
        .plainKey("auto")
        .boolean(address == automatic)
        .endObject();
    out.write(line.take());
  }
}

}  // namespace

ExitStatus runSources(const SourcesOptions& options) {
  const auto inventory = platform::RadioInventory::take();
  const auto choice = platform::chooseRadio(inventory);
  const auto sources = allSources(inventory);
  Output out(Output::Buffering::blocks);
  if (options.format == Format::table)
    writeTable(sources, out);
  else
    writeLines(sources, choice.address, out);
  out.finish();
  if (inventory.adapterError) printMessage(inventory.adapterError->in("kernel").text);
  printMessage(fmt::format("auto: {}{}{}", choice.address, choice.address.empty() ? "" : ": ", choice.why));
  return ExitStatus::done;
}

}  // namespace brenloft
