"use strict";
// ---- data: columns of numbers, so that a million files take no million objects ----

const raw = [];                 // texts as the page numbers them
const textOf = [];              // page number -> number of the distinct text
const setOf = [];               // page number -> number of the distinct list of certificates
const texts = [], textNumbers = new Map();
const sets = [], setNumbers = new Map();
const certificates = [], certificateOf = [], certificateNumbers = new Map();
const names = [];
const digestChunks = [], chunkStarts = [];
let files = 0;
const columns = {d: new Uint32Array(1024), p: new Uint32Array(1024), v: new Uint32Array(1024),
                 c: new Uint32Array(1024), k: new Uint32Array(1024), i: new Uint8Array(1024)};
const SHA1 = 27, SHA256 = 43, SOON = 90 * 86400;
let now = 0;

const byId = (id) => document.getElementById(id);

function number(list, numbers, key, value) {
  let n = numbers.get(key);
  if (n === undefined) {
    n = list.length;
    numbers.set(key, n);
    list.push(value);
  }
  return n;
}

function text(n) {
  return textOf[n] ??= number(texts, textNumbers, raw[n], raw[n]);
}

function set(n) {
  return setOf[n] ??= number(sets, setNumbers, raw[n], {list: raw[n], files: 0});
}

// Called by the page behind each chunk.
function take() {
  const element = document.currentScript.previousElementSibling;
  const chunk = JSON.parse(element.textContent);
  element.remove();
  document.currentScript.remove();
  if (chunk.now !== undefined) {
    now = chunk.now;
    start(chunk.incomplete);
    return;
  }
  for (const one of chunk.t) raw.push(one);
  for (const [name, holder, subject, issuer, serial, key, digest, problem, from, to] of chunk.z) {
    certificateOf.push(number(certificates, certificateNumbers, name,
                              {name, holder, subject, issuer, serial, key, digest, problem, from, to}));
  }
  const end = files + chunk.n.length;
  for (const key in columns) {
    while (columns[key].length < end) {
      const larger = new columns[key].constructor(columns[key].length * 2);
      larger.set(columns[key]);
      columns[key] = larger;
    }
  }
  chunkStarts.push(files);
  digestChunks.push(chunk.x);
  for (let i = 0, file = files; file < end; ++i, ++file) {
    names.push(chunk.n[i]);
    columns.d[file] = text(chunk.d[i]);
    columns.p[file] = text(chunk.p[i]);
    columns.v[file] = text(chunk.v[i]);
    columns.c[file] = text(chunk.c[i]);
    columns.k[file] = set(chunk.k[i]);
    columns.i[file] = chunk.i.charCodeAt(i) - 48;
  }
  files = end;
  byId("about").textContent = `Reading the survey… ${count(files)} files`;
}

function digests(file) {
  let low = 0, high = chunkStarts.length;
  while (high - low > 1) {
    const middle = (low + high) >> 1;
    if (chunkStarts[middle] <= file) low = middle; else high = middle;
  }
  const at = (file - chunkStarts[low]) * (SHA1 + SHA256);
  return digestChunks[low].slice(at, at + SHA1 + SHA256);
}

const BASE64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
function hexOf(base64, digits) {
  let hex = "";
  for (let i = 0; i < base64.length && base64[i] !== " "; i += 2) {
    hex += ((BASE64.indexOf(base64[i]) << 6) | Math.max(0, BASE64.indexOf(base64[i + 1]))).toString(16).padStart(3, "0");
  }
  return hex.slice(0, digits);
}
// The front of a digest that is written in hexadecimal, as far as whole characters of base64 go.
function base64Of(hex) {
  let base64 = "";
  for (let i = 0; i + 3 <= hex.length; i += 3) {
    const bits = parseInt(hex.slice(i, i + 3), 16);
    base64 += BASE64[bits >> 6] + BASE64[bits & 63];
  }
  return base64;
}

// ---- what is derived from it once ----

const EXPIRED = 2, SOON_EXPIRED = 1;
const stateOf = (one) => one.problem || one.to >= now + SOON ? 0 : one.to < now ? EXPIRED : SOON_EXPIRED;

function prepareSets() {
  for (let file = 0; file < files; ++file) ++sets[columns.k[file]].files;
  for (const one of sets) {
    const [signers, others = ""] = one.list.split("|");
    const named = (list) => list === "" ? [] : list.split(",").map((n) => certificates[certificateOf[+n]]);
    one.signers = named(signers);
    one.others = named(others);
    one.holders = [...new Set(one.signers.map((signer) => signer.holder))];
    one.label = one.holders.join("; ");
    one.state = one.signers.reduce((worst, signer) => Math.max(worst, stateOf(signer)), 0);
    one.signed = one.list !== "";
  }
}

