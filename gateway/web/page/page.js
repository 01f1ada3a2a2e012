/* The list, the detail view, the address and the keys. The page reads without it. */
const root = document.documentElement;
const page = JSON.parse($("#data").textContent);
const isLive = "seq" in page;
const title = document.title;
const hashOf = (id, query) => "#b=" + encodeURIComponent(id) + "&" + query;
const beaconOf = id => page.beacons.find(beacon => beacon.id === id);
const present = () => page.until * 1e3, begin = () => page.since * 1e3;
const clock = makeClock(page);
root.classList.add("on");

/* ---- ranges: those that the data fill, and the whole ---- */
const RANGES = [["6h", "6 h", 6 * HOUR], ["day", "Day", DAY], ["week", "Week", 7 * DAY], ["month", "Month", 30 * DAY],
  ["year", "Year", 365 * DAY]].filter(range => range[2] <= present() - begin());
if (!RANGES.some(range => range[2] >= present() - begin())) RANGES.push(["all", "All", 0]);
const lengthOf = range => range[2] || present() - begin();
const usual = (RANGES.find(range => range[0] === "day") || RANGES[RANGES.length - 1])[0];

let current = null, last = null, range = "", from = 0, to = 0;
const charts = makeCharts($("#charts"), clock,
  (a, b) => go("from=" + Math.round(a / 1e3) + "&to=" + Math.round(b / 1e3)));

/* ---- the address: #b=ID&r=day, or #b=ID&from=…&to=… in seconds since 1970 ---- */
const parseHash = () => Object.fromEntries(location.hash.slice(1).split("&").map(part => {
  const [key, value] = part.split("=");
  try { return [key, decodeURIComponent(value || "")]; } catch { return [key, ""]; }
}));

const go = (query, isReplaced) => {
  const hash = hashOf(current.id, query);
  if (!isReplaced) { location.hash = hash; return; }
  history.replaceState(null, "", hash);
  route();
};

const showList = () => {
  charts.clear();
  root.classList.remove("det");
  $("#detail").hidden = true;
  setTitle();
  if (!current) return;
  last = current;
  current = null;
  const target = location.hash.length > 1 && document.getElementById(decodeURIComponent(location.hash.slice(1)));
  if (target) { target.scrollIntoView(); return; }
  const link = $$(".cols a[data-b]").find(one => one.dataset.b === last.id);
  if (!link) return;
  link.focus({preventScroll: true});
  link.scrollIntoView({block: "center"});
};

const route = () => {
  const wanted = parseHash(), beacon = wanted.b && beaconOf(wanted.b);
  if (!beacon) { showList(); return; }
  const isNew = !current || beacon.id !== current.id;
  current = beacon;
  root.classList.add("det");
  $("#detail").hidden = false;
  if (wanted.from && Number(wanted.to) > Number(wanted.from)) {
    [range, from, to] = ["", wanted.from * 1e3, wanted.to * 1e3];
  } else {
    const chosen = RANGES.find(one => one[0] === wanted.r) || RANGES.find(one => one[0] === usual);
    [range, from, to] = [chosen[0], present() - lengthOf(chosen), present()];
  }
  showHead();
  show();
  setTitle();
  if (!isNew) return;
  scrollTo(0, 0);
  $("#dn").focus({preventScroll: true});
};

const setTitle = () => {
  const count = $$("#att li:not(.gone)").length;
  document.title = (current ? current.name + " · " : isLive && count ? count + " need" + (count === 1 ? "s" : "") +
    " attention · " : "") + title;
};

/* ---- the detail view ---- */
const tagOf = ([text, css]) => {
  const outer = element("span", css);
  outer.append(element("span", "tag", text));
  return outer;
};

