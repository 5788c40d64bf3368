// The map in space, which three.js draws.

class SpaceView {
  static mostTiles = 16;

  /** Throws where there is no WebGL. @param heard function point(place) */
  constructor(canvas, labels, state, heard) {
    Object.assign(this, { canvas, labels, state, heard });
    this.renderer = new THREE.WebGLRenderer({ canvas, antialias: true, preserveDrawingBuffer: true });
    this.renderer.setClearColor(0xffffff);
    this.scene = new THREE.Scene();
    this.camera = new THREE.PerspectiveCamera(40, 1, 0.01, 1e6);
    this.camera.up.set(0, 0, 1);
    this.controls = new THREE.OrbitControls(this.camera, canvas);
    this.controls.enableKeys = false; // see key()
    this.controls.screenSpacePanning = true;
    this.controls.addEventListener("change", () => this.draw());
    this.ambient = new THREE.AmbientLight(0xffffff, 0.35);
    this.lamp = new THREE.DirectionalLight(0xffffff, 0.8);
    this.world = new THREE.Group(); // in the unit, around the middle; its scale exaggerates heights
    this.scene.add(this.ambient, this.lamp, this.world);
    this.materials = [THREE.DoubleSide, THREE.FrontSide].map((side) =>
      new THREE.MeshLambertMaterial({ vertexColors: THREE.VertexColors, side })); // surfaces, rims of tiles
    this.marks = new THREE.Group();
    this.world.add(this.marks);
    this.shown = []; // a ShownMap each
    new ResizeObserver(() => this.resize()).observe(canvas.parentElement);
    canvas.addEventListener("keydown", (event) => this.key(event));
    canvas.addEventListener("pointermove", (event) => this.point(event));
    canvas.addEventListener("pointerdown", () => canvas.focus({ preventScroll: true }));
  }

  resize() {
    const { clientWidth, clientHeight } = this.canvas.parentElement;
    this.renderer.setPixelRatio(window.devicePixelRatio || 1);
    this.renderer.setSize(clientWidth, clientHeight, false);
    this.camera.aspect = clientWidth / Math.max(clientHeight, 1);
    this.camera.updateProjectionMatrix();
    this.draw();
  }

  /** Shows the maps of the state in its colours, which may be others than before. */
  show() {
    for (const map of this.shown) map.dispose();
    const { map, together } = this.state;
    const wanted = together === "one" ? [map] : maps;
    this.box = new THREE.Box3();
    let offset = 0;
    this.shown = wanted.map((one) => {
      const shown = new ShownMap(one, this, offset);
      if (together === "beside") offset += 1.08 * (shown.bounds.x1 - shown.bounds.x0);
      this.box.union(shown.box);
      return shown;
    });
    this.box.getCenter(this.middle = new THREE.Vector3());
    for (const one of this.shown) {
      one.place(this.middle);
      this.world.add(one.group);
    }
    this.frame();
    this.exaggerate();
  }

  /** The box around everything, drawn, in coordinates of the world group. */
  get drawnBox() { return this.box.clone().translate(this.middle.clone().negate()); }

  frame() {
    if (this.edges) {
      this.world.remove(this.edges);
      this.edges.geometry.dispose();
    }
    this.edges = new THREE.Box3Helper(this.drawnBox, 0x78828d);
    this.world.add(this.edges);
  }

  exaggerate() {
    this.world.scale.z = this.state.exaggeration;
    this.marksChanged();
    this.draw();
  }

  fit() {
    const size = this.box.getSize(new THREE.Vector3());
    size.z *= this.state.exaggeration;
    const upright = THREE.Math.degToRad(this.camera.fov) / 2;
    const across = Math.atan(Math.tan(upright) * this.camera.aspect);
    const distance = size.length() / 2 / Math.sin(Math.min(upright, across));
    this.controls.target.set(0, 0, 0);
    this.camera.position.set(-0.45, -1, 0.85).setLength(distance);
    this.camera.near = distance / 500;
    this.camera.far = distance * 20;
    this.camera.updateProjectionMatrix();
    this.controls.update();
    this.draw();
  }

