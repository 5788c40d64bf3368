// What is measured: always at the finest level.

/** From one place to another one; slope in degrees. Distance and slope are none where Y is no length. */
function measurePoints(map, a, b) {
  const [dx, dy, dz] = [b.x - a.x, b.y - a.y, b.z - a.z];
  const along = map.isYLength ? Math.hypot(dx, dy) : NaN;
  return { dx, dy, dz, along, distance: Math.hypot(along, dz), slope: Math.atan2(dz, along) * 180 / Math.PI };
}

/** Cells along a line, one for each column or row that it crosses, whichever are more. */
async function measureProfile(map, a, b) {
  const from = map.cellNear(a.x, a.y), to = map.cellNear(b.x, b.y);
  const count = Math.max(Math.abs(to.column - from.column), Math.abs(to.row - from.row), 1);
  const points = [];
  for (let i = 0; i <= count; ++i) {
    const column = Math.round(from.column + (to.column - from.column) * i / count);
    const row = Math.round(from.row + (to.row - from.row) * i / count);
    const [x, y] = [map.x(column), map.y(row)];
    const s = Math.hypot(x - map.x(from.column), (y - map.y(from.row)) * (map.isYLength ? 1 : map.drawnPerY));
    points.push({ s, x, y, z: await map.heights.at(column, row) });
  }
  return points;
}

/** A text with a heading and a line for each point; heights that are none are empty. */
function profileCsv(points) {
  const lines = points.map(({ s, x, y, z }) => [s, x, y, Number.isNaN(z) ? "" : z].join(","));
  return `s,X,Y,Z\n${lines.join("\n")}\n`;
}

/** Calls take(x, y, z) for all cells with a height whose centres lie in a rectangle. */
async function forCells(map, a, b, take) {
  const p = map.cellNear(a.x, a.y), q = map.cellNear(b.x, b.y);
  const [c0, c1] = [Math.min(p.column, q.column), Math.max(p.column, q.column)];
  const [r0, r1] = [Math.min(p.row, q.row), Math.max(p.row, q.row)];
  const side = page.tileSide;
  for (let r = Math.floor(r0 / side); r * side <= r1; ++r) {
    for (let c = Math.floor(c0 / side); c * side <= c1; ++c) {
      const steps = await map.heights.tile(0, r, c);
      if (!steps) continue;
      for (let row = Math.max(r0, r * side); row <= Math.min(r1, r * side + side - 1); ++row) {
        for (let column = Math.max(c0, c * side); column <= Math.min(c1, c * side + side - 1); ++column) {
          const step = steps[map.indexIn(0, r, c, row, column)];
          if (step) take(map.x(column), map.y(row), map.heights.number(step));
        }
      }
    }
  }
}

/** Mean, extent, least-squares plane Z = a + b X + c Y and the deviation from it over a rectangle. */
async function measureRectangle(map, from, to) {
  const [mx, my] = [(from.x + to.x) / 2, (from.y + to.y) / 2]; // sums around the middle keep their digits
  let n = 0, sx = 0, sy = 0, sz = 0, z0 = NaN, least = Infinity, most = -Infinity;
  await forCells(map, from, to, (x, y, z) => {
    if (!n) z0 = z;
    ++n;
    sx += x - mx;
    sy += y - my;
    sz += z - z0;
    least = Math.min(least, z);
    most = Math.max(most, z);
  });
  if (!n) return { count: 0 };
  const [x, y, mean] = [mx + sx / n, my + sy / n, z0 + sz / n];
  let xx = 0, xy = 0, yy = 0, xz = 0, yz = 0, zz = 0;
  await forCells(map, from, to, (px, py, pz) => {
    const [dx, dy, dz] = [px - x, py - y, pz - mean];
    xx += dx * dx;
    xy += dx * dy;
    yy += dy * dy;
    xz += dx * dz;
    yz += dy * dz;
    zz += dz * dz;
  });
  const result = { count: n, x, y, mean, least, most, deviation: Math.sqrt(zz / n) };
  const determinant = xx * yy - xy * xy;
  if (!(determinant > 1e-12 * xx * yy)) return result; // cells on a line have no plane
  const b = (xz * yy - yz * xy) / determinant, c = (yz * xx - xz * xy) / determinant;
  let rest = 0, below = 0, above = 0;
  await forCells(map, from, to, (px, py, pz) => {
    const e = pz - mean - b * (px - x) - c * (py - y);
    rest += e * e;
    below = Math.min(below, e);
    above = Math.max(above, e);
  });
  const degrees = (slope) => Math.atan(slope) * 180 / Math.PI;
  result.plane = { a: mean - b * x - c * y, b, c, tiltX: degrees(b), tiltY: map.isYLength ? degrees(c) : NaN,
    deviation: Math.sqrt(rest / n), below, above };
  return result;
}
