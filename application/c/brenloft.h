#ifndef BRENLOFT_H
#define BRENLOFT_H

/** @file
 * Hears sensor beacons and iBeacons: the C interface of libBrenloftSDK. C99 and later, and C++.
 *
 *     #include <brenloft.h>
 *     #include <stdio.h>
 *
 *     int main(void) {
 *       brenloft_settings settings = BRENLOFT_SETTINGS_INIT;
 *       settings.source = "demo";
 *       brenloft_search *search = NULL;
 *       if (brenloft_search_start(&settings, &search) != BRENLOFT_OK) {
 *         fprintf(stderr, "%s\n", brenloft_error_text());
 *         return 1;
 *       }
 *       brenloft_event event = BRENLOFT_EVENT_INIT;
 *       while (brenloft_search_next(search, BRENLOFT_FOREVER, &event) == BRENLOFT_OK)
 *         if (event.kind == BRENLOFT_READING)
 *           printf("%s  %.2f C\n", event.id, event.temperature_celsius);
 *       brenloft_search_free(search);
 *     }
 *
 * Threads: every function may be called from any thread, one at a time for one object;
 * `brenloft_search_stop` at any time. Texts are UTF-8. No C++ exception leaves a function.
 *
 * Structs begin with their size, which their INIT sets: a program that was built with an older header goes
 * on working with a newer library, which reads and writes no more than that. */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define BRENLOFT_API __attribute__((visibility("default")))

/** What a function returns; fewer than 0 are errors, which `brenloft_error_text` explains. */
typedef enum brenloft_status {
  BRENLOFT_OK = 0,
  BRENLOFT_NONE = 1,           /**< nothing happened within the time */
  BRENLOFT_END = 2,            /**< the search has ended: nothing more will come */
  BRENLOFT_FAILED = -1,        /**< it worked, or could have, and did not */
  BRENLOFT_BUSY = -2,          /**< somebody else has it */
  BRENLOFT_ABSENT = -3,        /**< nothing is there under that name */
  BRENLOFT_OFF = -4,           /**< it is there and switched off */
  BRENLOFT_NOT_PERMITTED = -5, /**< the process lacks a right */
  BRENLOFT_UNSUPPORTED = -6,   /**< an address or a text that can be none, or a NULL where none may be */
} brenloft_status;

/** One line for people: why the last function that was called on this thread failed; "" when it did not. It
 * lives until the next call on this thread. */
BRENLOFT_API const char* brenloft_error_text(void);

/** "1.0.0" */
BRENLOFT_API const char* brenloft_version(void);

/* ---- Events ---- */

typedef enum brenloft_kind {
  BRENLOFT_READING = 1,   /**< one advertisement of a sensor beacon */
  BRENLOFT_SIGHTING = 2,  /**< one advertisement of an iBeacon */
  BRENLOFT_FOUND = 3,     /**< a beacon is there that was not; before the reading that it was found by */
  BRENLOFT_LOST = 4,      /**< a beacon was silent for `lost_after_ms`, while the radio listened */
  BRENLOFT_EMERGENCY = 5, /**< a sensor's emergency began (`flag` 1) or is over (0); behind its reading */
  BRENLOFT_RADIO = 6,     /**< the radio listens (`flag` 1) or does not (0): see `radio_state` and `text` */
  BRENLOFT_MISSED = 7,    /**< `count` events were dropped: they came faster than they were taken */
} brenloft_kind;

/** What a radio is good for now; the rest is in the text for people. One that never listens says why at the
 * start, and nothing else comes. */
typedef enum brenloft_radio_state {
  BRENLOFT_RADIO_UNKNOWN = 0,
  BRENLOFT_RADIO_RESTARTING = 1,    /**< it failed and is tried again, without end */
  BRENLOFT_RADIO_UNUSABLE = 2,      /**< no bluetoothd, no adapter, or one that cannot listen */
  BRENLOFT_RADIO_NOT_PERMITTED = 3, /**< this process may not use it */
  BRENLOFT_RADIO_OFF = 4,           /**< switched off, blocked, unplugged, or another program has it */
  BRENLOFT_RADIO_LISTENING = 5,     /**< it is on; whether it hears well, the text tells */
} brenloft_radio_state;

/** Of `rssi_dbm`, when none was measured. */
#define BRENLOFT_NO_RSSI INT32_MIN

enum { BRENLOFT_ID_SIZE = 64 };

