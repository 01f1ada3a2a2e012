#include <string>
#include <vector>

#include <fmt/format.h>

#include "gateway/Texts.h"
#include "platform/sources/SourceInventory.h"
#include "tools/brenloft/Commands.h"
#include "tools/brenloft/JsonLine.h"
#include "tools/brenloft/Messages.h"
#include "tools/brenloft/Output.h"

namespace brenloft {
namespace {

std::string row(std::string_view source, std::string_view state, std::string_view name,
                std::string_view why) {
  return fmt::format("{:<24}  {:<13}  {:<28}  {}\n", source, state, printable(name), printable(why));
}

void writeTable(const std::vector<platform::OfferedSource>& sources, Output& out) {
  out.write(row("source", "state", "name", "how, or why not"));
  for (const auto& [address, name, state, why] : sources) out.write(row(address, state, name, why));
}

void writeLines(const std::vector<platform::OfferedSource>& sources, std::string_view automatic,
                Output& out) {
  JsonLine line;
  for (const auto& [address, name, state, why] : sources) {
    line.beginObject().plainKey("source").text(address).plainKey("state").text(state);
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
  const auto inventory = platform::SourceInventory::take();
  Output out(Output::Buffering::blocks);
  if (options.format == Format::table)
    writeTable(inventory.sources, out);
  else
    writeLines(inventory.sources, inventory.automatic, out);
  out.finish();
  if (inventory.problem) printMessage(inventory.problem->in("kernel").text);
  printMessage(fmt::format("auto: {}{}{}", inventory.automatic, inventory.automatic.empty() ? "" : ": ",
                           inventory.why));
  return ExitStatus::done;
}

}  // namespace brenloft
