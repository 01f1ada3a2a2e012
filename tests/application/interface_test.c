/* The C interface, from C11. */

#include <math.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "application/c/brenloft.h"

static void check(bool holds, const char* what, int line) {
  if (holds) return;
  fprintf(stderr, "line %d: %s\n(last error: %s)\n", line, what, brenloft_error_text());
  exit(1);
}
#define CHECK(what) check((what), #what, __LINE__)

static brenloft_event fridge(double temperature) {
  brenloft_event event = BRENLOFT_READING_INIT;
  strcpy(event.id, "C0-C1-5C-00-00-01");
  event.rssi_dbm = -61;
  event.temperature_celsius = temperature;
  event.relative_humidity_percent = 38.7;
  event.battery_percent = 69;
  event.acceleration[2] = -32768;
  strcpy(event.service, "FFF0");
  return event;
}

static brenloft_search* search_on(brenloft_air* air) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  settings.air = air;
  brenloft_search* search = NULL;
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_OK);
  return search;
}

static void gives_readings_as_they_were_sent(void) {
  brenloft_air* air = NULL;
  CHECK(brenloft_air_make(&air) == BRENLOFT_OK);
  brenloft_search* search = search_on(air);
  const brenloft_event sent = fridge(-0.01);
  CHECK(brenloft_air_send(air, &sent) == BRENLOFT_OK);
  brenloft_event heard = BRENLOFT_EVENT_INIT;
  const int32_t kinds[] = {BRENLOFT_RADIO, BRENLOFT_FOUND, BRENLOFT_READING};
  for (int i = 0; i < 3; ++i) {
    CHECK(brenloft_search_next(search, BRENLOFT_FOREVER, &heard) == BRENLOFT_OK);
    CHECK(heard.kind == kinds[i]);
  }
  CHECK(strcmp(heard.id, sent.id) == 0 && strcmp(heard.service, "FFF0") == 0);
  CHECK(heard.temperature_celsius == -0.01 && heard.relative_humidity_percent == 38.7);
  CHECK(heard.rssi_dbm == -61 && heard.battery_percent == 69 && heard.acceleration[2] == -32768);
  CHECK(heard.time_us == INT64_C(1767225600000000));
  CHECK(brenloft_search_next(search, BRENLOFT_FOREVER, &heard) == BRENLOFT_NONE);

  CHECK(brenloft_air_advance(air, 30000) == BRENLOFT_OK);
  CHECK(brenloft_search_next(search, 0, &heard) == BRENLOFT_OK);
  CHECK(heard.kind == BRENLOFT_LOST && heard.time_us - heard.last_heard_us == 30000000);
  CHECK(isnan(heard.temperature_celsius));

  CHECK(brenloft_air_set_radio(air, BRENLOFT_RADIO_NOT_PERMITTED, "blocked by rfkill") == BRENLOFT_OK);
  CHECK(brenloft_search_next(search, 0, &heard) == BRENLOFT_OK);
  CHECK(heard.kind == BRENLOFT_RADIO && heard.flag == 0 && strcmp(heard.text, "blocked by rfkill") == 0);
  CHECK(heard.radio_state == BRENLOFT_RADIO_NOT_PERMITTED);

  brenloft_search_stop(search);
  CHECK(brenloft_search_next(search, BRENLOFT_FOREVER, &heard) == BRENLOFT_END);
  brenloft_air_free(air);
  brenloft_search_free(search);
}

static void loses_who_is_expected_and_never_heard(void) {
  brenloft_air* air = NULL;
  CHECK(brenloft_air_make(&air) == BRENLOFT_OK);
  const char* const expected[] = {"c0:c1:5c:00:00:01"};
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  settings.air = air;
  settings.expected = expected;
  settings.expected_count = 1;
  brenloft_search* search = NULL;
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_OK);
  CHECK(brenloft_air_advance(air, 30000) == BRENLOFT_OK);
  brenloft_event event = BRENLOFT_EVENT_INIT;
  CHECK(brenloft_search_next(search, 0, &event) == BRENLOFT_OK && event.kind == BRENLOFT_RADIO);
  CHECK(brenloft_search_next(search, 0, &event) == BRENLOFT_OK && event.kind == BRENLOFT_LOST);
  CHECK(strcmp(event.id, "C0-C1-5C-00-00-01") == 0 && event.last_heard_us == 0);
  const uint8_t frame[22] = {0};
  event.size = 0;
  CHECK(brenloft_decode(frame, sizeof frame, &event) == BRENLOFT_UNSUPPORTED);
  brenloft_search_free(search);
  brenloft_air_free(air);
}

