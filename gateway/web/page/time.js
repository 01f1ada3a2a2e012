/* Times in the gateway's zone, whatever the reader's is. Everything here counts milliseconds since 1970. */
const MINUTE = 6e4, HOUR = 36e5, DAY = 864e5;
const MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split(" ");
const WEEKDAYS = "Sun Mon Tue Wed Thu Fri Sat".split(" ");

/* page.zone: [since, offset in seconds, name] by time; a live page gets a new one now and then. */
const makeClock = page => {
  const at = time => {
    let found = page.zone[0];
    for (const change of page.zone) if (change[0] * 1e3 <= time) found = change;
    return found;
  };
  const offset = time => at(time)[1] * 1e3;
  /* A date whose UTC fields are the local ones. */
  const local = time => new Date(time + offset(time));
  const two = number => String(number).padStart(2, "0");
  const clock = {
    local,
    name: time => at(time)[2],
    hm: time => { const d = local(time); return two(d.getUTCHours()) + ":" + two(d.getUTCMinutes()); },
    hms: time => clock.hm(time) + ":" + two(local(time).getUTCSeconds()),
    /* As finely as pieces of a width need. */
    fine: (time, width) => width < MINUTE ? clock.hms(time) : clock.hm(time),
    day: time => { const d = local(time); return d.getUTCDate() + "\u00a0" + MONTHS[d.getUTCMonth()]; },
    weekday: time => WEEKDAYS[local(time).getUTCDay()] + " " + clock.day(time),
    month: time => MONTHS[local(time).getUTCMonth()],
    year: time => local(time).getUTCFullYear(),
    /* The instants at which the local clock shows multiples of a step, up to a day. */
    multiples: (from, to, step) => {
      const instants = [];
      const first = Math.ceil((from + offset(from)) / step) * step;
      for (let shown = first; shown <= to + DAY; shown += step) {
        const time = shown - offset(shown - offset(from));
        if (time >= from && time <= to && time !== instants[instants.length - 1]) instants.push(time);
      }
      return instants;
    },
  };
  return clock;
};

const STEPS = [1, 2, 5, 10, 15, 30].map(seconds => seconds * 1e3).concat(
  [1, 2, 5, 10, 15, 30, 60, 120, 180, 360, 720, 1440].map(minutes => minutes * MINUTE));

/* Ticks of a time axis with their labels, at most so many. */
const timeTicks = (clock, from, to, most) => {
  const days = (to - from) / DAY;
  const step = STEPS.find(one => (to - from) / one <= most);
  if (step) {
    return clock.multiples(from, to, step).map(time => {
      const isMidnight = clock.hm(time) === "00:00";
      return {v: time, label: isMidnight ? clock.weekday(time) : clock.fine(time, step)};
    });
  }
  const every = Math.max(1, Math.ceil(days / most));
  const isMonths = every > 14;
  const midnights = clock.multiples(from, to, DAY);
  const wanted = isMonths
    ? midnights.filter(time => clock.local(time).getUTCDate() === 1)
        .filter((_, i, all) => i % Math.ceil(all.length / most) === 0)
    : midnights.filter((_, i) => i % every === 0);
  return wanted.map(time => ({
    v: time,
    label: isMonths ? clock.month(time) + (clock.month(time) === "Jan" ? " " + clock.year(time) : "")
      : clock.day(time),
  }));
};