const isPackage = (file) => /\.msi$/i.test(names[file]);

function mostFrequent(counts) {
  return [...counts].sort((a, b) => b[1] - a[1] || (a[0] < b[0] ? -1 : 1));
}

function companyCounts() {
  const byText = new Uint32Array(texts.length);
  for (let file = 0; file < files; ++file) ++byText[columns.c[file]];
  const counts = new Map();
  byText.forEach((files, n) => { if (files && texts[n] !== "") counts.set(texts[n], files); });
  return mostFrequent(counts);
}

function signerCounts() {
  const counts = new Map();
  for (const one of sets) {
    for (const holder of one.holders) counts.set(holder, (counts.get(holder) || 0) + one.files);
  }
  return mostFrequent(counts);
}

// The folder that all files have in common.
function commonFolder() {
  let common = null;
  const met = new Uint8Array(texts.length);
  for (let file = 0; file < files; ++file) {
    const n = columns.d[file];
    if (met[n]) continue;
    met[n] = 1;
    if (common === null) common = texts[n];
    while (!texts[n].startsWith(common)) common = common.slice(0, Math.max(common.slice(0, -1).lastIndexOf("/"), common.slice(0, -1).lastIndexOf("\\")) + 1);
  }
  return common ?? "";
}
let root = "";

// ---- text that stays text ----

// Characters that show nothing, or turn the direction of what follows, are shown by their numbers.
const UNSEEN = /[\u0000-\u001f\u007f-\u009f\u00ad\u061c\u115f\u180e\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff\ufff9-\ufffb]/;
function put(element, value, most = Infinity) {
  if (value.length > most) value = value.slice(0, most) + "…";
  if (!UNSEEN.test(value)) {
    element.textContent = value;
    return element;
  }
  element.replaceChildren(...value.split(new RegExp(`(${UNSEEN.source})`)).filter((part) => part !== "").map((part) =>
    part.length === 1 && UNSEEN.test(part)
      ? make("span", "mark", "U+" + part.charCodeAt(0).toString(16).toUpperCase().padStart(4, "0")) : part));
  return element;
}

function make(tag, className = "", value = null, ...children) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  if (value !== null) put(element, value);
  element.append(...children);
  return element;
}
const bdi = (value) => make("bdi", "", value);
function svg(tag, attributes, ...children) {
  const element = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const key in attributes) element.setAttribute(key, attributes[key]);
  element.append(...children);
  return element;
}
const count = (n) => n.toLocaleString("en");
const day = (seconds) => new Date(seconds * 1000).toISOString().slice(0, 10);
function distance(seconds) {
  const days = Math.floor(seconds / 86400);
  return days < 1 ? "less than a day" : days === 1 ? "1 day" : days < 730 ? `${count(days)} days` : `${Math.floor(days / 365.25)} years`;
}

// ---- filters, search and order: `view` lists the files to show ----

const asked = {query: "", kind: "", signed: "", signer: "", company: ""};
const order = {column: "", descending: false};
let matching = new Uint32Array(0);
let view = matching;

function searchTest(query) {
  if (query === "") return null;
  const found = (value) => value.toLowerCase().includes(query);
  const textHits = Uint8Array.from(texts, (one) => found(one) ? 1 : 0);
  const setHits = Uint8Array.from(sets, (one) => found(one.label) ? 1 : 0);
  const path = /[/\\]/.test(query);
  const digest = /^[0-9a-f]{6,64}$/.test(query) ? base64Of(query) : null;
  return (file) => textHits[columns.d[file]] || textHits[columns.p[file]] || textHits[columns.v[file]] ||
    textHits[columns.c[file]] || setHits[columns.k[file]] || found(names[file]) ||
    (path && found(texts[columns.d[file]] + names[file])) ||
    (digest !== null && matchesDigest(digests(file), digest, query));
}
function matchesDigest(both, front, query) {
  return (both.startsWith(front) && hexOf(both.slice(0, SHA1), 40).startsWith(query)) ||
    (both.startsWith(front, SHA1) && hexOf(both.slice(SHA1), 64).startsWith(query));
}

