/* fridge-c BEACON [SOURCE]: watches one beacon. */

#include "fridge_alarm.h"

static void print(const char* line) {
  puts(line);
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: fridge-c BEACON [SOURCE], such as: fridge-c C0-C1-5C-00-00-01 demo\n");
    return 2;
  }
  char id[BRENLOFT_ID_SIZE];
  if (brenloft_beacon_id(argv[1], id, sizeof id) != BRENLOFT_OK) {
    fprintf(stderr, "%s\n", brenloft_error_text());
    return 2;
  }
  const char* const expected[] = {id}; /* its silence is told even when it was never heard */
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  if (argc > 2) settings.source = argv[2];
  settings.expected = expected;
  settings.expected_count = 1;
  brenloft_search* search = NULL;
  if (brenloft_search_start(&settings, &search) != BRENLOFT_OK) {
    fprintf(stderr, "%s\n", brenloft_error_text());
    return 1;
  }
  setvbuf(stdout, NULL, _IOLBF, 0); /* each line at once, also into a file or a pipe */
  fridge_alarm alarm = {.beacon = id, .notify = print};
  brenloft_event event = BRENLOFT_EVENT_INIT;
  while (brenloft_search_next(search, BRENLOFT_FOREVER, &event) == BRENLOFT_OK) {
    if (event.kind == BRENLOFT_RADIO && !event.flag) fprintf(stderr, "no radio: %s\n", event.text);
    fridge_alarm_heard(&alarm, &event);
  }
  brenloft_search_free(search);
  return 0;
}