  light() {
    const angle = THREE.Math.degToRad(this.state.azimuth);
    this.lamp.position.set(Math.cos(angle), Math.sin(angle), 0.7);
    this.lamp.intensity = this.state.light ? 0.8 : 0;
    this.ambient.intensity = this.state.light ? 0.35 : 1;
    this.draw();
  }

  key(event) {
    const arrow = { ArrowLeft: [1, 0], ArrowRight: [-1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] }[event.key];
    const { camera, controls } = this;
    const offset = camera.position.clone().sub(controls.target);
    if (arrow && event.shiftKey) {
      const by = offset.length() * 0.05;
      const shift = new THREE.Vector3(arrow[0], -arrow[1], 0).applyQuaternion(camera.quaternion).multiplyScalar(by);
      controls.target.add(shift);
      camera.position.add(shift);
    } else if (arrow) {
      const upright = new THREE.Quaternion().setFromUnitVectors(camera.up, new THREE.Vector3(0, 1, 0));
      const around = new THREE.Spherical().setFromVector3(offset.applyQuaternion(upright));
      around.theta -= arrow[0] * 0.1;
      around.phi += arrow[1] * 0.1;
      around.makeSafe();
      camera.position.setFromSpherical(around).applyQuaternion(upright.inverse()).add(controls.target);
    } else if (event.key === "+" || event.key === "-") {
      camera.position.copy(offset.multiplyScalar(event.key === "+" ? 0.8 : 1.25).add(controls.target));
    } else if (event.key === "0") {
      this.fit();
    } else {
      return;
    }
    event.preventDefault();
    controls.update();
    this.draw();
  }

  /** Finds the place under the pointer. */
  point(event) {
    if (event.buttons || this.finding) return;
    this.finding = true;
    requestAnimationFrame(() => {
      this.finding = false;
      const { clientWidth, clientHeight } = this.canvas;
      const at = new THREE.Vector2(2 * event.offsetX / clientWidth - 1, 1 - 2 * event.offsetY / clientHeight);
      const caster = new THREE.Raycaster();
      caster.setFromCamera(at, this.camera);
      for (const map of this.shown) {
        const place = map.under(caster.ray);
        if (place && map.map === this.state.map) return this.heard.point(place);
      }
    });
  }

  /** Where a place of the shown map is drawn. */
  drawn(x, y, z) {
    const shown = this.shown.find(({ map }) => map === this.state.map);
    return new THREE.Vector3(x + shown.offset, y * shown.map.drawnPerY, z).sub(this.middle);
  }

  /** Lines and crosses of what is pointed at and measured: state.cursor, state.trace. */
  marksChanged() {
    for (const line of this.marks.children.splice(0)) line.geometry.dispose();
    const { cursor, trace } = this.state;
    const add = (Kind, points, color) => {
      const material = new THREE.LineBasicMaterial({ color, depthTest: false, transparent: true });
      const line = new Kind(new THREE.BufferGeometry().setFromPoints(points), material);
      line.renderOrder = 1;
      this.marks.add(line);
    };
    if (cursor && cursor.z === cursor.z && cursor.z !== undefined) {
      const size = this.box.getSize(new THREE.Vector3());
      const reach = 0.02 * Math.max(size.x, size.y);
      const at = this.drawn(cursor.x, cursor.y, cursor.z), points = [];
      for (const step of [[reach, 0, 0], [0, reach, 0], [0, 0, 2 * reach / this.state.exaggeration]]) {
        const arm = new THREE.Vector3(...step);
        points.push(at.clone().sub(step[2] ? new THREE.Vector3() : arm), at.clone().add(arm));
      }
      add(THREE.LineSegments, points, 0xb3001b);
    }
    const points = (trace || []).filter(({ z }) => z === z).map(({ x, y, z }) => this.drawn(x, y, z));
    if (points.length > 1) add(THREE.Line, points, 0xb3001b);
    this.draw();
  }

  draw() {
    if (this.waits) return;
    this.waits = true;
    requestAnimationFrame(() => {
      this.waits = false;
      if (!this.box) return;
      this.camera.updateMatrixWorld();
      this.scene.updateMatrixWorld();
      for (const map of this.shown) map.refine();
      this.renderer.render(this.scene, this.camera);
      this.label();
      if (this.shown.every((map) => map.cloud || map.current.length)) noteDrawn("space");
    });
  }

