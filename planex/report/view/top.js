// The map from above, X to the right and Y upwards, in the colours of the layer.

class TopView {
  static margin = { left: 66, bottom: 44, top: 10, right: 12 };

  /** @param state what is shown, see page.js. @param heard functions point(place), ends(a, b, isDone), look() */
  constructor(canvas, state, heard) {
    Object.assign(this, { canvas, state, heard, pictures: new Map(), pointers: new Map() });
    this.context = canvas.getContext("2d");
    new ResizeObserver(() => this.draw()).observe(canvas);
    canvas.addEventListener("pointerdown", (event) => this.press(event));
    canvas.addEventListener("pointermove", (event) => this.move(event));
    for (const name of ["pointerup", "pointercancel"]) canvas.addEventListener(name, (event) => this.release(event));
    canvas.addEventListener("wheel", (event) => {
      event.preventDefault();
      this.zoom(Math.exp(-event.deltaY / 400), event.offsetX, event.offsetY);
    }, { passive: false });
    canvas.addEventListener("keydown", (event) => this.key(event));
  }

  get area() {
    const { left, bottom, top, right } = TopView.margin;
    const [width, height] = [this.canvas.clientWidth, this.canvas.clientHeight];
    return { x: left, y: top, width: Math.max(width - left - right, 1), height: Math.max(height - top - bottom, 1) };
  }

  /** Shows all of the map. */
  fit() {
    const { x0, x1, y0, y1 } = this.state.map.bounds();
    const perY = this.state.map.drawnPerY;
    this.middle = { x: (x0 + x1) / 2, y: (y0 + y1) / 2 };
    this.scale = Math.min(this.area.width / (x1 - x0), this.area.height / ((y1 - y0) * perY)); // pixels per unit of X
    this.draw();
  }

  pixel(x, y) {
    const { area } = this;
    return [area.x + area.width / 2 + (x - this.middle.x) * this.scale,
      area.y + area.height / 2 - (y - this.middle.y) * this.scale * this.state.map.drawnPerY];
  }

  place(px, py) {
    const { area } = this;
    return { x: this.middle.x + (px - area.x - area.width / 2) / this.scale,
      y: this.middle.y - (py - area.y - area.height / 2) / (this.scale * this.state.map.drawnPerY) };
  }

  zoom(factor, px = this.area.x + this.area.width / 2, py = this.area.y + this.area.height / 2) {
    const before = this.place(px, py);
    this.scale *= factor;
    const after = this.place(px, py);
    this.middle.x += before.x - after.x;
    this.middle.y += before.y - after.y;
    this.draw();
  }

  shift(dx, dy) {
    this.middle.x -= dx / this.scale;
    this.middle.y += dy / (this.scale * this.state.map.drawnPerY);
    this.draw();
  }

  press(event) {
    this.canvas.setPointerCapture(event.pointerId);
    this.canvas.focus({ preventScroll: true });
    this.pointers.set(event.pointerId, { x: event.offsetX, y: event.offsetY });
    this.dragged = false;
    this.start = this.place(event.offsetX, event.offsetY);
  }

  move(event) {
    const here = { x: event.offsetX, y: event.offsetY }, before = this.pointers.get(event.pointerId);
    if (!before) return this.heard.point(this.place(here.x, here.y));
    const others = [...this.pointers].filter(([id]) => id !== event.pointerId).map(([, at]) => at);
    if (others.length) {
      const reach = (at) => Math.hypot(at.x - others[0].x, at.y - others[0].y);
      this.zoom(reach(here) / Math.max(reach(before), 1), others[0].x, others[0].y);
      this.shift((here.x - before.x) / 2, (here.y - before.y) / 2);
    } else if (this.dragged || Math.hypot(here.x - before.x, here.y - before.y) > 4) {
      this.dragged = true;
      if (this.state.tool === "look") this.shift(here.x - before.x, here.y - before.y);
      else this.heard.ends(this.start, this.place(here.x, here.y), false);
    } else {
      return;
    }
    this.pointers.set(event.pointerId, here);
    this.heard.point(this.place(here.x, here.y));
  }

  release(event) {
    const known = this.pointers.delete(event.pointerId);
    if (!known || event.type === "pointercancel" || this.pointers.size) return;
    const here = this.place(event.offsetX, event.offsetY);
    if (this.state.tool === "look") this.heard.point(here);
    else if (this.dragged) this.heard.ends(this.start, here, true);
    else this.heard.end(here);
  }

