// Readings a second of processor time across each face of the library, out of a capture:
//     brenloft simulate -o many.btsnoop --beacons 50 --seconds 7500
//     build/bench/bench/faces many.btsnoop          and for Python: bench/faces.py many.btsnoop
// It measures by itself: a search has threads of its own, whose time counts too.

#include <array>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <string>

#include "application/c/brenloft.h"
#include "application/cpp/brenloft.hpp"

namespace {

using brenloft::Search;

Search searchOn(const std::string& source, brenloft::Handlers handlers) {
  auto search = Search::start({.source = source}, std::move(handlers));
  if (!search) throw std::runtime_error(search.error().text);
  return *std::move(search);
}

int64_t pulled(const std::string& source) {
  auto search = Search::start({.source = source});
  if (!search) throw std::runtime_error(search.error().text);
  int64_t readings = 0;
  for (const auto& event : *search) readings += event.reading() != nullptr ? 1 : 0;
  return readings;
}

int64_t handed(const std::string& source) {
  std::mutex mutex;
  std::condition_variable ended;
  bool isOver = false;
  int64_t readings = 0;
  const Search search = searchOn(source, {.onReading = [&](const brenloft::Reading&) { ++readings; },
                                          .onEnd =
                                              [&] {
                                                const std::scoped_lock lock(mutex);
                                                isOver = true;
                                                ended.notify_one();
                                              }});
  std::unique_lock lock(mutex);
  ended.wait(lock, [&] { return isOver; });
  return readings;
}

brenloft_search* startC(const std::string& source) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  settings.source = source.c_str();
  brenloft_search* search = nullptr;
  if (brenloft_search_start(&settings, &search) != BRENLOFT_OK)
    throw std::runtime_error(brenloft_error_text());
  return search;
}

int64_t pulledInC(const std::string& source) {
  brenloft_search* const search = startC(source);
  int64_t readings = 0;
  brenloft_event event = BRENLOFT_EVENT_INIT;
  while (brenloft_search_next(search, BRENLOFT_FOREVER, &event) == BRENLOFT_OK)
    readings += event.kind == BRENLOFT_READING ? 1 : 0;
  brenloft_search_free(search);
  return readings;
}

int64_t pulledManyInC(const std::string& source) {
  brenloft_search* const search = startC(source);
  int64_t readings = 0;
  std::array<brenloft_event, 256> events{};
  std::size_t count = 0;
  while (brenloft_search_next_many(search, BRENLOFT_FOREVER, events.data(), sizeof events[0], events.size(),
                                   &count) == BRENLOFT_OK)
    for (std::size_t i = 0; i < count; ++i) readings += events[i].kind == BRENLOFT_READING ? 1 : 0;
  brenloft_search_free(search);
  return readings;
}

void measure(const char* what, int64_t (*run)(const std::string&), const std::string& source) {
  const auto before = std::clock();
  const int64_t readings = run(source);
  const double seconds = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
  std::printf("%-32s %9lld readings %6.2f s %9.0f/s\n", what, static_cast<long long>(readings), seconds,
              static_cast<double>(readings) / seconds);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: faces CAPTURE\n", stderr);
    return 2;
  }
  const std::string source = "capture:" + std::string(argv[1]);
  try {
    measure("C++, handed to a handler", handed, source);
    measure("C++, pulled", pulled, source);
    measure("C, pulled one by one", pulledInC, source);
    measure("C, pulled many at a time", pulledManyInC, source);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "faces: %s\n", error.what());
    return 1;
  }
}
