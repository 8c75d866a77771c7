// SPDX-License-Identifier: MIT
// Shows what /events tells. Texts of the modem go into text nodes alone.
"use strict";

const shownSeconds = 600, goneAfterMs = 15000, againAfterMs = 3000;

// Limits from excellent to poor, and what a chart reaches from and to.
const gauges = [
  { field: "rsrp_dbm", name: "RSRP", unit: "dBm", limits: [-80, -90, -100], low: -130, high: -60 },
  { field: "rsrq_db", name: "RSRQ", unit: "dB", limits: [-10, -15, -20], low: -25, high: -3 },
  { field: "sinr", name: "SINR", unit: "", limits: [20, 13, 0], low: -15, high: 35 },
  { field: "signal_dbm", name: "RSSI", unit: "dBm", limits: [-70, -85, -100], low: -115, high: -50 },
];
const levels = ["excellent", "good", "fair", "poor"];
const figureFields = gauges.map((gauge) => gauge.field);

let status = {}, figures = {}, figuresAt = 0;
let samples = []; // {at, values, online}, the oldest first; `at` in ms of performance.now()
let source = null, heardAt = 0, lostSince = null, again = null;

const at = (id) => document.getElementById(id);

function write(element, text) {
  if (element.textContent !== text)
    element.textContent = text; // else a screen reader would read it again
}

function make(parent, tag, className, text) {
  const element = document.createElement(tag);
  if (className)
    element.className = className;
  if (text !== undefined)
    element.textContent = text;
  parent.append(element);
  return element;
}

function makeSvg(parent, tag, attributes) {
  const element = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [name, value] of Object.entries(attributes))
    element.setAttribute(name, value);
  parent.append(element);
  return element;
}

const isKnown = (value) => value !== null && value !== undefined;
const number = (value) => String(value).replace("-", "\u2212");

function duration(seconds) {
  if (!isKnown(seconds))
    return null;
  const parts = [[86400, "d"], [3600, "h"], [60, "min"], [1, "s"]];
  const first = Math.max(parts.findIndex(([length]) => seconds >= length), 0);
  if (seconds < 60)
    return `${seconds} s`;
  return parts.slice(first, first + 2).map(([length, unit], i) =>
    `${Math.floor(i ? seconds % parts[first][0] / length : seconds / length)} ${unit}`).join(" ");
}

// --- signal ---

const chart = { width: 300, height: 84, left: 26 };

function makeGauges() {
  for (const gauge of gauges) {
    const box = make(at("gauges"), "div", "gauge");
    box.id = gauge.field;
    const row = make(box, "div", "row");
    make(row, "h3", "", gauge.name);
    gauge.value = make(row, "span", "value", "\u2013");
    make(row, "span", "unit", gauge.unit);
    gauge.level = make(row, "span", "level", "unknown");
    gauge.svg = makeSvg(box, "svg", { viewBox: `0 0 ${chart.width} ${chart.height}`, role: "img" });
    gauge.out = makeSvg(gauge.svg, "path", { class: "out" });
    for (const limit of gauge.limits) {
      const y = height(gauge, limit);
      makeSvg(gauge.svg, "path", { class: "limit", d: `M${chart.left} ${y}H${chart.width}` });
      makeSvg(gauge.svg, "text", { x: chart.left - 3, y: y + 3, "text-anchor": "end" }).textContent = number(limit);
    }
    gauge.curve = makeSvg(gauge.svg, "path", { class: "curve" });
    gauge.now = makeSvg(gauge.svg, "circle", { class: "now", r: 2.5 });

    const [best, good, fair] = gauge.limits.map(number);
    const level = make(at("levels"), "tr");
    make(level, "th", "", gauge.name).scope = "row";
    for (const text of [`from ${best}`, `from ${good}`, `from ${fair}`, `below ${fair}`])
      make(level, "td", "", text);
  }
}

function levelOf(gauge, value) {
  const place = gauge.limits.findIndex((limit) => value >= limit);
  return levels[place < 0 ? levels.length - 1 : place];
}