function tests() {
  const all = [];
  const bySet = (test) => {
    const hits = Uint8Array.from(sets, (one) => test(one) ? 1 : 0);
    all.push((file) => hits[columns.k[file]]);
  };
  if (asked.kind === "package") all.push(isPackage);
  else if (asked.kind !== "") all.push((file) => columns.i[file] === (asked.kind === "installer" ? 1 : 0));
  if (asked.signed === "yes") bySet((one) => one.signed);
  if (asked.signed === "no") bySet((one) => !one.signed);
  if (asked.signed === "expired") bySet((one) => one.signers.some((signer) => stateOf(signer) === EXPIRED));
  if (asked.signed === "soon") bySet((one) => one.signers.some((signer) => stateOf(signer) === SOON_EXPIRED));
  if (asked.signer !== "") bySet((one) => one.holders.includes(asked.signer));
  if (asked.company !== "") {
    const wanted = textNumbers.get(asked.company);
    all.push((file) => columns.c[file] === wanted);
  }
  const search = searchTest(asked.query);
  if (search) all.push(search);
  return all;
}

function filter() {
  const all = tests();
  const found = new Uint32Array(files);
  let length = 0;
  for (let file = 0; file < files; ++file) {
    if (all.every((test) => test(file))) found[length++] = file;
  }
  matching = found.slice(0, length);
  sort();
}

const collator = new Intl.Collator("en", {numeric: true, sensitivity: "base"});
// The place of each value among all of them. Above this many the exact comparison would take too long.
const COLLATED = 20000;
function ranks(values) {
  const low = values.length > COLLATED ? values.map((one) => one.toLowerCase()) : values;
  const less = values.length > COLLATED ? (a, b) => low[a] < low[b] ? -1 : low[a] > low[b] ? 1 : 0
                                        : (a, b) => collator.compare(low[a], low[b]);
  const sorted = Uint32Array.from(values.keys()).sort(less);
  const rank = new Uint32Array(values.length);
  let place = 0;
  for (let i = 0; i < sorted.length; ++i) {
    if (i > 0 && less(sorted[i - 1], sorted[i]) !== 0) ++place;
    rank[sorted[i]] = place;
  }
  return rank;
}
const rankCache = new Map();
function rankOf(key) {
  const source = {n: "n", k: "k"}[key] ?? "texts";
  if (key === "i") return null;
  if (!rankCache.has(source)) {
    rankCache.set(source, ranks(source === "n" ? names : source === "k" ? sets.map((one) => one.label) : texts));
  }
  return rankCache.get(source);
}

function sort() {
  const key = order.column;
  if (key === "") {
    view = matching;
  } else {
    const rank = rankOf(key);
    const of = key === "n" ? (file) => rank[file] : key === "i" ? (file) => 1 - columns.i[file] : (file) => rank[columns[key][file]];
    // One number holds rank and place, so that equal ones keep their order and the engine sorts plain numbers.
    const size = matching.length, last = order.descending ? Math.max(texts.length, sets.length, files, 2) : 0;
    const keys = Float64Array.from(matching, (file, i) => Math.abs(last - of(file)) * size + i);
    keys.sort();
    view = Uint32Array.from(keys, (one) => matching[one % size]);
  }
  show();
}

// ---- the list draws the rows that are seen ----

const HEIGHT = 48;
const TALLEST = 12000000;  // browsers cap the height of an element; a longer list scrolls faster than its bar
const COLUMNS = [["n", "File"], ["p", "Product"], ["v", "Version"], ["c", "Company"], ["i", "Kind"], ["k", "Signed by"]];
const viewport = byId("viewport"), spacer = byId("spacer"), rows = byId("rows"), grid = byId("grid");
let active = 0;
let drawn = [];

const listHeight = () => view.length * HEIGHT;
// Pixels of the list to one pixel of the bar.
function ratio() {
  const height = Math.min(listHeight(), TALLEST);
  return height <= viewport.clientHeight ? 1 : (listHeight() - viewport.clientHeight) / (height - viewport.clientHeight);
}

function newRow(i) {
  const row = make("div", "row");
  row.setAttribute("role", "row");
  row.id = `row${i}`;
  for (let column = 0; column < COLUMNS.length; ++column) {
    const cell = make("div");
    cell.setAttribute("role", "gridcell");
    cell.setAttribute("aria-colindex", column + 1);
    row.append(cell);
  }
  row.children[0].append(make("div", "name"), make("div", "folder"));
  row.children[2].className = "version";
  rows.append(row);
  return row;
}

