#include <fmt/format.h>

#include "platform/bluetooth/radios/RadioInventory.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"
#include "tools/brenloft/Texts.h"

namespace brenloft {
namespace {

void writeRow(Output& out, std::string_view source, std::string_view state, std::string_view name,
              std::string_view why) {
  out.write(fmt::format("{:<24}  {:<13}  {:<28}  {}\n", source, state, printable(name), printable(why)));
}

}  // namespace

ExitStatus runSources() {
  const auto inventory = platform::RadioInventory::take();
  Output out(Output::Buffering::blocks);
  writeRow(out, "source", "state", "name", "how, or why not");
  for (const auto& candidate : inventory.candidates)
    writeRow(out, candidate.address, platform::textOf(candidate.state), candidate.name, candidate.why);
  writeRow(out, "demo", "usable", "simulated beacons", "needs no radio");
  writeRow(out, "capture:FILE", "usable", "recorded advertisements", "btsnoop, pcap, pcapng");
  out.finish();
  if (!inventory.adapterProblem.empty()) say("kernel: " + inventory.adapterProblem);
  const auto choice = platform::chooseRadio(inventory);
  say(fmt::format("auto: {}{}{}", choice.address, choice.address.empty() ? "" : ": ", choice.why));
  return ExitStatus::done;
}

}  // namespace brenloft
