/* What keeps a live page true: the stream of events, and the page itself, asked for anew. */
const SILENCE = 16e3, RETRY = 3e3, SETTLING = 300;

const askHistory = async (id, from, to) => {
  const query = new URLSearchParams({beacon: id, since: Math.floor(from / 1e3), until: Math.ceil(to / 1e3), points: 720});
  const answer = await fetch("api/history?" + query);
  const json = await answer.json();
  if (!answer.ok) throw new Error(json.error);
  return json;
};

/* ---- one part of the page becomes another: what is the same stays, so nothing flickers and the focus is kept ---- */
const keyOf = node => node.dataset ? node.dataset.k || node.dataset.b || node.id : "";

const morph = (node, wanted) => {
  if (node.nodeType !== Node.ELEMENT_NODE) {
    if (node.data !== wanted.data) node.data = wanted.data;
    return;
  }
  for (const {name} of [...node.attributes]) if (!wanted.hasAttribute(name)) node.removeAttribute(name);
  for (const {name, value} of wanted.attributes) if (node.getAttribute(name) !== value) node.setAttribute(name, value);
  const keys = new Set([...wanted.children].map(keyOf).filter(Boolean));
  for (const child of [...node.children]) if (keyOf(child) && !keys.has(keyOf(child))) child.remove();
  const mine = new Map([...node.children].filter(keyOf).map(child => [keyOf(child), child]));
  let at = node.firstChild;
  for (const next of wanted.childNodes) {
    const key = keyOf(next), isLike = at && !keyOf(at) && at.nodeName === next.nodeName;
    const found = key ? mine.get(key) : isLike ? at : null;
    if (!found) node.insertBefore(document.importNode(next, true), at);
    else if (found !== at) node.insertBefore(found, at);
    else at = at.nextSibling;
    if (found) morph(found, next);
  }
  while (at) {
    const after = at.nextSibling;
    at.remove();
    at = after;
  }
};

/* While somebody is in the list of what needs attention nothing in it moves: what is new comes to its end, and what is
   over stays, marked, until they leave. */
const isHeld = () => {
  const list = $("#attention");
  return list.contains(document.activeElement) || (matchMedia("(hover: hover)").matches && list.matches(":hover"));
};
const holdOrder = wanted => {
  const fresh = new Map([...wanted.children].map(line => [keyOf(line), line]));
  const lines = $$("#att li").map(line => {
    const next = fresh.get(keyOf(line));
    fresh.delete(keyOf(line));
    if (next) return next;
    const over = line.cloneNode(true);
    over.classList.add("gone");
    return over;
  });
  wanted.replaceChildren(...lines, ...fresh.values());
};

/* ---- readings ---- */
const takeReading = (beacon, reading, clock) => {
  const texts = {
    Temperature: reading.temperature === null ? null : number(reading.temperature, 1),
    Humidity: reading.humidity === null ? null : number(reading.humidity, 0),
    Battery: reading.battery === null ? null : number(reading.battery, 0),
    Signal: reading.rssi === null ? null : number(reading.rssi, 0),
    Heard: "now",
  };
  for (const fact of beacon.facts) {
    const name = fact[0].replace(", last", "");
    if (!texts[name]) continue;
    [fact[0], fact[1]] = [name, texts[name]];
    if (name === "Heard") fact[2] = clock.hm(Date.parse(reading.time));
  }
};

/* What needs attention says what the row says. */
const showFigures = reading => {
  for (const figure of $$("#att li:not(.gone) .fig[data-q]")) {
    const {q, unit, limit} = figure.dataset, value = reading[q], link = $("a", figure.parentNode);
    if (link.dataset.b !== reading.id || value === null) continue;
    const {places, scale} = QUANTITIES.find(quantity => quantity.key === q);
    setText(figure, beside(value, places, limit === "" ? null : limit / scale) + unit);
  }
};

const showPlace = table => {
  const place = $$("#places a").find(link => link.getAttribute("href") === "#" + table.id);
  const values = $$("tbody tr:not(.off) td:nth-child(3)", table).filter(cell => cell.textContent)
    .map(cell => Number(cell.textContent.replace("\u2212", "-")));
  if (!place || !values.length) return;
  const ends = new Set([Math.min(...values), Math.max(...values)].map(value => number(value, 1)));
  setText($(".rg", place.parentNode), [...ends].join(" to ") + " °C");
};

const showReading = reading => {
  const row = $$(".cols tr[data-b]").find(one => one.dataset.b === reading.id);
  if (!row || row.classList.contains("off")) return false;
  const [, , temperature, humidity, battery, signal, heard] = row.children;
  const show = (cell, value, places) => { if (value !== null) setText(cell, number(value, places)); };
  show(temperature, reading.temperature, 1);
  show(humidity, reading.humidity, 0);
  show(battery, reading.battery, 0);
  show(signal, reading.rssi, 0);
  setText(heard, "now");
  showFigures(reading);
  showPlace(row.closest("table"));
  return true;
};