const showHead = () => {
  const name = $("#dn"), list = $("#dl").cloneNode(), rows = $("#devs tbody").cloneNode();
  name.replaceChildren(element("bdi", "", current.name));
  if (current.place) name.append(" ", element("small", "", current.place));
  $("#dtag").replaceChildren(...current.states.map(tagOf));
  $("#dwhy").replaceChildren(current.saying, element("span", "id", "Id " + current.id));
  list.append(...current.facts.map(([what, value, unit, state]) => {
    const fact = element("div"), figure = element("dd", state ? "bad " + state : "", value + " ");
    if (unit) figure.append(element("small", "", unit));
    fact.append(element("dt", "", what), figure);
    return fact;
  }));
  list.hidden = !current.facts.length;
  rows.append(...$$("#events tbody tr[data-e]")
    .filter(row => row.dataset.e === current.id || row.dataset.e === "*").map(row => {
      const copy = row.cloneNode(true);
      copy.children[2].remove();
      return copy;
    }));
  morph($("#dl"), list);
  morph($("#devs tbody"), rows);
};

const PIECES = 24;  /* of the table of figures */
const dayAndTime = time => clock.weekday(time) + (to - from > 60 * DAY ? " " + clock.year(time) : "") + " " +
  clock.fine(time, (to - from) / PIECES);

/* What charts show: a report has it, a server is asked. */
let asked = 0;
const show = async () => {
  const box = $("#charts"), number = ++asked, [which, since, until] = [current, from, to];
  showRange();
  if (!isLive) return draw(which, since, until, viewOfReport(page, which, since));
  box.setAttribute("aria-busy", "true");
  try {
    const view = viewOfAnswer(await askHistory(which.id, since, until));
    if (number !== asked || !current) return;
    draw(which, since, until, view);
  } catch (problem) {
    if (number !== asked || !current) return;
    charts.clear();
    box.append(element("p", "note", "The history cannot be shown now: " + problem.message));
  }
  box.removeAttribute("aria-busy");
};

const showRange = () => {
  setText($("#span"), dayAndTime(from) + " to " + dayAndTime(to) + " " + clock.name(to));
  for (const button of $$("#ranges button")) button.setAttribute("aria-pressed", String(button.dataset.r === range));
  $("#later").disabled = to >= present();
  $("#earlier").disabled = from <= begin();
};

const draw = (which, since, until, view) => {
  charts.draw(which, since, until, view);
  const text = (values, i, places) => values ? number(values[i], places) : "";
  $("#figs tbody").replaceChildren(...charts.figures(PIECES).map(([start, [temperature, humidity, signal]]) => {
    const row = element("tr"), head = element("th", "", dayAndTime(start));
    head.scope = "row";
    row.append(head, ...[text(temperature, 0, 1) || (humidity || signal ? "" : "none"), text(temperature, 1, 1),
      text(temperature, 2, 1), text(humidity, 1, 0), text(signal, 1, 0)].map(one => element("td", "", one)));
    return row;
  }));
};

const shift = direction => {
  if (!current || (direction < 0 ? from <= begin() : to >= present())) return;
  const width = to - from, end = Math.max(begin() + width, Math.min(to + direction * width / 2, present()));
  go("from=" + Math.round((end - width) / 1e3) + "&to=" + Math.round(end / 1e3), true);
};

for (const [key, label] of RANGES) {
  const button = element("button", "", label);
  button.type = "button";
  button.dataset.r = key;
  button.onclick = () => go("r=" + key, true);
  $("#ranges").append(button);
}
$("#earlier").onclick = () => shift(-1);
$("#later").onclick = () => shift(1);

/* ---- the list: links open the detail view, and so does a click beside them ---- */
const linkUp = within => {
  for (const link of $$("a[data-b]", within)) link.setAttribute("href", hashOf(link.dataset.b, "r=" + usual));
};
linkUp(document);
$(".cols").onclick = event => {
  const row = event.target.closest("tr[data-b]");
  if (row && !event.target.closest("a") && !String(getSelection())) $("a", row).click();
};