function height(gauge, value) {
  const share = (gauge.high - value) / (gauge.high - gauge.low);
  return Math.round((4 + Math.min(Math.max(share, 0), 1) * (chart.height - 8)) * 10) / 10;
}

function place(sample, now) {
  const share = 1 - (now - sample.at) / 1000 / shownSeconds;
  return Math.round((chart.left + Math.max(share, 0) * (chart.width - 4 - chart.left)) * 10) / 10;
}

function drawGauge(gauge, i, now) {
  const value = status[gauge.field];
  write(gauge.value, isKnown(value) ? number(value) : "\u2013");
  const level = isKnown(value) ? levelOf(gauge, value) : "";
  write(gauge.level, level || "unknown");
  gauge.level.className = `level ${level}`;

  let line = "", open = false, least = Infinity, most = -Infinity;
  for (const sample of samples) {
    const one = sample.values[i];
    if (isKnown(one)) {
      line += `${open ? "L" : "M"}${place(sample, now)} ${height(gauge, one)}`;
      if (!open)
        line += "h.1";
      least = Math.min(least, one);
      most = Math.max(most, one);
    }
    open = isKnown(one);
  }
  gauge.curve.setAttribute("d", line);
  const last = samples[samples.length - 1];
  gauge.now.setAttribute("visibility", last && isKnown(last.values[i]) ? "visible" : "hidden");
  if (last && isKnown(last.values[i])) {
    gauge.now.setAttribute("cx", place(last, now));
    gauge.now.setAttribute("cy", height(gauge, last.values[i]));
  }
  gauge.svg.setAttribute("aria-label", most < least ? `${gauge.name}: nothing known in the last ten minutes` :
    `${gauge.name} in the last ten minutes: from ${least} to ${most} ${gauge.unit}`);
}

function outages(now) {
  let shapes = "", begun = null;
  samples.forEach((sample, i) => {
    if (!sample.online && begun === null)
      begun = place(sample, now);
    const ends = sample.online || i === samples.length - 1;
    if (begun !== null && ends) {
      shapes += `M${begun} 0H${place(sample, now)}V${chart.height}H${begun}Z`;
      begun = null;
    }
  });
  return shapes;
}

function drawSignal() {
  const now = performance.now(), shapes = outages(now);
  gauges.forEach((gauge, i) => {
    gauge.out.setAttribute("d", shapes);
    drawGauge(gauge, i, now);
  });
}

// --- words ---

const lists = {};

// Rows as [name, text]; those without a text show a dash.
function list(id, rows) {
  const box = at(id);
  lists[id] ??= rows.map(() => [make(box, "dt"), make(box, "dd")]);
  rows.forEach(([name, text], i) => {
    write(lists[id][i][0], name);
    write(lists[id][i][1], isKnown(text) ? String(text) : "\u2013");
  });
}

function joined(...texts) {
  return texts.filter(isKnown).join(" ") || null;
}

function drawState() {
  const online = status.reason === "online";
  at("state").className = online ? "online" : "offline";
  write(at("word"), online ? "Online" : `Not online: ${status.reason}`);
  write(at("hint"), joined(status.meaning, status.hint && `What to try: ${status.hint}.`) ?? "");
  const model = joined(status.manufacturer, status.model) ?? "Modem";
  const registered = (status.registration ?? "").startsWith("Registered (");
  at("gauges").className = registered ? "" : "old";
  write(at("old"), registered ? "" : "Not registered: these figures may be old.");
  write(at("title"), model);
  document.title = `${online ? "Online" : status.reason} \u2013 ${model}`;
}