/* A program that was built when the structs were shorter. */
static void leaves_alone_what_an_older_program_has_not(void) {
  brenloft_air* air = NULL;
  CHECK(brenloft_air_make(&air) == BRENLOFT_OK);
  brenloft_search* search = search_on(air);
  const brenloft_event sent = fridge(4);
  CHECK(brenloft_air_send(air, &sent) == BRENLOFT_OK);
  enum { kOlder = offsetof(brenloft_event, service), kCount = 3 };
  unsigned char room[kCount * kOlder + 1];
  room[(size_t)kCount * kOlder] = 0xA5;
  size_t count = 0;
  CHECK(brenloft_search_next_many(search, 0, (brenloft_event*)(void*)room, kOlder, kCount, &count) ==
        BRENLOFT_OK);
  brenloft_event last;
  // NOLINTNEXTLINE(clang-analyzer-security.insecureAPI.DeprecatedOrUnsafeBufferHandling)
  memcpy(&last, room + (ptrdiff_t)2 * kOlder, kOlder);
  CHECK(count == kCount && last.size == kOlder && last.temperature_celsius == 4 &&
        room[(size_t)kCount * kOlder] == 0xA5);
  brenloft_search_free(search);
  brenloft_air_free(air);
}

static int ended = 0;
static int readings = 0;
static void count_readings(void* user_data, const brenloft_event* event) {
  int* const last = user_data;
  if (event == NULL)
    ++ended;
  else if (event->kind == BRENLOFT_READING)
    *last = ++readings;
}

static void hands_events_to_a_handler(void) {
  int last = 0;
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  brenloft_air* air = NULL;
  CHECK(brenloft_air_make(&air) == BRENLOFT_OK);
  settings.air = air;
  brenloft_search* search = NULL;
  CHECK(brenloft_search_start_with_handler(&settings, count_readings, &last, &search) == BRENLOFT_OK);
  const brenloft_event sent = fridge(4);
  CHECK(brenloft_air_send(air, &sent) == BRENLOFT_OK);
  CHECK(last == 1);
  brenloft_search_free(search);
  brenloft_air_free(air);
}

static brenloft_search* freed_inside = NULL;
static void free_it(void* user_data, const brenloft_event* event) {
  (void)user_data;
  if (event == NULL || event->kind != BRENLOFT_FOUND) return;
  brenloft_search_free(freed_inside);
  freed_inside = NULL;
}

static void may_be_freed_by_its_handler(void) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  brenloft_air* air = NULL;
  CHECK(brenloft_air_make(&air) == BRENLOFT_OK);
  settings.air = air;
  CHECK(brenloft_search_start_with_handler(&settings, free_it, NULL, &freed_inside) == BRENLOFT_OK);
  const brenloft_event sent = fridge(4);
  CHECK(brenloft_air_send(air, &sent) == BRENLOFT_OK);
  CHECK(freed_inside == NULL);
  CHECK(brenloft_air_advance(air, 60000) == BRENLOFT_OK);
  brenloft_air_free(air);
}

static void gives_ids_as_events_have_them(void) {
  char id[BRENLOFT_ID_SIZE];
  CHECK(brenloft_beacon_id("c0:c1:5c:00:00:01", id, sizeof id) == BRENLOFT_OK);
  CHECK(strcmp(id, "C0-C1-5C-00-00-01") == 0);
  CHECK(brenloft_beacon_id("c0:c1:5c:00:00:01", id, 17) == BRENLOFT_UNSUPPORTED);
  CHECK(brenloft_beacon_id("fridge", id, sizeof id) == BRENLOFT_UNSUPPORTED);
  CHECK(strcmp(brenloft_error_text(), "no beacon has this id: fridge") == 0);
}

