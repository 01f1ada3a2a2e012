// fridge BEACON [SOURCE]: watches one beacon.

#include <iostream>

#include "FridgeAlarm.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: fridge BEACON [SOURCE], such as: fridge C0-C1-5C-00-00-01 demo\n";
    return 2;
  }
  const auto beacon = brenloft::beaconId(argv[1]);
  if (!beacon) {
    std::cerr << beacon.error().text << '\n';
    return 2;
  }
  auto search = brenloft::Search::start({.source = argc > 2 ? argv[2] : "auto", .expected = {*beacon}});
  if (!search) {
    std::cerr << search.error().text << '\n';
    return 1;
  }
  FridgeAlarm alarm(*beacon, [](const std::string& line) { std::cout << line << std::endl; });
  for (const auto& event : *search) {
    if (const auto* radio = event.radio(); radio && !radio->isListening())
      std::cerr << "no radio: " << radio->reason << '\n';
    alarm.heard(event);
  }
}