/** What happened; members that a kind does not name are 0, "", or, of the readings, NaN. */
typedef struct brenloft_event {
  size_t size;     /**< of this struct */
  int32_t kind;    /**< a brenloft_kind */
  int32_t flag;    /**< of an emergency and of the radio */
  int64_t time_us; /**< microseconds since 1970 in UTC: when it was heard */
  /** "C0-C1-5C-00-00-01", or of an iBeacon "UUID/major/minor"; "" where it is of none */
  char id[BRENLOFT_ID_SIZE];

  int32_t rssi_dbm; /**< or BRENLOFT_NO_RSSI */

  /* Of a reading. A frame has the same zero for 0.00 degrees and for a beacon that measures no temperature:
   * it counts as 0.00 where the same frame has a humidity, else as absent, which is NaN. */
  int32_t battery_percent;          /**< 0 to 255 as sent */
  double temperature_celsius;       /**< -327.68 to 327.67 */
  double relative_humidity_percent; /**< 0.01 to 655.35 */
  int32_t emergency;                /**< 0 to 255 as sent; 1 or more signals an emergency */
  int32_t tx_power;                 /**< 0 to 255 as sent */
  int32_t acceleration[3];          /**< x, y, z: -32768 to 32767 as sent */
  char service[40];                 /**< the first service UUID that it advertised */

  /* Of a sighting. */
  int32_t measured_power_dbm; /**< at one metre, as its maker measured */
  char uuid[40];
  int32_t major;
  int32_t minor;

  int64_t last_heard_us; /**< of a loss; 0: it was expected, and never heard */
  uint64_t count;        /**< of what was missed */
  char text[256];        /**< of the radio: the reason, cut at a whole character; else "" */
  int32_t radio_state;   /**< of the radio: a brenloft_radio_state */
} brenloft_event;

/* clang-format off */
#define BRENLOFT_EVENT_INIT {.size = sizeof(brenloft_event)}
/** A reading to send in a test, that measured nothing yet. */
#define BRENLOFT_READING_INIT \
  {.size = sizeof(brenloft_event), .kind = BRENLOFT_READING, .rssi_dbm = BRENLOFT_NO_RSSI, \
   .temperature_celsius = 0.0 / 0.0, .relative_humidity_percent = 0.0 / 0.0}
/* clang-format on */

/** The reading in a sensor beacon's manufacturer data, 22 octets or more; BRENLOFT_UNSUPPORTED of fewer. It
 * has no time, rssi or service. `event->size` must be set. */
BRENLOFT_API brenloft_status brenloft_decode(const uint8_t* data, size_t length, brenloft_event* event);

/** A beacon's id as events have it, of one that a person typed: of a sensor in either case, with dashes or
 * colons; of an iBeacon "UUID/major/minor". `id` has room for `size` octets, BRENLOFT_ID_SIZE is enough.
 * BRENLOFT_UNSUPPORTED of a text that is no beacon's, and where there is too little room. */
BRENLOFT_API brenloft_status brenloft_beacon_id(const char* typed, char* id, size_t size);

/* ---- A search ---- */

typedef struct brenloft_search brenloft_search;
typedef struct brenloft_air brenloft_air;

/** A part of all iBeacons: a number below 0 means any. */
typedef struct brenloft_region {
  const char* uuid;
  int32_t major;
  int32_t minor;
} brenloft_region;

enum { BRENLOFT_SENSORS = 1, BRENLOFT_IBEACONS = 2 };

/** What to search for, and where. It and its texts are read during the call only. */
typedef struct brenloft_settings {
  size_t size; /**< of this struct */
  /** `auto`, `bluez[:ADAPTER]`, `hci[:ADAPTER]`, `h4:...`, `capture:FILE[?paced]` or `demo[?paced]`; NULL:
   * auto */
  const char* source;
  uint32_t kinds; /**< BRENLOFT_SENSORS, BRENLOFT_IBEACONS or both */
  /** Sensors that advertise one of these service UUIDs; none: all. */
  const char* const* services;
  size_t service_count;
  /** iBeacons of one of these; none: all. */
  const brenloft_region* regions;
  size_t region_count;
  int64_t lost_after_ms; /**< the silence after which a beacon is lost; INT64_MAX: never */
  const char* record;    /**< a file that gets everything heard, for `capture:FILE`; NULL: none */
  /** Takes lines for people, on any thread; NULL: none. */
  void (*on_message)(void* user_data, const char* line);
  void* user_data;   /**< for `on_message` */
  brenloft_air* air; /**< heard instead of `source`: for tests; it cannot be recorded */
  /** Beacons that should be there, by id as a person types it: each is lost, too, when it is never heard for
   * so long. To compare such a text with an event's id, ask `brenloft_beacon_id` for its form first. */
  const char* const* expected;
  size_t expected_count;
} brenloft_settings;

/* clang-format off */
#define BRENLOFT_SETTINGS_INIT \
  {.size = sizeof(brenloft_settings), .kinds = BRENLOFT_SENSORS, .lost_after_ms = 30000}
