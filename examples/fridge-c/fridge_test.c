/* The alarm without a radio and without waiting: an hour in the air takes no time. */

#include <stdlib.h>

#include "fridge_alarm.h"

static brenloft_air* air = NULL;
static brenloft_search* search = NULL;
static int told = 0;
static char last[64];
static void note(const char* line) {
  ++told;
  snprintf(last, sizeof last, "%s", line);
}
static fridge_alarm fridge = {.beacon = "C0-C1-5C-00-00-01", .notify = note};

/* Hands the alarm what has happened so far: on an air, `next` never waits. */
static void pass(int minutes) {
  brenloft_air_advance(air, (int64_t)minutes * 60000);
  brenloft_event event = BRENLOFT_EVENT_INIT;
  while (brenloft_search_next(search, 0, &event) == BRENLOFT_OK) fridge_alarm_heard(&fridge, &event);
}

/* The beacon sends this every ten seconds for so long. */
static void measures(double celsius, int minutes) {
  brenloft_event reading = BRENLOFT_READING_INIT;
  strcpy(reading.id, fridge.beacon);
  reading.temperature_celsius = celsius;
  reading.relative_humidity_percent = 40;
  int32_t number = 0;
  brenloft_air_repeat(air, &reading, 10000, &number);
  pass(minutes);
  brenloft_air_silence(air, number);
}

static void expect(int count, const char* line) {
  if (told == count && strcmp(last, line) == 0) return;
  fprintf(stderr, "told %d times, not %d; last \"%s\", not \"%s\"\n", told, count, last, line);
  exit(1);
}

int main(void) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  if (brenloft_air_make(&air) != BRENLOFT_OK) return 1;
  settings.air = air;
  if (brenloft_search_start(&settings, &search) != BRENLOFT_OK) return 1;

  for (int i = 0; i < 10; ++i) { /* an open door is forgiven */
    measures(9.5, 5);
    measures(5.0, 1);
  }
  measures(9.5, 9);
  expect(0, "");
  measures(9.5, 20);
  measures(7.5, 20);
  expect(1, "the fridge is too warm: 9.5 C");
  measures(4.0, 1);
  expect(2, "the fridge is cold again");
  pass(1);
  expect(3, "no word from the fridge");

  brenloft_search_free(search);
  brenloft_air_free(air);
  return 0;
}