  key(event) {
    const by = event.shiftKey ? 20 : 1;
    const steps = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] }[event.key];
    if (steps && (event.ctrlKey || event.metaKey)) {
      this.shift(-60 * steps[0], 60 * steps[1]);
    } else if (steps) {
      const { map, cursor } = this.state;
      const at = cursor || this.middle;
      const x = at.x + steps[0] * by * Math.abs(map.scaleX), y = at.y + steps[1] * by * Math.abs(map.scaleY);
      const near = map.cellNear(x, y);
      this.heard.point({ x: map.x(near.column), y: map.y(near.row) });
    } else if (event.key === "+" || event.key === "-") {
      const at = this.state.cursor && this.pixel(this.state.cursor.x, this.state.cursor.y);
      this.zoom(event.key === "+" ? 1.25 : 0.8, ...(at || []));
    } else if (event.key === "0") {
      this.fit();
    } else if (event.key === "Enter" || event.key === " ") {
      if (this.state.cursor && this.state.tool !== "look") this.heard.end(this.state.cursor);
    } else {
      return;
    }
    event.preventDefault();
  }

  /** Draws before the next frame. */
  draw() {
    if (this.waits || !this.middle) return;
    this.waits = true;
    requestAnimationFrame(() => {
      this.waits = false;
      this.paint();
    });
  }

  paint() {
    const { canvas, context, area } = this, ratio = window.devicePixelRatio || 1;
    const [width, height] = [Math.round(canvas.clientWidth * ratio), Math.round(canvas.clientHeight * ratio)];
    if (canvas.width !== width || canvas.height !== height) [canvas.width, canvas.height] = [width, height];
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    context.fillStyle = "#fff";
    context.fillRect(0, 0, canvas.clientWidth, canvas.clientHeight);
    context.save();
    context.beginPath();
    context.rect(area.x, area.y, area.width, area.height);
    context.clip();
    this.lacking = 0;
    this.paintMap();
    if (!this.lacking) noteDrawn("top");
    this.paintMarks();
    context.restore();
    this.paintAxes();
  }

  /** The level whose cells are as wide as pixels, or wider. */
  levelWanted() {
    const { map } = this.state;
    const cell = Math.min(Math.abs(map.scaleX), Math.abs(map.scaleY) * map.drawnPerY) * this.scale;
    const wanted = Math.floor(Math.log2(1 / cell));
    return Math.min(Math.max(wanted, 0), map.levels - 1);
  }

  paintMap() {
    const { map } = this.state, wanted = this.levelWanted();
    for (let level = map.levels - 1; level >= wanted; --level) {
      if (level > wanted + 1 && level < map.levels - 1) continue; // one in between will do
      const side = page.tileSide * 2 ** level;
      const a = this.place(this.area.x, this.area.y), b = this.place(this.area.x + this.area.width, this.area.y + this.area.height);
      const p = map.cellNear(a.x, a.y), q = map.cellNear(b.x, b.y);
      for (let r = Math.floor(Math.min(p.row, q.row) / side); r * side <= Math.max(p.row, q.row); ++r) {
        for (let c = Math.floor(Math.min(p.column, q.column) / side); c * side <= Math.max(p.column, q.column); ++c) {
          this.paintTile(level, r, c, level === wanted || level === map.levels - 1);
        }
      }
    }
  }

  paintTile(level, row, column, isWanted) {
    const { map, layer } = this.state;
    const steps = layer.held(level, row, column);
    if (steps === undefined && isWanted) layer.tile(level, row, column).then(() => this.draw());
    if (steps === undefined) {
      this.lacking += isWanted ? 1 : 0;
      return;
    }
    const side = page.tileSide;
    const width = Math.min(side, map.columnsAt(level) - column * side);
    const height = Math.min(side, map.rowsAt(level) - row * side);
    const edge = (at, scale, index) => at(index, level) - scale * 2 ** level / 2;
    const [left, top] = this.pixel(edge((i, l) => map.x(i, l), map.scaleX, column * side),
      edge((i, l) => map.y(i, l), map.scaleY, row * side));
    const [right, bottom] = this.pixel(edge((i, l) => map.x(i, l), map.scaleX, column * side + width),
      edge((i, l) => map.y(i, l), map.scaleY, row * side + height));
    const { context } = this;
    context.save();
    context.imageSmoothingEnabled = false;
    context.translate(left, top);
    context.scale((right - left) / width, (bottom - top) / height);
    if (steps) {
      context.drawImage(this.picture(steps, level, row, column, width, height), 0, 0);
    } else {
      context.fillStyle = "#" + page.colors[this.state.colors].slice(-6);
      context.fillRect(0, 0, width, height);
    }
    context.restore();
  }

  /** The colours of a tile; some are kept. */
  picture(steps, level, row, column, width, height) {
    const id = `${this.state.layer.id(level, row, column)} ${this.state.colorsId}`;
    let picture = this.pictures.get(id);
    if (!picture) {
      picture = document.createElement("canvas");
      [picture.width, picture.height] = [width, height];
      const image = new ImageData(width, height);
      const words = new Uint32Array(image.data.buffer), table = new Uint32Array(this.state.table.buffer);
      const pitch = this.state.map.tileWidth(level, column);
      for (let y = 0, i = 0; y < height; ++y) {
        for (let x = 0; x < width; ++x, ++i) words[i] = table[steps[y * pitch + x]];
      }
      picture.getContext("2d").putImageData(image, 0, 0);
      if (this.pictures.size >= 200) this.pictures.delete(this.pictures.keys().next().value);
      this.pictures.set(id, picture);
    }
    return picture;
  }

  paintMarks() {
    const { context, state } = this, [a, b] = state.ends;
    const stroke = (draw) => {
      for (const [color, width] of [["#fff", 4], ["#b3001b", 1.8]]) {
        context.strokeStyle = color;
        context.lineWidth = width;
        context.beginPath();
        draw();
        context.stroke();
      }
    };
    const ring = (at) => {
      const [x, y] = this.pixel(at.x, at.y);
      context.moveTo(x + 5, y);
      context.arc(x, y, 5, 0, 2 * Math.PI);
    };
    if (a) stroke(() => ring(a));
    if (b) {
      const [x0, y0] = this.pixel(a.x, a.y), [x1, y1] = this.pixel(b.x, b.y);
      stroke(() => {
        if (state.tool === "rectangle") {
          context.rect(Math.min(x0, x1), Math.min(y0, y1), Math.abs(x1 - x0), Math.abs(y1 - y0));
        } else {
          ring(b);
          context.moveTo(x0, y0);
          context.lineTo(x1, y1);
        }
      });
    }
    if (state.cursor) {
      const [x, y] = this.pixel(state.cursor.x, state.cursor.y);
      stroke(() => {
        context.moveTo(x - 10, y);
        context.lineTo(x + 10, y);
        context.moveTo(x, y - 10);
        context.lineTo(x, y + 10);
      });
    }
  }

  paintAxes() {
    const { context, area, state } = this;
    context.strokeStyle = "#4a525c";
    context.fillStyle = "#1b1f24";
    context.lineWidth = 1;
    context.font = "12px 'DejaVu Sans', 'Segoe UI', sans-serif";
    context.strokeRect(area.x - 0.5, area.y - 0.5, area.width + 1, area.height + 1);
    const least = this.place(area.x, area.y + area.height), most = this.place(area.x + area.width, area.y);
    context.textAlign = "center";
    context.textBaseline = "top";
    context.beginPath();
    for (const value of roundTicks(least.x, most.x, Math.floor(area.width / 80))) {
      const [x] = this.pixel(value, 0);
      context.moveTo(x, area.y + area.height);
      context.lineTo(x, area.y + area.height + 5);
      context.fillText(numberText(value), x, area.y + area.height + 8);
    }
    context.textBaseline = "middle";
    context.textAlign = "right";
    for (const value of roundTicks(least.y, most.y, Math.floor(area.height / 40))) {
      const [, y] = this.pixel(0, value);
      context.moveTo(area.x - 5, y);
      context.lineTo(area.x, y);
      context.fillText(numberText(value), area.x - 8, y);
    }
    context.stroke();
    context.textAlign = "center";
    context.textBaseline = "bottom";
    context.fillText(`X (${state.map.unit})`, area.x + area.width / 2, this.canvas.clientHeight - 2);
    context.save();
    context.translate(4, area.y + area.height / 2);
    context.rotate(-Math.PI / 2);
    context.textBaseline = "top";
    context.fillText(`Y (${state.map.unitY})`, 0, 0);
    context.restore();
  }
}