static void pulls_the_demonstration_to_its_end(void) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  settings.source = "demo";
  settings.kinds = BRENLOFT_SENSORS | BRENLOFT_IBEACONS;
  brenloft_search* search = NULL;
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_OK);
  CHECK(brenloft_search_descriptor(search) >= 0);
  brenloft_event event = BRENLOFT_EVENT_INIT;
  int sensors = 0;
  int doors = 0;
  while (brenloft_search_next(search, BRENLOFT_FOREVER, &event) == BRENLOFT_OK) {
    sensors += event.kind == BRENLOFT_READING;
    doors += event.kind == BRENLOFT_SIGHTING;
  }
  CHECK(sensors > 200 && doors > 200);
  brenloft_search_free(search);
}

static void explains_what_is_wrong(void) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  brenloft_search* search = NULL;
  settings.source = "captur:x";
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_UNSUPPORTED);
  CHECK(strcmp(brenloft_error_text(), "no such source: captur:x; did you mean capture:x?") == 0);
  CHECK(brenloft_search_start(NULL, &search) == BRENLOFT_UNSUPPORTED);
  CHECK(strcmp(brenloft_error_text(), "settings is NULL") == 0);
  settings.source = "capture:/nowhere/x";
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_ABSENT);
  const brenloft_region region = {"51C70E2A-9B44-4D1F-8A63-2FD075E81C36", 65536, -1};
  settings.source = "demo";
  settings.regions = &region;
  settings.region_count = 1;
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_UNSUPPORTED);
  CHECK(search == NULL);
  settings.kinds = BRENLOFT_IBEACONS;
  settings.regions = NULL;
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_UNSUPPORTED);
  CHECK(strcmp(brenloft_error_text(), "regions is NULL") == 0);
  settings.size = 0;
  CHECK(brenloft_search_start(&settings, &search) == BRENLOFT_UNSUPPORTED);
  brenloft_event event = BRENLOFT_EVENT_INIT;
  const uint8_t data[21] = {0};
  CHECK(brenloft_decode(data, sizeof data, &event) == BRENLOFT_UNSUPPORTED);
  brenloft_air* air = NULL;
  CHECK(brenloft_air_make(&air) == BRENLOFT_OK);
  brenloft_event hot = fridge(327.68);
  CHECK(brenloft_air_send(air, &hot) == BRENLOFT_UNSUPPORTED);
  CHECK(brenloft_air_advance(air, -1) == BRENLOFT_UNSUPPORTED);
  CHECK(brenloft_air_set_radio(air, 6, NULL) == BRENLOFT_UNSUPPORTED);
  hot = fridge(20);
  hot.rssi_dbm = 999;
  CHECK(brenloft_air_send(air, &hot) == BRENLOFT_UNSUPPORTED);
  hot.rssi_dbm = -128;
  int32_t number = 0;
  CHECK(brenloft_air_repeat(air, &hot, 0, &number) == BRENLOFT_UNSUPPORTED);
  CHECK(brenloft_air_repeat(air, &hot, 1000, &number) == BRENLOFT_OK);
  CHECK(brenloft_air_silence(air, number) == BRENLOFT_OK);
  CHECK(brenloft_air_advance(air, 0) == BRENLOFT_OK && brenloft_error_text()[0] == '\0');
  brenloft_air_free(air);
  brenloft_search_free(NULL);
}

int main(void) {
  gives_readings_as_they_were_sent();
  loses_who_is_expected_and_never_heard();
  leaves_alone_what_an_older_program_has_not();
  hands_events_to_a_handler();
  may_be_freed_by_its_handler();
  gives_ids_as_events_have_them();
  pulls_the_demonstration_to_its_end();
  explains_what_is_wrong();
  return 0;
}