function fillRow(row, place) {
  const file = view[place];
  row.place = place;
  row.setAttribute("aria-rowindex", place + 2);
  row.classList.toggle("active", place === active);
  row.setAttribute("aria-selected", place === active);
  if (row.file === file) return;
  row.file = file;
  const [name, product, version, company, kind, signer] = row.children;
  const folder = texts[columns.d[file]].slice(root.length);
  name.children[0].replaceChildren(put(document.createElement("bdi"), names[file], 1000));
  name.children[1].replaceChildren(put(document.createElement("bdi"), folder, 1000));
  product.replaceChildren(put(document.createElement("bdi"), texts[columns.p[file]], 1000));
  version.replaceChildren(put(document.createElement("bdi"), texts[columns.v[file]], 1000));
  company.replaceChildren(put(document.createElement("bdi"), texts[columns.c[file]], 1000));
  kind.replaceChildren(...(columns.i[file] ? [make("span", "badge", "installer")] : []));
  const one = sets[columns.k[file]];
  if (!one.signed) signer.replaceChildren(make("span", "soft", "unsigned"));
  else signer.replaceChildren(make("span", "dot " + ["", "warn", "bad"][one.state]),
                              make("span", "unseen", ["", "expires soon: ", "expired: "][one.state]),
                              put(document.createElement("bdi"), one.label, 1000));
}

function draw() {
  const seen = Math.ceil(viewport.clientHeight / HEIGHT) + 2;
  const top = viewport.scrollTop * ratio();
  const first = Math.max(0, Math.min(Math.floor(top / HEIGHT), view.length - 1));
  const needed = Math.max(0, Math.min(seen, view.length - first));
  while (drawn.length < needed) drawn.push(newRow(drawn.length));
  while (drawn.length > needed) drawn.pop().remove();
  for (let i = 0; i < needed; ++i) fillRow(drawn[i], first + i);
  rows.style.transform = `translateY(${viewport.scrollTop - (top - first * HEIGHT)}px)`;
  const current = drawn.find((row) => row.place === active);
  if (current) grid.setAttribute("aria-activedescendant", current.id);
  else grid.removeAttribute("aria-activedescendant");
}

function show() {
  spacer.style.height = `${Math.min(listHeight(), TALLEST)}px`;
  grid.setAttribute("aria-rowcount", view.length + 1);
  byId("found").textContent = view.length === files ? `${count(files)}` : `${count(view.length)} of ${count(files)}`;
  byId("nothing").hidden = view.length !== 0;
  byId("reset").hidden = Object.values(asked).every((one) => one === "");
  active = 0;
  viewport.scrollTop = 0;
  for (const row of drawn) row.file = -1;
  for (const cell of byId("head").children) {
    const own = cell.dataset.key === order.column;
    cell.setAttribute("aria-sort", !own ? "none" : order.descending ? "descending" : "ascending");
    cell.querySelector(".arrow").textContent = !own ? "" : order.descending ? "▼" : "▲";
  }
  for (const button of document.querySelectorAll("[data-filter]")) {
    button.setAttribute("aria-pressed", asked[button.dataset.filter] === button.value);
  }
  draw();
}

function moveTo(place) {
  active = Math.max(0, Math.min(place, view.length - 1));
  const scale = ratio();
  const top = viewport.scrollTop * scale;
  const wanted = Math.min(active * HEIGHT, Math.max(top, (active + 1) * HEIGHT - viewport.clientHeight));
  if (Math.abs(wanted - top) > 0.5) viewport.scrollTop = wanted / scale;
  draw();
}

// ---- one file ----

function term(list, name, ...content) {
  list.append(make("dt", "", name), make("dd", "", null, ...content));
}

function certificateCard(one, role) {
  const card = make("article", "certificate");
  card.append(make("h4", "", null, bdi(one.holder)), make("span", "badge", role));
  const list = make("dl");
  if (one.problem) {
    card.append(make("span", "badge bad", one.problem));
  } else {
    const state = stateOf(one);
    card.append(state === EXPIRED ? make("span", "badge bad", `expired ${distance(now - one.to)} ago`)
              : state === SOON_EXPIRED ? make("span", "badge warn", `expires in ${distance(one.to - now)}`)
              : make("span", "badge", "in date"));
    term(list, "Subject", bdi(one.subject));
    term(list, "Issuer", bdi(one.issuer));
    term(list, "Valid", `${day(one.from)} to ${day(one.to)}`);
    term(list, "Key", bdi(one.key));
    term(list, "Serial", make("span", "code", one.serial));
    term(list, "SHA-256", make("span", "code", one.digest));
  }
  term(list, "File", make("span", "code", one.name + ".cer"));
  card.append(list);
  return card;
}

