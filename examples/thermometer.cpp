// Prints what every sensor beacon measures: thermometer [SOURCE]. Without one it listens to the machine's
// radio; "demo" needs none, "capture:FILE" hears a recording.

#include <iostream>

#include <brenloft.hpp>

int main(int argc, char** argv) {
  auto search = brenloft::Search::start({.source = argc > 1 ? argv[1] : "auto"});
  if (!search) {
    std::cerr << search.error().text << '\n';
    return 1;
  }
  for (const auto& event : *search) {
    if (const auto* reading = event.reading(); reading && reading->temperatureCelsius)
      std::cout << reading->id << "  " << *reading->temperatureCelsius << " °C" << std::endl;
    if (const auto* lost = event.lost()) std::cout << lost->id << " is silent" << std::endl;
    if (const auto* radio = event.radio(); radio && !radio->isListening())
      std::cerr << "no radio: " << radio->reason << '\n';
  }
}