function drawWords() {
  list("network", [
    ["Registration", status.registration],
    ["Operator", joined(status.operator, isKnown(status.plmn) ? `(${status.plmn})` : null)],
    ["Technology", joined(status.technology, isKnown(status["5g"]) ? `5G ${status["5g"]}` : null)],
    ["Band", status.band],
    ["Channel", status.channel],
    ["Cell", status.cell],
    ["Area", status.area],
    ["Physical cell", status.pcid],
  ]);
  const counted = figures.messages ?? {};
  list("messages", [
    ["Received", counted.received],
    ["Sent", counted.sent],
    ["Failed", counted.failed],
    ["Unknown", counted.unknown],
    ["Not written", counted.not_written],
    ["Refused", counted.refused],
    ["Delivered", isKnown(counted.delivered) ? `${counted.delivered} parts, ${counted.undelivered} not` : null],
    ["Lost", isKnown(counted.messages_lost) ? counted.messages_lost + counted.results_lost + counted.reports_lost : null],
    ["Calls", status.calls_received],
    ["MQTT", joined(status.mqtt, isKnown(status.mqtt_received) ? `(${status.mqtt_received} received)` : null)],
  ]);
  list("modem", [
    ["Model", joined(status.manufacturer, status.model)],
    ["Revision", status.revision],
    ["SIM", joined(status.sim_card, isKnown(status.sim) ? `(${status.sim})` : null)],
    ["PIN tries left", figures.pin_tries],
    ["Port", status.port],
    ["Starts", figures.starts],
    ["Reloads", figures.reloads],
    ["Radio resets", figures.radio_resets],
    ["Modem restarts", figures.modem_restarts],
  ]);
}

// Times go on between two reports of them.
function drawTimes() {
  const passed = Math.floor((performance.now() - figuresAt) / 1000);
  const online = status.reason === "online";
  const grown = (value, grows) => isKnown(value) ? duration(value + (grows ? passed : 0)) : null;
  list("link", [
    ["Link", status.link],
    ["Online for, in all", grown(figures.online_s, online)],
    ["Not online", grown(figures.offline_s, !online)],
    [online ? "Last outage" : "This outage", grown(figures.last_outage_s, !online)],
    ["Longest outage", grown(figures.longest_outage_s, !online && figures.longest_outage_s === figures.last_outage_s)],
    ["Link losses", figures.link_losses],
    ["Port losses", figures.port_losses],
    ["Dials", figures.dials],
  ]);
  const next = figures.next_action;
  const left = next ? Math.max(next.in_s - passed, 0) : 0;
  write(at("next"), next ? `Next: ${next.name} ${left > 0 ? `in ${duration(left)}` : "now"}` : "");
}

// --- the connection ---

function take(happening) {
  if (happening.type === "status") {
    status = happening;
    if (happening.figures)
      take({ type: "figures", ...happening.figures });
    drawState();
    drawWords();
    drawSignal();
    drawTimes();
  } else if (happening.type === "figures") {
    figures = happening;
    figuresAt = performance.now();
    drawWords();
    drawTimes();
  } else if (happening.type === "history") {
    const now = performance.now(), place = figureFields.map((field) => happening.fields.indexOf(field));
    const age = happening.fields.indexOf("age_s"), online = happening.fields.indexOf("online");
    samples = happening.samples.map((row) =>
      ({ at: now - row[age] * 1000, values: place.map((column) => row[column]), online: row[online] === 1 }));
    drawSignal();
  }
}

function show(text, lost) {
  write(at("connection"), text);
  at("connection").className = lost ? "lost" : "";
  document.body.className = lost ? "stale" : "";
}

function lose() {
  lostSince ??= new Date();
  show(`No connection to the device since ${lostSince.toLocaleTimeString()}, trying again`, true);
  source.close();
  clearTimeout(again);
  again = setTimeout(connect, againAfterMs);
}

function connect() {
  heardAt = performance.now();
  source = new EventSource("events");
  source.onmessage = (message) => {
    heardAt = performance.now();
    if (lostSince !== null || at("connection").textContent !== "Live")
      show("Live", false);
    lostSince = null;
    take(JSON.parse(message.data));
  };
  source.onerror = lose;
}

// A sample each second, as the device keeps them.
function everySecond() {
  const now = performance.now();
  if (lostSince !== null)
    return;
  if (now - heardAt > goneAfterMs)
    return lose();
  if (!status.type)
    return;
  samples.push({ at: now, values: figureFields.map((field) => status[field]), online: status.reason === "online" });
  samples = samples.filter((sample) => now - sample.at <= shownSeconds * 1000);
  drawSignal();
  drawTimes();
}

makeGauges();
connect();
setInterval(everySecond, 1000);
