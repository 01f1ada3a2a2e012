#include "tools/brenloft/LimitDeclarations.h"

#include <charconv>
#include <string>
#include <vector>

#include "gateway/history/HistoryOptions.h"
#include "platform/bluetooth/CBUUID.h"
#include "tools/brenloft/OptionDeclarations.h"

namespace brenloft {
namespace {

using Texts = std::vector<std::string>;

constexpr int kWeakest = -127;  // dBm, of what a controller can say
constexpr int kStrongest = 20;

template <class Take>
void addRepeatable(CLI::App& command, const std::string& name, const std::string& type,
                   const std::string& help, Take take) {
  command.add_option_function<Texts>(name, take, help + "; may be repeated")
      ->type_name(type)
      ->allow_extra_args(false)
      ->expected(1, -1);
}

// Decimal, or hexadecimal behind 0x.
std::optional<uint16_t> companyFromText(const std::string& text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const char* begin = text.data() + (isHexadecimal ? 2 : 0);
  const char* end = text.data() + text.size();
  uint16_t company = 0;
  const auto [stop, error] = std::from_chars(begin, end, company, isHexadecimal ? 16 : 10);
  return error == std::errc() && stop == end ? std::optional(company) : std::nullopt;
}

void addSenders(CLI::App& command, ReportChoice& heard) {
  addRepeatable(command, "--address", "ADDRESS",
                "only what the device with this address sends, such as C0:00:00:00:00:01",
                [&heard](const Texts& texts) {
                  heard.addresses.clear();
                  for (const std::string& text : texts) {
                    const auto address = platform::BluetoothAddress::fromText(text);
                    if (!address)
                      throw CLI::ValidationError(
                          "--address", fmt::format("'{}' is not an address such as C0:00:00:00:00:01", text));
                    heard.addresses.insert(address->octets);
                  }
                });
  addRepeatable(command, "--company", "ID",
                "only manufacturer data that begins with this company identifier, such as 0x004C",
                [&heard](const Texts& texts) {
                  heard.companies.clear();
                  for (const std::string& text : texts) {
                    const auto company = companyFromText(text);
                    if (!company)
                      throw CLI::ValidationError("--company",
                                                 fmt::format("'{}' is not a number from 0 to 0xFFFF", text));
                    heard.companies.push_back(*company);
                  }
                });
}

}  // namespace

void addServices(CLI::App& command, SearchOptions& options) {
  addRepeatable(command, "--uuid", kUUID, "only this service; default: every one",
                [&options](const Texts& texts) {
                  options.heard.services.clear();
                  for (const std::string& text : texts) {
                    const auto uuid = platform::CBUUID::UUIDWithString(text);
                    if (!uuid)
                      throw CLI::ValidationError(
                          "--uuid", fmt::format("'{}' is not a UUID of 4, 8 or 32 digits", text));
                    options.heard.services.push_back(*uuid);
                  }
                  options.uuid.reset();
                  if (texts.size() == 1)
                    options.uuid = texts.front();  // for one the library itself can be asked
                });
}

void addLimits(CLI::App& command, ReportChoice& heard) {
  addSenders(command, heard);
  command
      .add_option("--min-rssi", heard.leastRssi,
                  fmt::format("only what is received with this many dBm or more, such as -80; from {} to {}",
                              kWeakest, kStrongest))
      ->check(CLI::Range(kWeakest, kStrongest).description(""))
      ->type_name("DBM");
  addNumber(command, "--max-beacons", heard.mostBeacons, 1, "hear only the first N beacons");
  addNumber(command, "--new-per-minute", heard.newPerMinute, 1, "hear at most N new beacons in a minute");
}

void addLogBounds(CLI::App& command, LogBounds& bounds) {
  command
      .add_option_function<std::string>(
          "--log-max",
          [&bounds](const std::string& text) {
            bounds.mostOctets = historySizeFromText(text);
            if (!bounds.mostOctets)
              throw CLI::ValidationError(
                  "--log-max", fmt::format("'{}' is not a size of 1M or more, such as 500M or 2G", text));
          },
          "with --log: delete the oldest rows of the log when the store grows beyond this size, such as 500M")
      ->type_name(kSize);
  addAge(command, "--log-keep", bounds.longest,
         "with --log: delete rows of the log that are older, such as 90d");
}

}  // namespace brenloft
