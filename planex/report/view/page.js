// The page: what is shown, what is chosen, and what is measured. Texts from files are shown as texts alone.

const byId = (id) => document.getElementById(id);

function element(name, text, attributes = {}) {
  const made = document.createElement(name);
  if (text !== undefined) made.textContent = text;
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  return made;
}

function drawing(name, attributes, text) {
  const made = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

const state = {
  map: maps[0], layer: maps[0].heights, together: "one", tool: "look", ends: [null, null], cursor: null, trace: null,
  light: true, azimuth: 135, exaggeration: 1, colors: "viridis", colorings: new Map(),

  /** The layer in which a map is coloured, and the colours of its steps. */
  coloringOf(map) {
    const layer = map.layerOf(this.layer.name);
    const [low, high] = this.colorEnds(layer.name);
    const id = `${map.index} ${layer.index} ${this.colors} ${low} ${high}`;
    if (!this.colorings.has(id)) {
      if (this.colorings.size > 8) this.colorings.clear();
      const isMeant = layer.name === this.layer.name; // else it stands beside in grey
      const table = isMeant ? colorTable(layer, this.colors, low, high) : new Uint8Array(65536 * 4).fill(190);
      this.colorings.set(id, { id, layer, low, high, table });
    }
    return this.colorings.get(id);
  },

  /** Those of the shown map, or of all maps together; around 0 where the middle of the colours is 0. */
  colorEnds(name) {
    const layers = (this.together === "one" ? [this.map] : maps).map((map) => map.layerOf(name))
      .filter((layer) => layer.name === name && layer.low !== null);
    let low = Math.min(...layers.map((layer) => layer.low)), high = Math.max(...layers.map((layer) => layer.high));
    if (this.colors === "diverging") {
      high = Math.max(Math.abs(low), Math.abs(high));
      low = -high;
    }
    return [low, high];
  },
};

let space = null;
const top_ = new TopView(byId("top-canvas"), state, {
  point: (place) => pointAt(place),
  ends: (a, b, isDone) => setEnds(a, b, isDone),
  end: (place) => (state.ends[0] && !state.ends[1] ? setEnds(state.ends[0], place, true) : setEnds(place, null, false)),
});

function fill(select, entries, chosen) {
  select.replaceChildren(...entries.map(([value, text]) => element("option", text, { value })));
  select.value = chosen;
}

/** Shows the map and the layer of the state in both views. */
function show(isOther) {
  const { map } = state;
  fill(byId("layer"), map.layers.map((layer, i) => [String(i), layer.name]), String(state.layer.index));
  byId("colors").value = state.colors;
  const coloring = state.coloringOf(map);
  state.table = coloring.table;
  state.colorsId = coloring.id;
  drawLegend(coloring);
  if (isOther) {
    state.ends = [null, null];
    state.cursor = state.trace = null;
    showResults([]);
    writeEnds();
    top_.fit();
  }
  top_.draw();
  if (space) {
    space.show();
    if (isOther) space.fit();
  }
}

/** The position under the pointer, in both views. */
async function pointAt({ x, y }) {
  const { map } = state, cell = map.cellAt(x, y);
  if (!cell) {
    state.cursor = null;
    byId("position").textContent = "";
  } else {
    const at = state.cursor = { x: map.x(cell.column), y: map.y(cell.row), z: map.heights.heldAt(cell.column, cell.row) };
    const z = await map.heights.at(cell.column, cell.row);
    const other = state.layer === map.heights ? null : await state.layer.at(cell.column, cell.row);
    if (state.cursor !== at) return;
    at.z = z;
    byId("position").textContent = `X ${withUnit(numberText(at.x), map.unit)}, Y ${withUnit(numberText(at.y), map.unitY)}, Z ` +
      (Number.isNaN(z) ? "none" : withUnit(numberText(z), map.unit)) +
      (other === null ? "" : `, ${state.layer.name} ${Number.isNaN(other) ? "none" : withUnit(numberText(other), state.layer.unit)}`);
  }
  top_.draw();
  if (space) space.marksChanged();
}

function writeEnds() {
  const [a, b] = state.ends;
  for (const [id, value] of [["x0", a && a.x], ["y0", a && a.y], ["x1", b && b.x], ["y1", b && b.y]]) {
    byId(id).value = value === null ? "" : Number(value.toPrecision(9));
  }
}

/** Both ends of what is measured; measures when they are done. */
function setEnds(a, b, isDone) {
  const snapped = (at) => {
    if (!at) return null;
    const { column, row } = state.map.cellNear(at.x, at.y);
    return { x: state.map.x(column), y: state.map.y(row) };
  };
  state.ends = [snapped(a), snapped(b)];
  state.trace = null;
  writeEnds();
  top_.draw();
  if (isDone) measure();
}

function choose(tool) {
  document.querySelector(`input[name="tool"][value="${tool}"]`).checked = true;
  state.tool = tool;
}

async function measure() {
  const { map, ends: [a, b] } = state;
  if (!a || !b) return;
  if (state.tool === "look") choose("points");
  const tool = state.tool;
  const heightAt = async (at) => {
    const { column, row } = map.cellNear(at.x, at.y);
    return { ...at, z: await map.heights.at(column, row) };
  };
  const from = await heightAt(a), to = await heightAt(b);
  const length = (value) => (Number.isNaN(value) ? "none" : withUnit(numberText(value), map.unit));
  const rows = [];
  let profile = null, trace = [from, to];
  if (tool === "rectangle") {
    const found = await measureRectangle(map, a, b);
    rows.push(["X", `${numberText(Math.min(a.x, b.x))} to ${withUnit(numberText(Math.max(a.x, b.x)), map.unit)}`],
      ["Y", `${numberText(Math.min(a.y, b.y))} to ${withUnit(numberText(Math.max(a.y, b.y)), map.unitY)}`],
      ["Cells with a height", String(found.count)]);
    if (found.count) {
      rows.push(["Mean", length(found.mean), found.mean], ["Least to greatest", `${numberText(found.least)} to ${length(found.most)}`],
        ["Standard deviation", length(found.deviation)]);
      const { plane } = found;
      rows.push(["Plane", plane ? `Z = a + b X + c Y, a ${length(plane.a)}, b ${numberText(plane.b)}, c ${numberText(plane.c)}`
        : "none: it takes cells that are not on one line"]);
      if (plane) {
        rows.push(["Tilt", `${numberText(plane.tiltX)}\u00b0 along X, ` +
          (map.isYLength ? `${numberText(plane.tiltY)}\u00b0 along Y` : `none along Y, which counts ${map.unitY}`)],
        ["Spread around the plane", `standard deviation ${length(plane.deviation)}, ` +
          `from ${numberText(plane.below)} to ${length(plane.above)}`]);
      }
      const z = found.mean, [x0, y0, x1, y1] = [a.x, a.y, b.x, b.y];
      trace = [[x0, y0], [x1, y0], [x1, y1], [x0, y1], [x0, y0]].map(([x, y]) => ({ x, y, z }));
    }
  } else {
    const found = measurePoints(map, from, to);
    rows.push(["From", `X ${length(from.x)}, Y ${withUnit(numberText(from.y), map.unitY)}, Z ${length(from.z)}`],
      ["To", `X ${length(to.x)}, Y ${withUnit(numberText(to.y), map.unitY)}, Z ${length(to.z)}`],
      ["Distance", map.isYLength ? length(found.distance) : `none: Y counts ${map.unitY}`],
      ["Step in Z", length(found.dz), found.dz],
      ["Slope", map.isYLength ? `${numberText(found.slope)}\u00b0` : `none: Y counts ${map.unitY}`]);
    if (tool === "profile") profile = trace = await measureProfile(map, a, b);
  }
  if (state.map !== map || state.ends[0] !== a || state.ends[1] !== b) return;
  state.trace = trace;
  showResults(rows, profile);
  if (space) space.marksChanged();
}

function showResults(rows, profile = null) {
  const body = element("tbody");
  for (const [title, text, number] of rows) {
    const row = element("tr");
    row.append(element("th", title, { scope: "row" }), element("td", text, number === undefined ? {} : { "data-number": number }));
    body.append(row);
  }
  const table = element("table");
  table.append(body);
  byId("results").replaceChildren(...(rows.length ? [table] : [element("p", "Choose two points, a profile or a rectangle.")]));
  state.profile = profile;
  byId("save").hidden = !profile;
  byId("plot").replaceChildren(...(profile ? [plotOf(profile)] : []));
}

/** Heights along a line. */
function plotOf(points) {
  const [width, height, left, top, right, bottom] = [1100, 260, 76, 14, 1086, 214];
  const known = points.filter(({ z }) => !Number.isNaN(z));
  const svg = drawing("svg", { viewBox: `0 0 ${width} ${height}`, role: "img", "aria-label":
    `Profile of ${points.length} points` });
  const far = points[points.length - 1].s || 1;
  let low = Math.min(...known.map(({ z }) => z)), high = Math.max(...known.map(({ z }) => z));
  if (!known.length) [low, high] = [0, 1];
  const room = (high - low || 1) * 0.06;
  [low, high] = [low - room, high + room];
  const px = (s) => left + (right - left) * s / far, py = (z) => bottom - (bottom - top) * (z - low) / (high - low);
  for (const s of roundTicks(0, far, 10)) {
    svg.append(drawing("line", { x1: px(s), x2: px(s), y1: top, y2: bottom, stroke: "#d5dade" }),
      drawing("text", { x: px(s), y: bottom + 16, "text-anchor": "middle", fill: "#1b1f24" }, numberText(s)));
  }
  for (const z of roundTicks(low, high, 6)) {
    svg.append(drawing("line", { x1: left, x2: right, y1: py(z), y2: py(z), stroke: "#d5dade" }),
      drawing("text", { x: left - 6, y: py(z) + 4, "text-anchor": "end", fill: "#1b1f24" }, numberText(z)));
  }
  let path = "", isOn = false; // gaps stay gaps
  for (const { s, z } of points) {
    if (!Number.isNaN(z)) path += `${isOn ? "L" : "M"}${px(s).toFixed(2)} ${py(z).toFixed(2)}`;
    isOn = !Number.isNaN(z);
  }
  const { map } = state;
  svg.append(drawing("rect", { x: left, y: top, width: right - left, height: bottom - top, fill: "none", stroke: "#4a525c" }),
    drawing("path", { d: path, fill: "none", stroke: "#0b5cad", "stroke-width": 1.5, "stroke-linejoin": "round" }),
    drawing("text", { x: (left + right) / 2, y: height - 8, "text-anchor": "middle", fill: "#1b1f24" },
      `along the line (${map.unit}${map.isYLength ? "" : ", rows as far apart as columns"})`),
    drawing("text", { x: 14, y: (top + bottom) / 2, "text-anchor": "middle", fill: "#1b1f24",
      transform: `rotate(-90 14 ${(top + bottom) / 2})` }, `Z (${map.unit})`));
  return svg;
}

function drawLegend({ layer, low, high }) {
  const hex = page.colors[state.colors], [top, bottom] = [8, 338];
  const name = layer.unit ? `${layer.name} (${layer.unit})` : layer.name;
  const svg = drawing("svg", { viewBox: "0 0 110 376", role: "img", "aria-label":
    `${layer.name}: ${withUnit(`${numberText(low)} to ${numberText(high)}`, layer.unit)}` });
  for (let i = 0; i < 64; ++i) {
    const color = hex.slice(6 * (4 * i + 2), 6 * (4 * i + 2) + 6);
    svg.append(drawing("rect", { x: 2, width: 24, y: bottom - (bottom - top) * (i + 1) / 64, height: (bottom - top) / 64 + 0.4,
      fill: `#${color}` }));
  }
  svg.append(drawing("rect", { x: 2, y: top, width: 24, height: bottom - top, fill: "none", stroke: "#4a525c" }));
  for (const value of roundTicks(low, high, 8)) {
    const y = bottom - (bottom - top) * (value - low) / (high - low);
    svg.append(drawing("line", { x1: 26, x2: 31, y1: y, y2: y, stroke: "#4a525c" }),
      drawing("text", { x: 35, y: y + 4, fill: "#1b1f24" }, numberText(value)));
  }
  svg.append(drawing("rect", { x: 2, y: 358, width: 24, height: 14, fill: `#${hex.slice(-6)}`, stroke: "#4a525c" }),
    drawing("text", { x: 35, y: 369, fill: "#1b1f24" }, "none"));
  byId("legend").replaceChildren(element("p", name), svg);
}

function listFiles() {
  for (const map of maps) {
    const table = element("table"), body = element("tbody");
    for (const { title, text } of map.facts) {
      const row = element("tr");
      row.append(element("th", title, { scope: "row" }), element("td", text));
      body.append(row);
    }
    table.append(body);
    byId("files").append(element("h3", map.name), table);
  }
}

/** So much that heights are seen beside a wide map: 1, or a round number. */
function naturalExaggeration() {
  const { heights } = state.map, { x0, x1, y0, y1 } = state.map.bounds();
  const share = (heights.most - heights.least) / Math.max(x1 - x0, (y1 - y0) * state.map.drawnPerY);
  return share > 0.08 || !(share > 0) ? 1 : [2, 5, 10, 20, 50, 100, 200, 500, 1000].find((times) => share * times > 0.08) || 1000;
}

function listen() {
  const changed = (id, take) => byId(id).addEventListener("change", () => take(byId(id)));
  changed("map", ({ value }) => {
    state.map = maps[value];
    state.layer = state.map.layerOf(state.layer.name);
    show(true);
  });
  changed("together", ({ value }) => {
    state.together = value;
    show(false);
    if (space) space.fit();
  });
  changed("layer", ({ value }) => {
    state.layer = state.map.layers[value];
    state.colors = state.layer.colors;
    show(false);
  });
  changed("colors", ({ value }) => {
    state.colors = value;
    show(false);
  });
  changed("exaggeration", (input) => {
    if (!(Number(input.value) > 0)) input.value = state.exaggeration;
    state.exaggeration = Number(input.value);
    if (space) space.exaggerate();
  });
  changed("light", (input) => {
    state.light = input.checked;
    if (space) space.light();
  });
  changed("azimuth", (input) => {
    state.azimuth = Number(input.value) || 0;
    if (space) space.light();
  });
  byId("reset").addEventListener("click", () => {
    top_.fit();
    if (space) space.fit();
  });
  for (const input of document.getElementsByName("tool")) {
    input.addEventListener("change", () => {
      state.tool = input.value;
      measure();
      top_.draw();
    });
  }
  byId("measure").addEventListener("click", () => {
    const values = ["x0", "y0", "x1", "y1"].map((id) => byId(id).valueAsNumber);
    if (values.some(Number.isNaN)) return;
    if (state.tool === "look") choose("points");
    setEnds({ x: values[0], y: values[1] }, { x: values[2], y: values[3] }, true);
  });
  for (const form of [byId("settings"), byId("tools")]) form.addEventListener("submit", (event) => event.preventDefault());
  byId("save").addEventListener("click", () => {
    const url = URL.createObjectURL(new Blob([profileCsv(state.profile)], { type: "text/csv" }));
    const link = element("a", undefined, { href: url, download: "profile.csv" });
    link.click();
    setTimeout(() => URL.revokeObjectURL(url), 60000);
  });
}

function begin() {
  const names = maps.map((map) => map.name).join(", ");
  document.title = names;
  byId("title").textContent = names;
  let size = 0; // of what is stored as text
  for (const { id, textContent } of document.querySelectorAll('script[type="text/plain"]')) size += id === "licence" ? 0 : textContent.length;
  byId("generator").textContent = `${page.generator}, ${(size / 1e6).toFixed(1)} MB of cells and points`;
  byId("licence-text").textContent = byId("licence").textContent;
  fill(byId("map"), maps.map((map, i) => [String(i), map.name]), "0");
  fill(byId("together"), [["one", "this map"], ...(maps.length > 1 ? [["beside", "all, side by side"], ["over", "all, in place"]] : [])], "one");
  fill(byId("colors"), Object.keys(page.colors).map((name) => [name, name]), "viridis");
  byId("exaggeration").value = state.exaggeration = naturalExaggeration();
  listFiles();
  if (!("DecompressionStream" in window)) {
    byId("position").textContent = "This browser is too old to unpack what the page holds.";
    return;
  }
  listen();
  try {
    space = new SpaceView(byId("space-canvas"), byId("space-labels"), state, { point: (place) => pointAt(place) });
    space.resize();
    space.light();
  } catch (error) {
    byId("space-canvas").hidden = true;
    byId("space-notice").hidden = false;
    byId("space-notice").textContent = "This browser has no WebGL, which draws the map in space. " +
      "Everything can be measured in the view from above.";
  }
  show(true);
}

begin();
