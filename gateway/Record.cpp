#include "gateway/Record.h"

namespace brenloft {

std::string_view textOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::plausible:
      return "plausible";
    case Verdict::temperature:
      return "temperature";
    case Verdict::humidity:
      return "humidity";
    case Verdict::battery:
      return "battery";
    case Verdict::identity:
      return "identity";
    case Verdict::unknown:
      return "unknown";
    case Verdict::ignored:
      return "ignored";
  }
  return "";
}

std::string_view textOf(BeaconEvent::Kind kind) {
  using Kind = BeaconEvent::Kind;
  switch (kind) {
    case Kind::found:
      return "found";
    case Kind::lost:
      return "lost";
    case Kind::emergency:
      return "emergency";
    case Kind::emergencyOver:
      return "emergency_over";
    case Kind::alarmRaised:
      return "alarm_raised";
    case Kind::alarmCleared:
      return "alarm_cleared";
    case Kind::radio:
      return "radio";
    case Kind::gap:
      return "gap";
  }
  return "";
}

const BeaconId* beaconOf(const Record& record) {
  if (const auto* reading = std::get_if<Reading>(&record)) return &reading->beacon;
  const auto& beacon = std::get<BeaconEvent>(record).beacon;
  return beacon ? &*beacon : nullptr;
}

}  // namespace brenloft