  /** Numbers along three edges of the box: those at the bottom that are nearest, and the one on the left. */
  label() {
    const { map } = this.state, box = this.drawnBox, texts = [];
    const eye = this.world.worldToLocal(this.camera.position.clone());
    const onScreen = (point) => {
      const at = this.world.localToWorld(point.clone()).project(this.camera);
      return { x: (at.x + 1) / 2 * this.canvas.clientWidth, y: (1 - at.y) / 2 * this.canvas.clientHeight, z: at.z };
    };
    const y = eye.y < 0 ? box.min.y : box.max.y, x = eye.x < 0 ? box.min.x : box.max.x;
    const corners = [[box.min.x, box.min.y], [box.min.x, box.max.y], [box.max.x, box.min.y], [box.max.x, box.max.y]];
    const left = corners.map(([cx, cy]) => [cx, cy, onScreen(new THREE.Vector3(cx, cy, 0)).x])
      .sort((a, b) => a[2] - b[2])[0];
    const edge = (from, to, values, at, title, isUpright) => {
      const [a, b] = [onScreen(from), onScreen(to)];
      const length = Math.hypot(b.x - a.x, b.y - a.y);
      if (a.z > 1 || b.z > 1) return;
      const middle = onScreen(new THREE.Vector3(0, 0, (box.min.z + box.max.z) / 2));
      let away = { x: (a.x + b.x) / 2 - middle.x, y: (a.y + b.y) / 2 - middle.y };
      const across = { x: -(b.y - a.y) / (length || 1), y: (b.x - a.x) / (length || 1) };
      const sign = across.x * away.x + across.y * away.y < 0 ? -1 : 1;
      away = { x: across.x * sign, y: across.y * sign };
      const most = Math.floor(length / (isUpright ? 26 : 60)); // upright ones need their height alone
      for (const value of roundTicks(values[0], values[1], most)) {
        const p = onScreen(at(value));
        texts.push({ text: numberText(value), x: p.x + away.x * 20, y: p.y + away.y * 14 });
      }
      if (isUpright) {
        texts.push({ text: title, x: Math.min(a.x, b.x), y: Math.min(a.y, b.y) - 14, isTitle: true });
      } else if (length > 40) {
        texts.push({ text: title, x: (a.x + b.x) / 2 + away.x * 60, y: (a.y + b.y) / 2 + away.y * 36, isTitle: true });
      }
    };
    const per = map.drawnPerY;
    const { middle } = this;
    const vector = (px, py, pz) => new THREE.Vector3(px, py, pz);
    if (this.state.together !== "beside" || this.shown.length < 2) {
      edge(vector(box.min.x, y, box.min.z), vector(box.max.x, y, box.min.z), [this.box.min.x, this.box.max.x],
        (v) => vector(v - middle.x, y, box.min.z), `X (${map.unit})`, false);
    }
    edge(vector(x, box.min.y, box.min.z), vector(x, box.max.y, box.min.z), [this.box.min.y / per, this.box.max.y / per],
      (v) => vector(x, v * per - middle.y, box.min.z), `Y (${map.unitY})`, false);
    edge(vector(left[0], left[1], box.min.z), vector(left[0], left[1], box.max.z), [this.box.min.z, this.box.max.z],
      (v) => vector(left[0], left[1], v - middle.z), `Z (${map.unit})`, true);
    this.write(texts);
  }

  /** Writes labels, titles first; those that would cover others, or lie outside, are left out. */
  write(texts) {
    const { clientWidth, clientHeight } = this.canvas, kept = [];
    const within = (at, margin, size) => Math.min(Math.max(at, margin), size - margin);
    for (const { text, isTitle, x, y } of texts.sort((a, b) => (b.isTitle || 0) - (a.isTitle || 0))) {
      if (x < -40 || x > clientWidth + 40 || y < -20 || y > clientHeight + 20) continue;
      const half = 4 + 3.6 * text.length; // of its width
      const at = { text, isTitle, half, x: within(x, half, clientWidth), y: within(y, 10, clientHeight) };
      if (kept.every((other) => Math.abs(other.x - at.x) > half + other.half - 6 || Math.abs(other.y - at.y) > 13)) kept.push(at);
    }
    this.labels.replaceChildren(...kept.map(({ text, isTitle, x, y }) => {
      const span = document.createElement("span");
      span.textContent = text;
      span.className = isTitle ? "title" : "";
      span.style.left = `${x}px`;
      span.style.top = `${y}px`;
      return span;
    }));
  }
}

