/* Says when a fridge was too warm for ten minutes, when it is cold again, and when its beacon is silent. */
#ifndef FRIDGE_ALARM_H
#define FRIDGE_ALARM_H

#include <brenloft.h>
#include <math.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

typedef struct fridge_alarm {
  const char* beacon; /* its id as events have it */
  void (*notify)(const char* line);
  bool is_raised;
  bool is_warm;
  int64_t warm_since_us;
} fridge_alarm;

/* With the reading's own time: the same on a recording, and in a test. */
static void fridge_alarm_measured(fridge_alarm* alarm, double celsius, int64_t time_us) {
  const double too_warm = 8.0, cold_again = 7.0; /* two, so that it does not flicker */
  const int64_t patience_us = INT64_C(10) * 60 * 1000000;
  if (celsius < cold_again) {
    if (alarm->is_raised) alarm->notify("the fridge is cold again");
    alarm->is_raised = false;
  }
  if (celsius > too_warm && !alarm->is_warm) alarm->warm_since_us = time_us;
  alarm->is_warm = celsius > too_warm;
  if (alarm->is_raised || !alarm->is_warm || time_us - alarm->warm_since_us < patience_us) return;
  alarm->is_raised = true;
  char line[64];
  snprintf(line, sizeof line, "the fridge is too warm: %.1f C", celsius);
  alarm->notify(line);
}

static void fridge_alarm_heard(fridge_alarm* alarm, const brenloft_event* event) {
  if (strcmp(event->id, alarm->beacon) != 0) return;
  if (event->kind == BRENLOFT_READING && !isnan(event->temperature_celsius))
    fridge_alarm_measured(alarm, event->temperature_celsius, event->time_us);
  if (event->kind == BRENLOFT_LOST) alarm->notify("no word from the fridge");
}

#endif