function openFile(place) {
  if (place < 0 || place >= view.length) return;
  moveTo(place);
  const file = view[place];
  const both = digests(file);
  const one = sets[columns.k[file]];
  const list = make("dl");
  const value = (name, content) => { if (content) term(list, name, bdi(content)); };
  value("Folder", texts[columns.d[file]]);
  value("Product", texts[columns.p[file]]);
  value("Version", texts[columns.v[file]]);
  value("Company", texts[columns.c[file]]);
  term(list, "Installer", columns.i[file] ? "yes" : "no");
  for (const [name, digest] of [["SHA-1", hexOf(both.slice(0, SHA1), 40)], ["SHA-256", hexOf(both.slice(SHA1), 64)]]) {
    if (digest) term(list, name, make("span", "code", digest));
  }
  const title = make("h2", "", null, bdi(names[file]));
  title.id = "details-title";
  byId("sheet").replaceChildren(title, list, make("h3", "", one.signed ? "Certificates" : "No signature was found"),
    ...one.signers.map((signer) => certificateCard(signer, "signer")),
    ...one.others.map((other) => certificateCard(other, "carried along")));
  byId("previous").disabled = place === 0;
  byId("next").disabled = place === view.length - 1;
  const dialog = byId("details");
  if (!dialog.open) {
    dialog.showModal();
    byId("close").focus();
  }
  dialog.scrollTop = 0;
}

// ---- the parts around the list ----

function tiles() {
  let installers = 0, packages = 0, signed = 0;
  for (let file = 0; file < files; ++file) {
    installers += columns.i[file];
    if (isPackage(file)) ++packages;
    if (sets[columns.k[file]].signed) ++signed;
  }
  const states = [0, 0, 0];
  for (const one of certificates) ++states[stateOf(one)];
  for (const [label, n, name, wanted, look] of [
    ["files", files], ["installers", installers, "kind", "installer"], ["packages", packages, "kind", "package"],
    ["signed", signed, "signed", "yes"], ["unsigned", files - signed, "signed", "no"],
    ["certificates", certificates.length], ["expired", states[EXPIRED], "signed", "expired", "bad"],
    ["expiring soon", states[SOON_EXPIRED], "signed", "soon", "warn"]]) {
    const tile = make(name ? "button" : "div", "tile" + (look && n ? " " + look : ""));
    tile.append(make("b", "", count(n)), make("span", "", label));
    if (name) filterButton(tile, name, wanted);
    byId("tiles").append(make("li", "", null, tile));
  }
}

function filterButton(button, name, wanted) {
  button.type = "button";
  button.dataset.filter = name;
  button.value = wanted;
  button.addEventListener("click", () => ask(name, asked[name] === wanted ? "" : wanted));
}

const BARS = 8, OPTIONS = 500;
function bars(id, name, counts) {
  if (counts.length === 0) byId(id).append(make("li", "none", "None."));
  for (const [label, n] of counts.slice(0, BARS)) {
    const button = make("button", "", null, make("span", "label", null, bdi(label)), make("span", "count", count(n)),
      svg("svg", {viewBox: "0 0 100 6", preserveAspectRatio: "none", "aria-hidden": "true"},
        svg("rect", {class: "track", width: 100, height: 6, rx: 1}),
        svg("rect", {class: "fill", width: Math.max(0.5, 100 * n / counts[0][1]), height: 6, rx: 1})));
    filterButton(button, name, label);
    byId(id).append(make("li", "", null, button));
  }
  const select = byId(name);
  const option = (value, label) => {
    const one = document.createElement("option");
    one.value = value;
    one.textContent = label;
    select.append(one);
  };
  option("", "all");
  const plain = (label) => label.replace(new RegExp(UNSEEN.source, "g"), "\ufffd").slice(0, 80);
  for (const [label, n] of counts.slice(0, OPTIONS)) option(label, `\u2068${plain(label)}\u2069 (${count(n)})`);
}

function ask(name, value) {
  asked[name] = value;
  byId(name).value = value;
  filter();
}