/* clang-format on */

/** Starts a search whose events are pulled. `*search` is NULL where it fails: a source that names no radio of
 * this machine does, while one that is there and cannot be used yet is told as BRENLOFT_RADIO. A source that
 * is not paced (`capture:`, `demo`) waits for who takes them; of a radio, those that nobody takes are dropped
 * beyond 4,096, the oldest first, and counted. */
BRENLOFT_API brenloft_status brenloft_search_start(const brenloft_settings* settings,
                                                   brenloft_search** search);

/** Called for each event, one at a time, on a thread of the search's own; and once with NULL, when nothing
 * more will come. The event lives for the call. It may stop the search, and free it: then it is not called
 * any more. */
typedef void (*brenloft_handler)(void* user_data, const brenloft_event* event);

/** Starts a search whose events are handed to `handler`, which may be called before this has returned. */
BRENLOFT_API brenloft_status brenloft_search_start_with_handler(const brenloft_settings* settings,
                                                                brenloft_handler handler, void* user_data,
                                                                brenloft_search** search);

#define BRENLOFT_FOREVER (-1)

/** The next event; waits for it up to `timeout_ms`, 0 not at all. BRENLOFT_NONE: there was none in that time;
 * BRENLOFT_END: nothing more will come. `event->size` must be set. */
BRENLOFT_API brenloft_status brenloft_search_next(brenloft_search* search, int64_t timeout_ms,
                                                  brenloft_event* event);

/** As many as there are, up to `capacity`, waiting for the first as above. Each of `events` has `event_size`
 * octets; of each, `size` is set. */
BRENLOFT_API brenloft_status brenloft_search_next_many(brenloft_search* search, int64_t timeout_ms,
                                                       brenloft_event* events, size_t event_size,
                                                       size_t capacity, size_t* count);

/** Readable when `brenloft_search_next` has something to give at once, the end included. Owned by the search:
 * watch it, do not read or close it. */
BRENLOFT_API int brenloft_search_descriptor(const brenloft_search* search);

/** Ends the search: nothing is heard any more; what waits can be taken. Waits for a handler that runs on
 * another thread: hold no lock that it takes. It is not called with NULL any more. */
BRENLOFT_API void brenloft_search_stop(brenloft_search* search);

/** Stops it, waits for a handler that runs, unless that is the caller, and frees it. NULL is allowed. */
BRENLOFT_API void brenloft_search_free(brenloft_search* search);

/* ---- What there is to hear ---- */

/** One thing that this machine offers, or would; its texts live for the call. */
typedef struct brenloft_source {
  size_t size;         /**< of this struct */
  const char* address; /**< for `settings.source` */
  const char* name;
  const char* state;    /**< "usable", or why not */
  const char* why;      /**< one line for people */
  int32_t is_automatic; /**< 1: what `auto` stands for */
} brenloft_source;

/** Calls `take` for each, during the call. */
BRENLOFT_API brenloft_status brenloft_sources(void (*take)(void* user_data, const brenloft_source* source),
                                              void* user_data);

/* ---- An air for tests ---- */

/** An air without a radio, and its clock: time stands still until the test moves it, and nothing sleeps. What
 * its searches find is there as soon as `brenloft_air_send` or `brenloft_air_advance` returns;
 * `brenloft_search_next` never waits, and handlers run inside these calls. */
BRENLOFT_API brenloft_status brenloft_air_make(brenloft_air** air);
/** Its searches keep it as long as they live. NULL is allowed. */
BRENLOFT_API void brenloft_air_free(brenloft_air* air);
/** Sends one advertisement now, as a reading or a sighting says; NaN is absent. Of a sighting, `id` is not
 * needed. The same one again within 20 ms is the same advertisement, and heard once. */
BRENLOFT_API brenloft_status brenloft_air_send(brenloft_air* air, const brenloft_event* event);
/** Sends it now and then every `interval_ms`, until `brenloft_air_silence` is called with the number. */
BRENLOFT_API brenloft_status brenloft_air_repeat(brenloft_air* air, const brenloft_event* event,
                                                 int64_t interval_ms, int32_t* number);
BRENLOFT_API brenloft_status brenloft_air_silence(brenloft_air* air, int32_t number);
/** Moves the clock. */
BRENLOFT_API brenloft_status brenloft_air_advance(brenloft_air* air, int64_t duration_ms);
/** Switches the radio off, or makes it fail otherwise, or on again: a brenloft_radio_state, for this reason;
 * NULL: none. */
BRENLOFT_API brenloft_status brenloft_air_set_radio(brenloft_air* air, int32_t state, const char* reason);

#ifdef __cplusplus
}
#endif

#endif
