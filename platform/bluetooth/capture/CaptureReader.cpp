#include "platform/bluetooth/capture/CaptureReader.h"

#include <map>
#include <utility>

#include <fmt/format.h>

#include "platform/bluetooth/HCIAdvertisingEvents.h"
#include "platform/bluetooth/capture/LinkContent.h"
#include "platform/bluetooth/capture/PacketReader.h"

namespace platform {
namespace {

// More controllers than this in one capture are not believed; their unfinished fragments are forgotten.
constexpr std::size_t kMaximumChannels = 64;
// Faults that are told one by one.
constexpr uint64_t kMostTold = 20;

Result<std::unique_ptr<PacketReader>> openPackets(CaptureBuffer& buffer) {
  for (const auto openFormat : {openBtsnoop, openPcap, openPcapng}) {
    auto packets = openFormat(buffer);
    if (!packets || *packets) return packets;
  }
  const bool isEmpty = buffer.peek(1).empty();
  const std::string cause = buffer.source().error();
  if (!cause.empty()) return Error{.text = "cannot be read: " + cause};
  return Error{.text = isEmpty ? "is empty" : "is no capture file (btsnoop, pcap or pcapng)"};
}

}  // namespace

std::string CaptureDiagnostic::line() const {
  return fmt::format("{}: record {}: {}", file, record, text);
}

struct CaptureReader::State {
  State(std::unique_ptr<ByteSource> source, std::string fileName, DiagnosticHandler handler)
      : buffer(std::move(source)), name(std::move(fileName)), onDiagnostic(std::move(handler)) {}

  CaptureBuffer buffer;
  std::string name;
  DiagnosticHandler onDiagnostic;
  std::unique_ptr<PacketReader> packets;
  CapturePacket packet;
  LinkContent content;
  std::map<uint32_t, HCIAdvertisingEvents> events;  // by controller
  uint64_t record = 0;
  uint64_t faults = 0;
  uint64_t lastFaulty = 0;  // record
  bool hasEnded = false;

  void report(std::string_view fault) {
    if (fault.empty()) return;
    lastFaulty = record;
    if (++faults <= kMostTold && onDiagnostic) onDiagnostic({name, record, std::string(fault)});
  }
  void reportUntold() const {
    if (faults > kMostTold && onDiagnostic)
      onDiagnostic({name, lastFaulty, fmt::format("the last of {} more faults", faults - kMostTold)});
  }

  HCIAdvertisingEvents& eventsOf(uint32_t channel) {
    if (events.size() >= kMaximumChannels && !events.contains(channel)) events.clear();
    return events[channel];
  }

  Next end(const std::string& fault) {
    hasEnded = true;
    if (!buffer.source().isStopped()) {
      const std::string cause = buffer.source().error();
      if (!fault.empty() || !cause.empty()) ++record;
      report(cause.empty() ? fault : "cannot be read: " + cause);
    }
    reportUntold();
    return Next::end;
  }

  Next next() {
    std::string fault;
    const auto result = hasEnded ? PacketReader::Next::end : packets->next(packet, fault);
    content = result == PacketReader::Next::packet ? linkContentOf(packet) : LinkContent{};
    if (result == PacketReader::Next::end) return hasEnded ? Next::end : end(fault);
    ++record;
    report(fault.empty() ? content.fault : fault);
    if (content.state) return Next::state;
    return content.report || !content.event.empty() ? Next::record : Next::skipped;
  }

  void read(const ReportHandler& handler) {
    if (auto heard = std::exchange(content.report, std::nullopt)) {
      heard->time = packet.time;
      handler(*heard);
    } else if (const DataView event = std::exchange(content.event, {}); !event.empty()) {
      report(eventsOf(content.channel).read(event, packet.time, handler));
    }
  }
};

CaptureReader::CaptureReader(std::unique_ptr<State> state) : state_(std::move(state)) {}
CaptureReader::~CaptureReader() = default;

Result<std::unique_ptr<CaptureReader>> CaptureReader::open(const std::string& path,
                                                           DiagnosticHandler onDiagnostic,
                                                           std::stop_token stop) {
  auto source = openFileSource(path, std::move(stop));
  if (!source) return source.error().in("cannot be opened").in(path);
  return open(*std::move(source), path, std::move(onDiagnostic));
}

Result<std::unique_ptr<CaptureReader>> CaptureReader::open(std::unique_ptr<ByteSource> source,
                                                           const std::string& name,
                                                           DiagnosticHandler onDiagnostic) {
  auto state = std::make_unique<State>(std::move(source), name, std::move(onDiagnostic));
  auto packets = openPackets(state->buffer);
  state->hasEnded = state->buffer.source().isStopped();
  if (!packets && !state->hasEnded) return packets.error().in(name);
  if (packets) state->packets = *std::move(packets);
  return std::unique_ptr<CaptureReader>(new CaptureReader(std::move(state)));
}

CaptureReader::Next CaptureReader::next() {
  return state_->next();
}
void CaptureReader::read(const ReportHandler& handler) {
  state_->read(handler);
}
const RadioState& CaptureReader::radioState() const {
  static const RadioState none;
  return state_->content.state ? *state_->content.state : none;
}
uint64_t CaptureReader::record() const {
  return state_->record;
}
Date CaptureReader::time() const {
  return state_->packet.time;
}
uint64_t CaptureReader::position() const {
  return state_->buffer.position();
}
std::optional<uint64_t> CaptureReader::size() const {
  return state_->buffer.source().size();
}

}  // namespace platform