function header() {
  for (const [key, label] of COLUMNS) {
    const cell = make("div");
    cell.setAttribute("role", "columnheader");
    cell.dataset.key = key;
    const button = make("button", "", null, label, make("span", "arrow"));
    button.type = "button";
    // Up, down, and back to the order of the scan.
    button.addEventListener("click", () => {
      if (order.column !== key) Object.assign(order, {column: key, descending: false});
      else if (!order.descending) order.descending = true;
      else order.column = "";
      sort();
    });
    cell.append(button);
    byId("head").append(cell);
  }
}

function keys() {
  grid.addEventListener("keydown", (event) => {
    if (event.target !== grid || event.ctrlKey || event.altKey || event.metaKey) return;
    const page = Math.max(1, Math.floor(viewport.clientHeight / HEIGHT) - 1);
    const target = {ArrowDown: active + 1, ArrowUp: active - 1, PageDown: active + page, PageUp: active - page,
                    Home: 0, End: view.length - 1}[event.key];
    if (target !== undefined) moveTo(target);
    else if (event.key === "Enter" || event.key === " ") openFile(active);
    else return;
    event.preventDefault();
  });
  document.addEventListener("keydown", (event) => {
    if (event.key !== "/" || /^(INPUT|SELECT)$/.test(event.target.tagName) || byId("details").open) return;
    byId("query").focus();
    event.preventDefault();
  });
}

function listen() {
  let waiting = 0, drawing = false;
  byId("query").addEventListener("input", (event) => {
    clearTimeout(waiting);
    waiting = setTimeout(() => {
      asked.query = event.target.value.trim().toLowerCase();
      filter();
    }, 120);
  });
  for (const name of ["kind", "signed", "signer", "company"]) {
    byId(name).addEventListener("change", (event) => ask(name, event.target.value));
  }
  byId("filters").addEventListener("submit", (event) => event.preventDefault());
  byId("reset").addEventListener("click", () => {
    for (const name in asked) byId(name).value = asked[name] = "";
    filter();
    byId("query").focus();
  });
  viewport.addEventListener("scroll", () => {
    if (drawing) return;
    drawing = true;
    requestAnimationFrame(() => { drawing = false; draw(); });
  });
  rows.addEventListener("click", (event) => {
    const row = event.target.closest(".row");
    if (row && getSelection().isCollapsed) openFile(row.place);
  });
  byId("close").addEventListener("click", () => byId("details").close());
  byId("previous").addEventListener("click", () => openFile(active - 1));
  byId("next").addEventListener("click", () => openFile(active + 1));
  byId("details").addEventListener("close", () => grid.focus({preventScroll: true}));
  byId("details").addEventListener("click", (event) => { if (event.target === byId("details")) byId("details").close(); });
  addEventListener("resize", draw);
  addEventListener("beforeprint", paper);
  addEventListener("afterprint", () => byId("paper").replaceChildren());
}

// On paper: the rows that the filters leave, as far as anybody would print them.
const PRINTED = 2000;
function paper() {
  const body = make("tbody");
  for (const file of view.slice(0, PRINTED)) {
    const cells = [texts[columns.d[file]] + names[file], texts[columns.p[file]], texts[columns.v[file]],
                   texts[columns.c[file]], columns.i[file] ? "installer" : "", sets[columns.k[file]].label];
    body.append(make("tr", "", null, ...cells.map((cell) => make("td", "", null, bdi(cell)))));
  }
  const head = make("tr", "", null, ...COLUMNS.map(([, label]) => make("th", "", label)));
  const told = view.length > PRINTED ? `The first ${count(PRINTED)} of ${count(view.length)} files` : `${count(view.length)} files`;
  byId("paper").replaceChildren(make("h2", "", told), make("table", "", null, make("thead", "", null, head), body));
}

function start(incomplete) {
  prepareSets();
  root = commonFolder();
  put(byId("root"), root.length > 1 ? "of " + root.slice(0, -1) : "");
  document.title = root.length > 1 ? `Survey of ${root.slice(0, -1)}` : "Survey";
  byId("about").textContent = `${count(files)} files. Validity of certificates as of ${day(now)}; no signature was verified.`;
  byId("incomplete").hidden = incomplete === "";
  byId("incomplete").textContent = `This survey is incomplete: ${incomplete}${/early/.test(incomplete) ? "" : " left out"}.`;
  byId("main").hidden = false;
  header();
  tiles();
  bars("companies", "company", companyCounts());
  bars("signers", "signer", signerCounts());
  listen();
  keys();
  filter();
  document.documentElement.dataset.ready = "yes";
}
