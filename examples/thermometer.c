/* The same in C: thermometer-c [SOURCE]. */

#include <brenloft.h>
#include <math.h>
#include <stdio.h>

int main(int argc, char** argv) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  if (argc > 1) settings.source = argv[1];
  brenloft_search* search = NULL;
  if (brenloft_search_start(&settings, &search) != BRENLOFT_OK) {
    fprintf(stderr, "%s\n", brenloft_error_text());
    return 1;
  }
  setvbuf(stdout, NULL, _IOLBF, 0); /* each line at once, also into a file or a pipe */
  brenloft_event event = BRENLOFT_EVENT_INIT;
  while (brenloft_search_next(search, BRENLOFT_FOREVER, &event) == BRENLOFT_OK) {
    if (event.kind == BRENLOFT_READING && !isnan(event.temperature_celsius))
      printf("%s  %g °C\n", event.id, event.temperature_celsius);
    if (event.kind == BRENLOFT_LOST) printf("%s is silent\n", event.id);
    if (event.kind == BRENLOFT_RADIO && !event.flag) fprintf(stderr, "no radio: %s\n", event.text);
  }
  brenloft_search_free(search);
  return 0;
}
