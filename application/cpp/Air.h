#pragma once

#include <memory>

#include "application/cpp/Hearing.h"
#include "application/cpp/brenloft.hpp"
#include "platform/dispatch/VirtualDispatch.h"
#include "platform/simulated/SimulatedRadio.h"

namespace brenloft {

/// The simulated air, as a search sees it; every `SimulatedAir` is one.
class Air final : public SimulatedAir {
 public:
  explicit Air(Time start);

  void send(const Reading& reading) override;
  void send(const Sighting& sighting) override;
  int repeat(const Reading& reading, std::chrono::milliseconds interval) override;
  int repeat(const Sighting& sighting, std::chrono::milliseconds interval) override;
  void silence(int number) override;
  void setRadio(RadioState state, std::string reason) override;
  void advance(std::chrono::microseconds duration) override;
  Time now() const override;

  Hearing hearing();

 private:
  void sendPacket(const platform::SimulatedAdvertisement& packet);
  int repeatPacket(platform::SimulatedAdvertisement packet, std::chrono::milliseconds interval);

  const std::shared_ptr<platform::VirtualDispatch> clock_;
  const std::shared_ptr<platform::SimulatedRadio> radio_;
  const std::shared_ptr<RadioStates> states_;
  const std::shared_ptr<platform::BluetoothService> bluetooth_;
};

}  // namespace brenloft
