/* The same in C: thermometer-c [SOURCE]. */

#include <brenloft.h>
#include <stdio.h>

int main(int argc, char **argv) {
  brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
  if (argc > 1) settings.source = argv[1];
  brenloft_search *search = NULL;
  if (brenloft_search_start(&settings, &search) != BRENLOFT_OK) {
    fprintf(stderr, "%s\n", brenloft_error_text());
    return 1;
  }
  brenloft_event event = BRENLOFT_EVENT_INIT;
  while (brenloft_search_next(search, BRENLOFT_FOREVER, &event) == BRENLOFT_OK) {
    /* NaN, which is what a beacon without a thermometer gives, is not equal to itself. */
    if (event.kind == BRENLOFT_READING && event.temperature_celsius == event.temperature_celsius)
      printf("%s  %g °C\n", event.id, event.temperature_celsius);
    if (event.kind == BRENLOFT_LOST) printf("%s is silent\n", event.id);
  }
  brenloft_search_free(search);
  return 0;
}