/** A map in space: tiles as fine as the camera makes it worth, or the points of a cloud. */
class ShownMap {
  constructor(map, view, offset) {
    Object.assign(this, { map, view, offset, meshes: new Map(), current: [] });
    this.group = new THREE.Group();
    this.bounds = map.bounds();
    const { x0, x1, y0, y1 } = this.bounds, { heights } = map;
    const per = map.drawnPerY;
    const low = heights.least, high = heights.most, more = (high - low || 1) * 1e-6;
    this.box = new THREE.Box3(new THREE.Vector3(x0 + offset, y0 * per, low - more),
      new THREE.Vector3(x1 + offset, y1 * per, high + more));
    this.coloring = view.state.coloringOf(map);
    if (map.points) this.loadPoints();
  }

  place(middle) { this.middle = middle; }

  dispose() {
    this.isGone = true;
    this.view.world.remove(this.group);
    for (const mesh of this.meshes.values()) if (mesh) mesh.geometry.dispose();
    if (this.cloud) this.cloud.geometry.dispose();
  }

  async loadPoints() {
    const bytes = await unpacked(`points-${this.map.index}`);
    if (this.isGone || !bytes) return;
    const count = bytes.length / 4, words = new Uint32Array(count);
    for (let i = 0; i < count; ++i) {
      words[i] = bytes[i] | bytes[count + i] << 8 | bytes[2 * count + i] << 16 | bytes[3 * count + i] << 24;
    }
    const numbers = new Float32Array(words.buffer), { map, middle, coloring } = this;
    const colors = new Uint8Array(count);
    const { table, layer } = coloring, side = page.tileSide;
    for (let r = 0; r * side < map.rows; ++r) for (let c = 0; c * side < map.columns; ++c) await layer.tile(0, r, c);
    if (this.isGone) return;
    for (let i = 0; i < count; i += 3) {
      const isHeight = layer === map.heights;
      const cell = isHeight ? null : map.cellNear(numbers[i], numbers[i + 1]);
      const number = isHeight ? numbers[i + 2] : layer.heldAt(cell.column, cell.row);
      const step = Math.min(Math.max(Math.round((number - layer.origin) / layer.scale), 1), 65535) || 0;
      for (let k = 0; k < 3; ++k) colors[i + k] = table[4 * step + k];
    }
    for (let i = 0; i < count; i += 3) {
      numbers[i] += this.offset - middle.x;
      numbers[i + 1] = numbers[i + 1] * map.drawnPerY - middle.y;
      numbers[i + 2] -= middle.z;
    }
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute("position", new THREE.BufferAttribute(numbers, 3));
    geometry.setAttribute("color", new THREE.BufferAttribute(colors, 3, true));
    const material = new THREE.PointsMaterial({ size: 2, sizeAttenuation: false, vertexColors: THREE.VertexColors });
    this.cloud = new THREE.Points(geometry, material);
    this.group.add(this.cloud);
    this.view.draw();
  }