/* hooks: linkUp(part), onPage(), onReading(reading). */
const makeLive = (page, clock, hooks) => {
  let ahead = page.until * 1e3 - Date.now();  // of the gateway's clock
  let source = null, heardAt = Date.now(), lost = 0, seq = page.seq, newest = null;
  let told = page.seq;  // the newest row that the stream or the page told; -1: of no history yet
  let timer = 0, isAsking = false, askedAt = Date.now();
  const waiting = new Map();
  /* A history that has just begun changes faster than one of a week. */
  const period = () => Math.min(20e3, Math.max(3e3, (page.until - page.since) * 1e3 / 60));
  const now = () => Date.now() + ahead;

  const take = text => {
    newest = new DOMParser().parseFromString(text, "text/html");
    Object.assign(page, JSON.parse($("#data", newest).textContent));
    told = Math.max(told, page.seq);
    hooks.linkUp(newest);
    show();
  };
  const show = () => {
    const wanted = newest.cloneNode(true);
    if (isHeld()) holdOrder($("#att", wanted));
    for (const part of [".chip", "#date", "#attention", "#overview", ".cols", "#static", "footer"])
      morph($(part), $(part, wanted));
    hooks.onPage();
  };

  const refresh = async () => {
    clearTimeout(timer);
    timer = 0;
    if (isAsking) return later();
    isAsking = true;
    askedAt = Date.now();
    try {
      const answer = await fetch("./");
      if (answer.ok) take(await answer.text());
    } catch { /* the stream tells when there is no connection */ }
    isAsking = false;
    /* What came while it was asked for is not in it. */
    if (page.seq < seq) later(1e3);
  };
  const later = delay => { timer = timer || setTimeout(refresh, (delay || SETTLING) + Math.random() * SETTLING); };

  const lose = () => {
    if (lost) return;
    lost = heardAt;
    root.classList.add("lost");
    setText($("#live"), "No connection");
    tick();
  };
  const hear = () => {
    heardAt = Date.now();
    if (!lost) return;
    lost = 0;
    root.classList.remove("lost");
    $("#stale").hidden = true;
    setText($("#live"), "Live");
    refresh();
  };

  const showWaiting = () => {
    let isStrange = false;
    for (const reading of waiting.values()) {
      isStrange = !showReading(reading) || isStrange;
      hooks.onReading(reading);
    }
    waiting.clear();
    if (isStrange && Date.now() - askedAt > 5e3) later();
  };
  const onReading = event => {
    hear();
    told = Number(event.lastEventId);
    const reading = JSON.parse(event.data);
    if (!waiting.size) setTimeout(showWaiting, 100);
    waiting.set(reading.id, reading);
  };

  const tell = ({event, name, id, text}) => {
    const who = name || id;
    if (event === "emergency") setText($("#cry"), "Emergency: " + who);
    else if (event === "alarm_raised") setText($("#say"), "Alarm: " + who + ", " + text);
    else if (event === "alarm_cleared") setText($("#say"), "Alarm over: " + who + ", " + text);
  };
  const onEvent = event => {
    hear();
    told = Number(event.lastEventId);
    seq = Math.max(seq, told);
    tell(JSON.parse(event.data));
    later();
  };

  const open = () => {
    if (source) source.close();
    source = new EventSource("api/events?after=" + told);
    heardAt = lost ? heardAt : Date.now();
    source.onopen = hear;
    source.onerror = () => {
      lose();
      if (source.readyState === EventSource.CLOSED) setTimeout(open, RETRY);
    };
    source.addEventListener("reading", onReading);
    for (const name of ["found", "lost", "emergency", "emergency_over", "alarm_raised", "alarm_cleared", "radio", "gap"])
      source.addEventListener(name, onEvent);
    source.addEventListener("time", event => { ahead = event.data * 1e3 - Date.now(); hear(); });
    source.addEventListener("resync", () => { told = seq = -1; open(); refresh(); });
    source.addEventListener("writer", () => later());
  };

  let triedAt = 0;
  const tick = () => {
    if (lost) {
      const stale = $("#stale"), age = Math.round((Date.now() - lost) / 1e3);
      stale.hidden = false;
      setText(stale, "No connection since " + clock.hms(lost + ahead) + ". What you see is " +
        (age < 60 ? age + " s" : Math.floor(age / 60) + " min") + " old. Trying again every few seconds.");
      return;
    }
    setText($("#clock"), clock.hms(now()));
    if (Date.now() - heardAt > SILENCE && Date.now() - triedAt > SILENCE) {
      triedAt = Date.now();
      lose();
      open();
    }
    if (!document.hidden && Date.now() - askedAt > period()) refresh();
  };

  const leave = () => setTimeout(() => { if (newest && $("#att .gone") && !isHeld()) show(); });
  $("#attention").addEventListener("pointerleave", leave);
  $("#attention").addEventListener("focusout", leave);
  document.addEventListener("visibilitychange", tick);
  setInterval(tick, 1e3);
  open();
};