const find = () => {
  const wanted = $("#find").value.trim().toLowerCase();
  let shown = 0;
  for (const table of $$(".cols table")) {
    const place = $(".pl", table).textContent;
    let inTable = 0;
    for (const row of $$("tbody tr", table)) {
      const text = place + " " + $("a", row).textContent + " " + row.dataset.b;
      row.hidden = !text.toLowerCase().includes(wanted);
      if (!row.hidden) ++inTable;
    }
    table.hidden = !inTable;
    shown += inTable;
  }
  setText($("#bcount"), wanted ? shown + " of " + page.beacons.length : String(page.beacons.length));
  $("#none").hidden = Boolean(shown) || !wanted;
};
$("#find").oninput = find;
$("#clear").onclick = () => {
  $("#find").value = "";
  find();
  $("#find").focus();
};

/* ---- keys ---- */
const dialog = $("#keys");
$("#help").onclick = () => dialog.showModal();
$("#close").onclick = () => dialog.close();

$("#charts").onkeydown = event => {
  const directions = {ArrowLeft: -1, ArrowRight: 1, Home: "first", End: "last"};
  if (event.shiftKey || !(event.key in directions)) return;
  charts.step(directions[event.key]);
  event.preventDefault();
};
$("#charts").onblur = () => charts.moveTo(null);

const moveInList = direction => {
  const links = $$(".cols tr:not([hidden]) a"), at = links.indexOf(document.activeElement);
  if (at < 0) return false;
  const next = links[at + direction];
  if (next) next.focus();
  return true;
};

const letterKey = key => {
  if (key === "/" && !current) $("#find").focus();
  else if (key === "?") dialog.showModal();
  else if (key === "a") {
    location.hash = "#attention";
    const first = $("#att a");
    if (first) setTimeout(() => first.focus());
  } else if (current && RANGES[key - 1]) go("r=" + RANGES[key - 1][0], true);
  else return false;
  return true;
};

document.addEventListener("keydown", event => {
  if (event.ctrlKey || event.altKey || event.metaKey || dialog.open) return;
  const isTyping = event.target.matches("input[type=search]");
  if (event.key === "Escape") {
    if (isTyping) { $("#clear").click(); event.target.blur(); } else if (current) location.hash = "";
    return;
  }
  if (isTyping) return;
  const direction = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -1, ArrowDown: 1}[event.key];
  const isUpDown = event.key === "ArrowUp" || event.key === "ArrowDown";
  if (current && event.shiftKey && direction && !isUpDown) shift(direction);
  else if (!current && isUpDown && moveInList(direction)) { /* moved */ }
  else if (!$("#keyson").checked || !letterKey(event.key)) return;
  event.preventDefault();
});

/* ---- colours and paper ---- */
const again = () => { if (current) show(); };
matchMedia("(prefers-color-scheme:dark)").addEventListener("change", again);

/* A canvas drawn while printing starts comes out blank, so the page goes to paper colours first and prints two frames
   later; from the browser's menu the charts on the screen are scaled instead. */
const paper = isOn => {
  root.classList.toggle("paper", isOn);
  $("#charts").style.width = isOn ? "680px" : "";
  again();
};
const printPage = () => {
  paper(true);
  requestAnimationFrame(() => requestAnimationFrame(() => { print(); paper(false); }));
};
$("#print").onclick = printPage;
addEventListener("keydown", event => {
  if (!(event.ctrlKey || event.metaKey) || event.key !== "p" || !current) return;
  event.preventDefault();
  printPage();
});
let width = innerWidth;
addEventListener("resize", () => {
  if (innerWidth === width) return;
  width = innerWidth;
  charts.resize();
});
addEventListener("hashchange", route);
route();

/* ---- live: what the server says anew ---- */
if (isLive) {
  /* A part that stands still is left alone, and so is one that somebody reads. */
  const follow = () => {
    if (!current) return setTitle();
    current = beaconOf(current.id) || current;
    if (!range || charts.isRead() || $("#charts").matches(":hover")) return showHead();
    route();
  };
  makeLive(page, clock, {
    linkUp,
    onPage: () => { find(); follow(); },
    onReading: reading => {
      if (!current || reading.id !== current.id) return;
      takeReading(current, reading, clock);
      showHead();
    },
  });
}