  /** Tiles whose cells are at most so many pixels wide, as far as they are seen. */
  tilesFor(pixels) {
    const { camera, canvas, world } = this.view, { map } = this;
    const seen = new THREE.Frustum().setFromMatrix(
      new THREE.Matrix4().multiplyMatrices(camera.projectionMatrix, camera.matrixWorldInverse));
    const perDistance = canvas.clientHeight / 2 / Math.tan(THREE.Math.degToRad(camera.fov) / 2);
    const tiles = [];
    const visit = (level, row, column) => {
      const box = this.boxOf(level, row, column).applyMatrix4(world.matrixWorld);
      const distance = Math.max(box.distanceToPoint(camera.position), camera.near);
      const cell = Math.max(Math.abs(map.scaleX), Math.abs(map.scaleY) * map.drawnPerY) * 2 ** level;
      if (level === 0 || cell * perDistance / distance <= pixels || !seen.intersectsBox(box)) {
        tiles.push([level, row, column]);
        return;
      }
      for (const r of [2 * row, 2 * row + 1]) {
        for (const c of [2 * column, 2 * column + 1]) {
          if (r * page.tileSide < map.rowsAt(level - 1) && c * page.tileSide < map.columnsAt(level - 1)) visit(level - 1, r, c);
        }
      }
    };
    visit(map.levels - 1, 0, 0);
    return tiles;
  }

  boxOf(level, row, column) {
    const { map } = this, side = page.tileSide, per = map.drawnPerY;
    const c1 = Math.min((column + 1) * side, map.columnsAt(level)), r1 = Math.min((row + 1) * side, map.rowsAt(level));
    const box = new THREE.Box3();
    box.expandByPoint(new THREE.Vector3(map.x(column * side, level) + this.offset, map.y(row * side, level) * per, this.box.min.z));
    box.expandByPoint(new THREE.Vector3(map.x(c1, level) + this.offset, map.y(r1, level) * per, this.box.max.z));
    return box.translate(this.middle.clone().negate());
  }

  /** Shows other tiles where those that the camera wants are there, and has them made. */
  refine() {
    if (this.map.points || this.isMaking) return;
    let pixels = 1.5, tiles = this.tilesFor(pixels);
    while (tiles.length > SpaceView.mostTiles && pixels < 1e6) tiles = this.tilesFor(pixels *= 1.4);
    const keys = tiles.map((tile) => tile.join(" "));
    if (keys.join() === this.current.join()) return;
    const lacking = tiles.filter((tile) => !this.meshes.has(tile.join(" ")));
    if (lacking.length) {
      this.isMaking = true;
      this.make(lacking).then(() => {
        this.isMaking = false;
        this.view.draw();
      });
      if (this.current.length) return;
      return;
    }
    this.current = keys;
    this.group.remove(...this.group.children);
    for (const key of keys) {
      const mesh = this.meshes.get(key);
      this.meshes.delete(key); // those used last are kept
      this.meshes.set(key, mesh);
      if (mesh) this.group.add(mesh);
    }
    for (const [key, mesh] of this.meshes) {
      if (this.meshes.size <= 3 * SpaceView.mostTiles) break;
      if (mesh) mesh.geometry.dispose();
      this.meshes.delete(key);
    }
    this.view.draw();
  }

  async make(tiles) {
    for (const [level, row, column] of tiles) {
      const { layer } = this.coloring;
      const [steps, colored] = await Promise.all([this.map.heights.tile(level, row, column), layer.tile(level, row, column)]);
      if (this.isGone) return;
      this.meshes.set([level, row, column].join(" "), steps && this.meshOf(steps, colored, level, row, column));
    }
  }

  /**
   * Cells along the borders to other tiles, and the next one of the same border: below them hangs a rim, so
   * that there are no gaps where the other tile is finer.
   */
  rimsOf(level, row, column, width, height) {
    const { map } = this, side = page.tileSide, rims = [];
    const along = (first, step, count) => {
      for (let i = 0; i < count; ++i) {
        rims.push({ from: first + i * step, next: i + 1 < count ? first + (i + 1) * step : undefined });
      }
    };
    if (row > 0) along(0, 1, width);
    if ((row + 1) * side < map.rowsAt(level)) along((height - 1) * width, 1, width);
    if (column > 0) along(0, width, height);
    if ((column + 1) * side < map.columnsAt(level)) along(width - 1, width, height);
    return rims;
  }

