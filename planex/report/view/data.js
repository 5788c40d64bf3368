"use strict";

// What the page holds: maps, their layers, and tiles of cells, which are unpacked when they are wanted.

const page = JSON.parse(document.getElementById("page").textContent);

/** The bytes that an element holds; null where there is none. */
async function unpacked(id) {
  const element = document.getElementById(id);
  if (!element) return null;
  const text = atob(element.textContent);
  const bytes = new Uint8Array(text.length);
  for (let i = 0; i < text.length; ++i) bytes[i] = text.charCodeAt(i);
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

/** Steps of the cells of a tile, from differences in low and high bytes. */
function stepsFrom(bytes, width) {
  const count = bytes.length / 2;
  const steps = new Uint16Array(count);
  for (let i = 0; i < count; ++i) {
    const before = i % width ? steps[i - 1] : i ? steps[i - width] : 0;
    steps[i] = before + (bytes[i] | bytes[count + i] << 8);
  }
  return steps;
}

/** Unpacked tiles, of which the page keeps those that were wanted last. */
class TileStore {
  constructor(most) {
    this.most = most;
    this.tiles = new Map(); // id -> steps, or null without any number
    this.coming = new Map(); // id -> promise
  }

  /** Undefined where it is not unpacked. */
  held(id) {
    const tile = this.tiles.get(id);
    if (tile) {
      this.tiles.delete(id);
      this.tiles.set(id, tile);
    }
    return tile;
  }

  async get(id, width) {
    if (this.tiles.has(id)) return this.held(id);
    if (!this.coming.has(id)) {
      this.coming.set(id, unpacked(id).then((bytes) => {
        const steps = bytes && stepsFrom(bytes, width);
        this.tiles.set(id, steps);
        this.coming.delete(id);
        if (this.tiles.size > this.most) this.tiles.delete(this.tiles.keys().next().value);
        return steps;
      }));
    }
    return this.coming.get(id);
  }
}

const tileStore = new TileStore(900);

/** Numbers of the cells of a map. */
class Layer {
  constructor(map, index, info) {
    Object.assign(this, info);
    this.map = map;
    this.index = index;
  }

  id(level, row, column) {
    return `tile-${this.map.index}-${this.index}-${level}-${row}-${column}`;
  }

  held(level, row, column) {
    return tileStore.held(this.id(level, row, column));
  }

  tile(level, row, column) {
    return tileStore.get(this.id(level, row, column), this.map.tileWidth(level, column));
  }

  number(step) {
    return step ? this.scale * step + this.origin : NaN;
  }

  /** The number of a cell of the finest level. */
  async at(column, row) {
    const [r, c] = [Math.floor(row / page.tileSide), Math.floor(column / page.tileSide)];
    const steps = await this.tile(0, r, c);
    return this.number(steps ? steps[this.map.indexIn(0, r, c, row, column)] : 0);
  }

  /** The same of the finest cell there that is unpacked; undefined where none is. */
  heldAt(column, row) {
    for (let level = 0; level < this.map.levels; ++level) {
      const r = Math.floor(row / page.tileSide), c = Math.floor(column / page.tileSide);
      const steps = this.held(level, r, c);
      if (steps !== undefined) return this.number(steps ? steps[this.map.indexIn(level, r, c, row, column)] : 0);
      row = row >> 1;
      column = column >> 1;
    }
    return undefined;
  }
}

/** A map: cells at the crossings of columns and rows, of level 0; those of the next are twice as wide. */
class CellMap {
  constructor(info, index) {
    Object.assign(this, info);
    this.index = index;
    this.isYLength = this.unit === this.unitY;
    this.layers = info.layers.map((layer, i) => new Layer(this, i, layer));
    this.heights = this.layers[0];
    // Where Y is no length, rows are drawn as far apart as columns.
    this.drawnPerY = this.isYLength ? 1 : Math.abs(this.scaleX / this.scaleY);
  }

  columnsAt(level) { return Math.ceil(this.columns / 2 ** level); }
  rowsAt(level) { return Math.ceil(this.rows / 2 ** level); }
  tileWidth(level, column) {
    return Math.min(page.tileSide + 1, this.columnsAt(level) - column * page.tileSide);
  }
  tileHeight(level, row) {
    return Math.min(page.tileSide + 1, this.rowsAt(level) - row * page.tileSide);
  }
  indexIn(level, tileRow, tileColumn, row, column) {
    return (row - tileRow * page.tileSide) * this.tileWidth(level, tileColumn) +
      column - tileColumn * page.tileSide;
  }
  x(column, level = 0) { return this.scaleX * (column * 2 ** level + (2 ** level - 1) / 2) + this.originX; }
  y(row, level = 0) { return this.scaleY * (row * 2 ** level + (2 ** level - 1) / 2) + this.originY; }

  /** Column and row of the cell that holds a place; null outside. */
  cellAt(x, y) {
    const column = Math.round((x - this.originX) / this.scaleX);
    const row = Math.round((y - this.originY) / this.scaleY);
    return column >= 0 && column < this.columns && row >= 0 && row < this.rows ? { column, row } : null;
  }

  /** The nearest cell. */
  cellNear(x, y) {
    const within = (value, count) => Math.min(Math.max(Math.round(value) || 0, 0), count - 1);
    return { column: within((x - this.originX) / this.scaleX, this.columns),
      row: within((y - this.originY) / this.scaleY, this.rows) };
  }

  /** Borders of all cells. */
  bounds() {
    const ends = (at, scale, count) => [at(0) - scale / 2, at(count - 1) + scale / 2].sort((a, b) => a - b);
    const [x0, x1] = ends((i) => this.x(i), this.scaleX, this.columns);
    const [y0, y1] = ends((i) => this.y(i), this.scaleY, this.rows);
    return { x0, x1, y0, y1 };
  }

  /** The layer of that name; else the heights. */
  layerOf(name) { return this.layers.find((layer) => layer.name === name) || this.heights; }
}

const maps = page.maps.map((info, index) => new CellMap(info, index));

/** Multiples of 1, 2 or 5 times a power of ten between two numbers, at most so many. */
function roundTicks(from, to, most) {
  const span = to - from;
  if (!(span > 0) || most < 1) return [];
  let step = 10 ** Math.floor(Math.log10(span / most));
  for (const factor of [2, 2.5, 2]) if (Math.floor(to / step) - Math.ceil(from / step) + 1 > most) step *= factor;
  const ticks = [];
  for (let i = Math.ceil(from / step); i * step <= to + span * 1e-9; ++i) ticks.push(i * step);
  return ticks;
}

/** Notes on the page after how many milliseconds a view first showed all that it wants to. */
function noteDrawn(view) {
  const notes = document.documentElement.dataset;
  if (!(view in notes)) notes[view] = Math.round(performance.now());
}

/** A number for people, with a minus sign of its own. */
function numberText(value, digits = 6) {
  if (value === null || Number.isNaN(value)) return "none";
  return String(Number(value.toPrecision(digits))).replace(/-/g, "\u2212");
}

function withUnit(text, unit) { return unit ? `${text} ${unit}` : text; }

/** 65536 colours for the steps of a layer, as 32-bit words of R, G, B and A bytes. */
function colorTable(layer, colorsName, low, high) {
  const hex = page.colors[colorsName];
  const colors = [];
  for (let i = 0; i < hex.length; i += 6) colors.push(hex.slice(i, i + 6));
  const bytes = new Uint8Array(65536 * 4);
  for (let step = 0; step < 65536; ++step) {
    const share = high > low ? (layer.number(step) - low) / (high - low) : 0.5;
    const color = parseInt(colors[step ? Math.round(Math.min(Math.max(share, 0), 1) * 256) : 257], 16);
    bytes.set([color >> 16, color >> 8 & 255, color & 255, 255], 4 * step);
  }
  return bytes;
}
