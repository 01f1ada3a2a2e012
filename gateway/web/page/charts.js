/* The charts of one beacon: one time axis, one reading line. */

/* Name, unit, height, decimal places, units per whole: in the order of a layer's curves. */
const QUANTITIES = [
  {name: "Temperature", key: "temperature", unit: "°C", height: 220, places: 1, scale: 100, hasAxis: true},
  {name: "Humidity", key: "humidity", unit: "% RH", height: 120, places: 0, scale: 100},
  {name: "Signal", key: "rssi", unit: "dBm", height: 90, places: 0, scale: 1, range: [-105, -25], perLabel: 22},
  {name: "Battery", key: "battery", unit: "%", height: 100, places: 0, scale: 1, range: [0, 105], hasAxis: true},
];
const MARK = 22;  /* as high as a mark and its word */

const $ = (selector, within) => (within || document).querySelector(selector);
const $$ = (selector, within) => [...(within || document).querySelectorAll(selector)];
const element = (name, css, text) => {
  const made = document.createElement(name);
  if (css) made.className = css;
  if (text !== undefined) made.textContent = text;
  return made;
};
const setText = (node, text) => { if (node.textContent !== text) node.textContent = text; };
/* From hundredths, as the server counts; halves go away from zero. */
const rounded = (value, places) => {
  const unit = 10 ** places, hundredths = Math.round(Math.abs(value) * 1e8) / 1e6;
  return Math.sign(value) * Math.round(hundredths * unit / 100) / unit;
};
const number = (value, places) => {
  const text = rounded(value, places).toFixed(places);
  return (Number(text) === 0 ? text.replace("-", "") : text).replace("-", "\u2212");
};
/* With as many places as leave it on its side of a limit. */
const beside = (value, places, limit) => {
  let shown = places;
  while (limit !== null && shown < 2 && Math.sign(rounded(value, shown) - limit) !== Math.sign(value - limit)) ++shown;
  return number(value, shown);
};
/* A limit, as it was given. */
const exact = (value, places) => number(value, [places, 1].find(shown => shown >= places && rounded(value, shown) === value) ?? 2);
/* Two that differ, told apart. */
const rangeOf = (lowest, highest, places) => {
  let shown = places;
  while (shown < 2 && lowest !== highest && number(lowest, shown) === number(highest, shown)) ++shown;
  return [number(lowest, shown), number(highest, shown)];
};
const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

/* Where a piece is drawn: in its middle, but within the time that is shown. */
const middleOf = (start, width, shown) => Math.min(Math.max(start + width / 2, shown.since), shown.until) * 1e3;

/* A layer's curve as rows [time, [lowest, mean, highest]]; nulls break the line. */
const rowsOf = (layer, curve, scale, shown) => {
  const rows = [], breaks = new Set(curve.breaks), none = [null, null, null];
  let piece = 0, at = 0, mean = 0;
  for (let run = 0; run < curve.runs.length; run += 2) {
    piece += curve.runs[run];
    for (let left = curve.runs[run + 1]; left > 0; --left, ++at, ++piece) {
      const time = middleOf(layer.since + piece * layer.width, layer.width, shown);
      if (breaks.has(at)) rows.push([new Date(time - layer.width * 500), none]);
      mean += curve.mean[at] || 0;
      const below = curve.below[at] || 0, above = curve.above[at] || 0;
      rows.push([new Date(time), [(mean - below) / scale, mean / scale, (mean + above) / scale]]);
    }
  }
  return rows;
};

/* What a chart shows of a report: the finest layer that reaches back so far; the first is the whole span. */
const viewOfReport = (page, beacon, from) => {
  let found = beacon.layers[0];
  if (!found) return null;
  for (const layer of beacon.layers) if (layer.since * 1e3 <= from && layer.width < found.width) found = layer;
  return {
    width: found.width, until: page.until, outages: page.outages, presence: beacon.presence, knownSince: beacon.known_since, marks: beacon.marks,
    curves: QUANTITIES.map((quantity, i) => rowsOf(found, found.curves[i], quantity.scale, page)),
  };
};