  meshOf(steps, colored, level, row, column) {
    const { map, middle } = this, side = page.tileSide, { table } = this.coloring;
    const width = map.tileWidth(level, column), height = map.tileHeight(level, row);
    const rims = this.rimsOf(level, row, column, width, height), all = width * height + rims.length;
    const positions = new Float32Array(3 * all), colors = new Uint8Array(3 * all);
    for (let y = 0, i = 0; y < height; ++y) {
      const py = map.y(row * side + y, level) * map.drawnPerY - middle.y;
      for (let x = 0; x < width; ++x, ++i) {
        const number = map.heights.number(steps[i]);
        positions[3 * i] = map.x(column * side + x, level) + this.offset - middle.x;
        positions[3 * i + 1] = py;
        positions[3 * i + 2] = number === number ? number - middle.z : 0;
        const color = 4 * (colored ? colored[i] : 0);
        for (let k = 0; k < 3; ++k) colors[3 * i + k] = table[color + k];
      }
    }
    const corners = new Uint32Array(6 * (width - 1) * (height - 1) + 12 * rims.length);
    let count = 0;
    // Counter-clockwise from above, whichever way columns and rows run.
    const isTurned = map.scaleX * map.scaleY > 0;
    const triangle = (a, b, c) => {
      if (!(steps[a] && steps[b] && steps[c])) return;
      corners.set(isTurned ? [a, b, c] : [a, c, b], count);
      count += 3;
    };
    for (let y = 0; y + 1 < height; ++y) {
      for (let x = 0; x + 1 < width; ++x) {
        const a = y * width + x, b = a + 1, c = a + width, d = c + 1;
        if (steps[a] && steps[d]) {
          triangle(a, b, d);
          triangle(a, d, c);
        } else {
          triangle(a, b, c);
          triangle(b, d, c);
        }
      }
    }
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute("position", new THREE.BufferAttribute(positions, 3));
    geometry.setAttribute("color", new THREE.BufferAttribute(colors, 3, true));
    geometry.setIndex(new THREE.BufferAttribute(corners.slice(0, count), 1));
    geometry.computeVertexNormals();
    geometry.addGroup(0, count, 0);
    const normals = geometry.getAttribute("normal").array, surface = count;
    const deep = 0.02 * (this.box.max.z - this.box.min.z);
    rims.forEach(({ from, next }, i) => {
      const to = width * height + i;
      for (let k = 0; k < 3; ++k) {
        positions[3 * to + k] = positions[3 * from + k] - (k === 2 ? deep : 0);
        normals[3 * to + k] = normals[3 * from + k];
        colors[3 * to + k] = colors[3 * from + k];
      }
      if (next !== undefined && steps[from] && steps[next]) {
        corners.set([from, next, to, next, to + 1, to, next, from, to, to + 1, next, to], count); // for both sides
        count += 12;
      }
    });
    geometry.addGroup(surface, count - surface, 1);
    geometry.setIndex(new THREE.BufferAttribute(corners.slice(0, count), 1));
    geometry.boundingSphere = this.boxOf(level, row, column).getBoundingSphere(new THREE.Sphere());
    return new THREE.Mesh(geometry, this.view.materials);
  }

  /** The place where a ray first goes below the map; null where it does not. */
  under(ray) {
    const local = ray.clone().applyMatrix4(new THREE.Matrix4().getInverse(this.view.world.matrixWorld));
    const box = this.box.clone().translate(this.middle.clone().negate());
    const far = local.intersectBox(box, new THREE.Vector3());
    if (!far) return null;
    const { map } = this, count = 4 * Math.ceil(Math.hypot(...box.getSize(new THREE.Vector3()).toArray().slice(0, 2)) /
      Math.min(Math.abs(map.scaleX), Math.abs(map.scaleY) * map.drawnPerY) / 2);
    const steps = Math.min(count, 3000);
    const begin = box.containsPoint(local.origin) ? local.origin : far;
    const length = box.getSize(new THREE.Vector3()).length();
    for (let i = 0; i <= steps; ++i) {
      const at = begin.clone().addScaledVector(local.direction.clone().normalize(), length * i / steps);
      if (i && !box.containsPoint(at)) return null;
      const x = at.x + this.middle.x - this.offset, y = (at.y + this.middle.y) / map.drawnPerY;
      const cell = map.cellAt(x, y);
      const z = cell && map.heights.heldAt(cell.column, cell.row);
      if (cell && z !== undefined && at.z + this.middle.z <= z) return { x, y };
    }
    return null;
  }
}