/* The same of what a server answers: [start, lowest, mean, highest], null where the line is broken. */
const viewOfAnswer = answer => ({
  width: answer.width, until: answer.until, outages: answer.outages, presence: answer.presence, knownSince: answer.known_since, marks: answer.marks,
  curves: QUANTITIES.map(quantity => {
    let time = 0;
    return answer[quantity.key].map(point => {
      time = point ? middleOf(point[0], answer.width, answer) : time + answer.width * 500;
      return [new Date(time), point ? point.slice(1) : [null, null, null]];
    });
  }),
});

/* The index of the row that is nearest to a time, of those with a value; -1 for none. */
const nearestRow = (rows, time) => {
  let best = -1;
  rows.forEach((row, i) => {
    if (row[1][0] !== null && (best < 0 || Math.abs(row[0] - time) < Math.abs(rows[best][0] - time))) best = i;
  });
  return best;
};

/* Dygraphs' legend sets a style attribute, which the content security policy refuses; it is not used. */
Dygraph.PLUGINS = Dygraph.PLUGINS.filter(plugin => plugin !== Dygraph.Plugins.Legend);

/* box: where they stand; onZoom(from, to): a part was chosen with the pointer. */
const makeCharts = (box, clock, onZoom) => {
  let graphs = [], beacon = null, view = null, from = 0, to = 0, place = null, isMoving = false;

  const inView = row => row[0] >= from && row[0] <= to && row[1][0] !== null;
  const extremes = rows => rows.filter(inView).reduce(
    (all, row) => [Math.min(all[0], row[1][0]), Math.max(all[1], row[1][2])], [Infinity, -Infinity]);

  const restText = (quantity, rows) => {
    const seen = rows.filter(inView);
    if (!seen.length) return "no reading in this range";
    if (quantity.name === "Battery") return "last " + number(seen[seen.length - 1][1][1], 0);
    const [lowest, highest] = rangeOf(...extremes(rows), quantity.places);
    return "lowest " + lowest + ", highest " + highest;
  };

  const isMarkInView = ([since, until]) => until * 1e3 >= from && since * 1e3 <= to;

  const limitsOf = index => beacon.limits.filter(limit => limit[0] === index)
    .map(([, value, isUpper]) => ({value: value / QUANTITIES[index].scale, isUpper}));

  const valueRange = (index, rows) => {
    const quantity = QUANTITIES[index];
    let [lowest, highest] = extremes(rows);
    if (lowest > highest) return quantity.range || [0, 1];
    if (quantity.range) return [Math.min(quantity.range[0], lowest), Math.max(quantity.range[1], highest)];
    for (const limit of limitsOf(index)) {
      lowest = Math.min(lowest, limit.value);
      highest = Math.max(highest, limit.value);
    }
    const margin = Math.max((highest - lowest) * .1, index ? 2 : .4);
    /* Room for the words of marks above the curve. */
    const room = index || !view.marks.some(isMarkInView) ? 0 : (highest - lowest + 2 * margin) * MARK / (quantity.height - MARK);
    return [lowest - margin, highest + margin + room];
  };

  const shadeOutages = (context, area, graph) => {
    context.fillStyle = colour("--ra");
    for (const [since, until] of view.outages) {
      if (until * 1e3 < from || since * 1e3 > to) continue;
      const left = Math.max(area.x, graph.toDomXCoord(since * 1e3));
      const right = Math.min(area.x + area.w, graph.toDomXCoord(until * 1e3));
      context.fillRect(left, area.y, Math.max(2, right - left), area.h);
    }
  };

  /* Words stand on the card's colour, so that no line runs through them. */
  const word = (context, text, x, y, align, css) => {
    context.textAlign = align;
    context.lineWidth = 4;
    context.lineJoin = "round";
    context.strokeStyle = colour("--card");
    context.strokeText(text, x, y);
    context.fillStyle = css;
    context.fillText(text, x, y);
  };

  /* A word's place on a line from x to x + w where the curve leaves it free; else the first. */
  const freePlace = (graph, rows, places, width, top, bottom) => {
    const isFree = x => rows.every(([time, [lowest, , highest]]) => {
      const at = graph.toDomXCoord(time);
      return lowest === null || at < x - 2 || at > x + width + 2 ||
        graph.toDomYCoord(lowest) < top - 2 || graph.toDomYCoord(highest) > bottom + 2;
    });
    return places.find(isFree) ?? places[0];
  };

  const drawLimits = (context, area, graph, index, rows) => {
    const red = colour("--red");
    for (const {value, isUpper} of limitsOf(index)) {
      const y = Math.round(graph.toDomYCoord(value)) + .5;
      context.strokeStyle = red;
      context.lineWidth = 1;
      context.setLineDash([5, 4]);
      context.beginPath();
      context.moveTo(area.x, y);
      context.lineTo(area.x + area.w, y);
      context.stroke();
      context.setLineDash([]);
      const text = "limit " + exact(value, QUANTITIES[index].places), width = context.measureText(text).width;
      const base = y + (isUpper ? -5 : 14), end = area.x + area.w - width - 4;
      const places = [0, .25, .5, .75, 1].map(part => area.x + 4 + part * (end - area.x - 4));
      word(context, text, freePlace(graph, rows, places, width, base - 11, base + 3), base, "left", red);
    }
  };

  /* A peak far outside its neighbours, which a pale band alone would hide. */
  const drawPeaks = (context, graph, rows) => {
    const [low, high] = graph.yAxisRange(), least = (high - low) * .15, accent = colour("--acc");
    rows.forEach((row, i) => {
      const [lowest, mean, highest] = row[1];
      if (mean === null || !inView(row)) return;
      for (const [value, sign] of [[lowest, -1], [highest, 1]]) {
        const isPeak = [rows[i - 1], row, rows[i + 1]].every(other => !other || other[1][1] === null ||
          (value - (other === row ? mean : other[1][1 + sign])) * sign > least);
        if (!isPeak) continue;
        const x = graph.toDomXCoord(row[0]), y = graph.toDomYCoord(value);
        context.strokeStyle = context.fillStyle = accent;
        context.lineWidth = 1.5;
        context.beginPath();
        context.moveTo(x, graph.toDomYCoord(mean));
        context.lineTo(x, y);
        context.stroke();
        context.beginPath();
        context.arc(x, y, 2.5, 0, 7);
        context.fill();
      }
    });
  };

  /* Words of marks that begin close together stand behind each other. */
  const markWords = (context, marks) => {
    const words = [];
    for (const {left, what} of marks) {
      const last = words[words.length - 1];
      if (!last || left > last.left + context.measureText(last.text).width + 12) words.push({left, text: what});
      else if (!last.text.split(", ").includes(what)) last.text += ", " + what;
    }
    return words;
  };

  const drawMarks = (context, area, graph) => {
    const red = colour("--red"), end = area.x + area.w;
    const marks = view.marks.filter(isMarkInView).map(([since, until, kind, rule]) => ({
      what: rule || kind,
      left: Math.max(area.x, graph.toDomXCoord(since * 1e3)), right: Math.min(end, graph.toDomXCoord(until * 1e3)),
    })).sort((a, b) => a.left - b.left);
    context.fillStyle = red;
    for (const {left, right} of marks) context.fillRect(left, area.y, Math.max(4, right - left), 5);
    for (const {left, text} of markWords(context, marks)) {
      const isAtEnd = left + context.measureText(text).width > end;
      word(context, text, isAtEnd ? end : left + 1, area.y + 18, isAtEnd ? "right" : "left", red);
    }
  };

  const overlay = (index, rows) => ({
    toString: () => "overlay",
    activate: () => ({
      didDrawChart: event => {
        const graph = event.dygraph, context = event.drawingContext, area = graph.getArea();
        context.save();
        context.font = "600 12px system-ui,sans-serif";
        drawLimits(context, area, graph, index, rows);
        drawPeaks(context, graph, rows);
        if (index === 0) drawMarks(context, area, graph);
        context.restore();
      },
    }),
  });

  const axisLabel = value => String(Math.round(value * 10) / 10).replace("-", "\u2212");

  const optionsOf = (index, rows) => ({
    labels: ["Time", QUANTITIES[index].name], customBars: true, legend: "never", colors: [colour("--acc")],
    fillAlpha: .22, strokeWidth: 1.5, dateWindow: [from, to], valueRange: valueRange(index, rows),
    gridLineColor: colour("--line"), gridLineWidth: 1, axisLineColor: colour("--line"), rightGap: 0,
    highlightCircleSize: 3, xRangePad: 0, animatedZooms: false, drawGapEdgePoints: true, pointSize: 1.5,
    axes: {
      x: {
        drawAxis: Boolean(QUANTITIES[index].hasAxis), axisLabelWidth: 96,
        ticker: (a, b, pixels) => timeTicks(clock, a, b, Math.max(2, Math.floor(pixels / 80))),
      },
      y: {axisLabelWidth: 48, pixelsPerLabel: QUANTITIES[index].perLabel || 30, axisLabelFormatter: axisLabel},
    },
    underlayCallback: shadeOutages,
    plugins: [overlay(index, rows)],
    zoomCallback: (a, b) => { if (!isMoving) onZoom(a, b); },
    highlightCallback: (event, time) => moveTo(time),
    unhighlightCallback: () => moveTo(null),
  });

  const addChart = index => {
    const quantity = QUANTITIES[index];
    const rows = view.curves[index];
    if (!rows.length) return;
    const frame = element("div", "chb"), head = element("div", "ch");
    const reading = element("span", "", restText(quantity, rows));
    head.append(element("b", "", quantity.name), quantity.unit, reading);
    const canvas = element("div", "cv");
    canvas.style.height = quantity.height + (quantity.hasAxis ? 20 : 0) + "px";
    canvas.dataset.points = rows.filter(row => row[1][0] !== null).length;
    frame.append(head, canvas);
    box.append(frame);
    const graph = new Dygraph(canvas, rows, optionsOf(index, rows));
    graphs.push({graph, rows, reading, quantity, rest: reading.textContent});
  };

  /* What of the view a beacon was there, of the time in which somebody listened and that the history knows. */
  const addPresence = () => {
    const inside = spans => spans.map(([since, until]) => [Math.max(from, since * 1e3), Math.min(to, until * 1e3)])
      .filter(([since, until]) => since < until);
    const known = view.knownSince;
    const outages = inside([[0, known], ...view.outages.map(([since, until]) => [Math.max(since, known), until])]);
    const heardIn = (since, until) => outages.reduce(
      (sum, [a, b]) => sum - Math.max(0, Math.min(until, b) - Math.max(since, a)), until - since);
    const end = Math.min(to, view.until * 1e3);
    const heard = inside(view.presence).reduce((sum, [a, b]) => sum + heardIn(a, b), 0);
    const listened = heardIn(from, end);
    const share = listened > 0 ? "heard " + (heard / listened > .9995 ? "100" : number(heard / listened * 100, 1)) + " %" : "nothing listened";
    const space = "http://www.w3.org/2000/svg", svg = document.createElementNS(space, "svg");
    for (const [name, value] of [["class", "pres"], ["viewBox", "0 0 1000 10"], ["preserveAspectRatio", "none"],
      ["role", "img"], ["aria-label", "Presence: " + share]]) svg.setAttribute(name, value);
    const bar = ([since, until], css) => {
      const rect = document.createElementNS(space, "rect"), x = (since - from) / (to - from) * 1000;
      rect.setAttribute("x", x.toFixed(2));
      rect.setAttribute("width", Math.max(1.5, (until - since) / (to - from) * 1000).toFixed(2));
      rect.setAttribute("height", 10);
      rect.setAttribute("class", css);
      svg.append(rect);
    };
    inside(view.presence).forEach(span => bar(span, "in"));
    outages.forEach(span => bar(span, "ra"));
    const frame = element("div", "chb"), head = element("div", "ch");
    head.append(element("b", "", "Presence"), element("span", "", share));
    frame.append(head, svg);
    box.append(frame);
  };

  const readingAt = ({rows, quantity}, index) => {
    if (index < 0 || Math.abs(rows[index][0] - place) > view.width * 1500) return "no reading";
    const [lowest, mean, highest] = rows[index][1];
    const [low, high] = [lowest, highest].map(value => number(value, quantity.places));
    return number(mean, quantity.places) + (low === high ? "" : " (" + low + " to " + high + ")");
  };

  /* The reading line through all charts; null takes it away. */
  const moveTo = (time, isSpoken) => {
    if (isMoving) return;
    isMoving = true;
    place = time;
    const when = time === null ? "" : (to - from > 1.5 * DAY ? clock.weekday(time) + " " : "") + clock.fine(time, view.width * 1e3);
    for (const one of graphs) {
      if (time === null) {
        one.graph.clearSelection();
        setText(one.reading, one.rest);
        continue;
      }
      const index = nearestRow(one.rows, time);
      if (index >= 0) one.graph.setSelection(index);
      setText(one.reading, when + "   " + readingAt(one, index));
    }
    isMoving = false;
    if (isSpoken && time !== null)
      setText($("#say"), graphs.slice(0, 2).map(one => one.quantity.name + " " + one.reading.textContent + " " +
        one.quantity.unit).join("; "));
  };

  /* Steps of the reading line with the keyboard. */
  const step = direction => {
    if (!graphs.length) return;
    const rows = graphs[0].rows.filter(inView);
    if (!rows.length) return;
    const last = rows.length - 1, now = place === null ? last : nearestRow(rows, place);
    const by = Math.max(1, Math.round(rows.length / 120));
    const to = direction === "first" ? 0 : direction === "last" ? last :
      place === null ? last : Math.max(0, Math.min(last, now + direction * by));
    moveTo(Number(rows[to][0]), true);
  };

  const clear = () => {
    for (const one of graphs) one.graph.destroy();
    graphs = [];
    box.textContent = "";
  };

  /* Nobody who has scrolled down is thrown up while the charts are made anew. */
  const draw = (which, since, until, shown) => {
    box.style.minHeight = box.offsetHeight + "px";
    clear();
    [beacon, from, to, place, view] = [which, since, until, null, shown];
    drawAll();
    box.style.minHeight = "";
  };

  const drawAll = () => {
    if (!view || view.curves.every(rows => !rows.length))
      return box.append(element("p", "note", "Nothing was heard of this beacon" + (view ? " in this time." : ".")));
    addChart(0);
    addChart(1);
    addChart(2);
    addPresence();
    addChart(3);
  };

  /* The figures of the view in so many pieces: [start, per quantity [lowest, mean, highest] or null]. */
  const figures = pieces => Array.from({length: pieces}, (_, i) => {
    const start = from + i * (to - from) / pieces, end = start + (to - from) / pieces;
    return [start, QUANTITIES.map(quantity => {
      const chart = graphs.find(one => one.quantity === quantity);
      const rows = chart ? chart.rows.filter(row => row[1][0] !== null && row[0] >= start && row[0] < end) : [];
      if (!rows.length) return null;
      return [Math.min(...rows.map(row => row[1][0])), rows.reduce((sum, row) => sum + row[1][1], 0) / rows.length,
        Math.max(...rows.map(row => row[1][2]))];
    })];
  });

  return {draw, clear, step, figures, moveTo, resize: () => graphs.forEach(one => one.graph.resize()),
    isRead: () => place !== null};
};
