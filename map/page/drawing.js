// Draws the map on a canvas, in an equirectangular projection: edges of the database, which are straight
// in latitude and longitude, are straight on the map.
import { geoCircle, geoEquirectangular, geoPath } from 'd3-geo';
import { select } from 'd3-selection';
import { zoom, zoomIdentity } from 'd3-zoom';

// On the sphere on which the library measures.
const METRES_PER_DEGREE = 6371008.8 * Math.PI / 180;
const LEAST_ZOOM = 0.8;
const MOST_ZOOM = 40000;
// At low zoom the map draws the simplified rings of zones. From NEAR_PIXELS pixels a degree on it draws
// the rings that lookups read, if at most MOST_ENTRIES entries are in view.
const NEAR_PIXELS = 250;
const MOST_ENTRIES = 4000;
// Levels of detail: a level omits points closer than this many degrees to the last one drawn. The map
// uses the first level whose step is at most MOST_STEP_PIXELS device pixels.
const STEPS = [0.2, 0.04, 0];
const MOST_STEP_PIXELS = 0.8;
// A hostile database may have any number of points. About this many at most are drawn in a frame, and
// about twice as many are kept.
const MOST_POINTS = 3e6;
// A ring is right in its bounding box and in this many units of latitude and longitude around it. The
// shapes of neighbouring tiles overlap by that, so no seam is visible.
const OVERLAP = [10, 5];

const hueOf = (name) => {
  let hash = 7;
  for (const c of name) hash = (hash * 31 + c.codePointAt(0)) % 360;
  return (hash * 137) % 360;
};

// Paths are in degrees, with x to the east and y to the south.

// The path of a zone. `rings` have delta-encoded coordinates in units: latitude, longitude and so on.
// Omits points closer than `step` degrees to the last one drawn.
function pathOfZone(rings, precision, step) {
  const scale = 2 ** (precision - 1);
  const clamp = (value, most) => Math.max(-most, Math.min(most, value));
  const path = new Path2D();
  for (const ring of rings) {
    let lat = 0, lon = 0, lastX, lastY, points = 0;
    for (let i = 0; i < ring.length; i += 2) {
      lat += ring[i];
      lon += ring[i + 1];
      const x = clamp(lon * 180 / scale, 180), y = -clamp(lat * 90 / scale, 90);
      if (i > 0 && Math.abs(x - lastX) < step && Math.abs(y - lastY) < step) continue;
      // A ring enters the path with its second point, so a ring of one point is not drawn.
      if (++points === 2) path.moveTo(lastX, lastY);
      if (points > 1) path.lineTo(x, y);
      [lastX, lastY] = [x, y];
    }
    if (points > 1) path.closePath();
  }
  return path;
}

// The paths of an entry's ring and of its bounding box.
function drawnEntry({ zone, record, box: [south, west, north, east], points }, precision) {
  const scale = 2 ** (precision - 1);
  const path = new Path2D();
  for (let i = 0; i < points.length; i += 2) {
    const x = points[i + 1] * 180 / scale, y = -points[i] * 90 / scale;
    if (i === 0) path.moveTo(x, y); else path.lineTo(x, y);
  }
  path.closePath();
  // The reader truncates degrees toward zero, so a box contains the whole of its outermost units.
  const low = (units) => (units <= 0 ? units - 1 : units);
  const high = (units) => (units >= 0 ? units + 1 : units);
  const boxPath = (more) => {
    const x = (low(west) - more[1]) * 180 / scale, y = -(high(north) + more[0]) * 90 / scale;
    const box = new Path2D();
    box.rect(x, y, (high(east) + more[1]) * 180 / scale - x, (more[0] - low(south)) * 90 / scale - y);
    return box;
  };
  return {
    name: zone, key: [record, south, west, north, east].join(), record, path,
    box: boxPath([0, 0]), clip: boxPath(OVERLAP), points: points.length / 2,
  };
}

// Joins entries into shapes, because a hole is an entry of its own. In a tiled database a shape has the
// entries of one zone in one tile, and is clipped to the tile. Otherwise it has all entries of a zone.
function shapesOf(entries, isTiled) {
  const shapes = new Map();
  for (const { name, key, record, path, clip } of entries) {
    const shape = shapes.get(isTiled ? key : record) ??
        { name, hue: hueOf(name), path: new Path2D(), clip: isTiled ? clip : null };
    shape.path.addPath(path);
    shapes.set(isTiled ? key : record, shape);
  }
  return [...shapes.values()];
}

// The bounding box in degrees (west, south, east, north) of a zone's largest ring. The bounding box of
// all rings would span the world if the zone crosses the antimeridian.
export function boxOfLargest(rings, precision) {
  const scale = 2 ** (precision - 1);
  let largest = null, most = -1;
  for (const ring of rings) {
    let lat = 0, lon = 0, box = [Infinity, Infinity, -Infinity, -Infinity];
    for (let i = 0; i < ring.length; i += 2) {
      lat += ring[i];
      lon += ring[i + 1];
      box = [Math.min(box[0], lon), Math.min(box[1], lat), Math.max(box[2], lon), Math.max(box[3], lat)];
    }
    const size = (box[2] - box[0]) * (box[3] - box[1]);
    if (size > most) [largest, most] = [box, size];
  }
  return largest.map((units, i) => units * (i % 2 === 0 ? 180 : 90) / scale);
}

// The path of a GeoJSON feature's polygons.
function pathOfFeature(feature) {
  const path = new Path2D();
  for (const ring of feature.geometry.coordinates.flat()) {
    ring.forEach(([lon, lat], i) => (i === 0 ? path.moveTo(lon, -lat) : path.lineTo(lon, -lat)));
    path.closePath();
  }
  return path;
}

export class Drawing {
  // Draws `database`, which `reader` reads, and the GeoJSON features `changes` above it.
  constructor(canvas, database, reader, changes) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d', { alpha: false });
    this.precision = database.precision;
    this.isTiled = database.tiled;
    this.dark = matchMedia('(prefers-color-scheme: dark)');
    this.zones = database.zones.map((zone) => ({
      name: zone.name, box: zone.box, hue: hueOf(zone.name),
      paths: STEPS.map((step) => pathOfZone(zone.rings, this.precision, step)),
    }));
    this.reader = reader;
    this.entries = new Map();  // Entries read so far, by index in the box table.
    this.kept = 0;             // The number of their points.
    this.near = { key: '', shapes: [] };  // The shapes last drawn at high zoom.
    this.changes = changes.map(pathOfFeature);
    this.transform = zoomIdentity;
    this.marked = null;      // The name of the highlighted zone.
    this.point = null;       // {lat, lon, border, entries: those that the lookup read}
    // Keeps the centre of the canvas inside the world at every zoom.
    const inWorld = (t) => {
      const middle = [canvas.clientWidth / 2, canvas.clientHeight / 2];
      const move = middle.map((m, i) => {
        const world = (i === 0 ? 360 : 180) * this.base * t.k, from = i === 0 ? t.x : t.y;
        return Math.max(0, m - from - world) - Math.max(0, from - m);
      });
      return t.translate(move[0] / t.k, move[1] / t.k);
    };
    this.zoom = zoom().scaleExtent([LEAST_ZOOM, MOST_ZOOM]).clickDistance(4).constrain(inWorld)
        .on('zoom', (event) => {
          this.transform = event.transform;
          this.seen = this.view();
          this.redraw();
          this.onmove?.();
        });
    select(canvas).call(this.zoom).on('dblclick.zoom', null);
    // A resized window shows the same place.
    new ResizeObserver(() => (this.seen ? this.show(...this.seen) : this.redraw())).observe(canvas);
    this.dark.addEventListener('change', () => this.redraw());
  }

  // Pixels a degree at zoom 1, at which the whole world fits.
  get base() {
    return Math.min(this.canvas.clientWidth / 360, this.canvas.clientHeight / 180);
  }
  get scale() { return this.base * this.transform.k; }

  toScreen(lat, lon) {
    const { x, y } = this.transform;
    return [x + (lon + 180) * this.scale, y + (90 - lat) * this.scale];
  }
  toPoint(x, y) {
    return [90 - (y - this.transform.y) / this.scale, (x - this.transform.x) / this.scale - 180];
  }
  center() {
    return this.toPoint(this.canvas.clientWidth / 2, this.canvas.clientHeight / 2);
  }
  view() {
    return [...this.center(), this.transform.k];
  }

  show(lat, lon, wanted) {
    const k = Math.max(LEAST_ZOOM, Math.min(wanted, MOST_ZOOM));
    const scale = this.base * k;
    const t = zoomIdentity.translate(this.canvas.clientWidth / 2 - (lon + 180) * scale,
        this.canvas.clientHeight / 2 - (90 - lat) * scale).scale(k);
    select(this.canvas).call(this.zoom.transform, t);
  }
  showBox([west, south, east, north]) {
    const k = 0.8 * Math.min(this.canvas.clientWidth / Math.max(east - west, 1e-3),
        this.canvas.clientHeight / Math.max(north - south, 1e-3)) / this.base;
    this.show((south + north) / 2, (west + east) / 2, k);
  }
  pan(x, y) {
    select(this.canvas).call(this.zoom.translateBy, x / this.transform.k, y / this.transform.k);
  }
  zoomBy(factor) { select(this.canvas).call(this.zoom.scaleBy, factor); }

  redraw() {
    this.frame ??= requestAnimationFrame(() => {
      this.frame = null;
      this.draw();
    });
  }

  draw() {
    const { canvas, context: c, transform: t } = this;
    const ratio = devicePixelRatio || 1;
    const width = Math.round(canvas.clientWidth * ratio), height = Math.round(canvas.clientHeight * ratio);
    if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, { width, height });
    const dark = this.dark.matches;
    c.setTransform(1, 0, 0, 1, 0, 0);
    c.fillStyle = dark ? '#1d2a33' : '#dfe9ef';
    c.fillRect(0, 0, width, height);
    const s = this.scale * ratio;
    c.setTransform(s, 0, 0, s, (t.x + 180 * this.scale) * ratio, (t.y + 90 * this.scale) * ratio);
    const [north, west] = this.toPoint(0, 0);
    const [south, east] = this.toPoint(canvas.clientWidth, canvas.clientHeight);
    const pixel = 1 / this.scale;
    c.lineJoin = 'bevel';
    const level = STEPS.findIndex((step) => step * s <= MOST_STEP_PIXELS);
    const near = this.nearEntries(south, west, north, east);
    if (near) {
      for (const shape of near) {
        c.save();
        if (shape.clip) c.clip(shape.clip);
        this.drawZone(c, shape, shape.path, pixel, dark);
        c.restore();
      }
    } else {
      for (const zone of this.zones) {
        const [w, bottom, e, top] = zone.box;
        if (e >= west && w <= east && top >= south && bottom <= north)
          this.drawZone(c, zone, zone.paths[level], pixel, dark);
      }
    }
    c.fillStyle = c.strokeStyle = dark ? '#ff6b5e' : '#c8102e';
    c.lineWidth = 1.5 * pixel;
    for (const change of this.changes) {
      c.fill(change, 'evenodd');
      c.stroke(change);
    }
    if (this.point) this.drawPoint(c, pixel, dark);
  }

  drawZone(c, { name, hue }, path, pixel, dark) {
    const marked = name === this.marked;
    c.fillStyle = `hsl(${hue} ${marked ? 75 : 38}% ${dark ? (marked ? 50 : 30) : (marked ? 60 : 78)}%)`;
    c.fill(path, 'evenodd');
    c.lineWidth = (marked ? 2 : 0.6) * pixel;
    c.strokeStyle = dark ? '#0c1013' : '#6b7880';
    c.stroke(path);
  }

  // The shapes of the entries in view, or null if the zoom is too low or they are too many.
  nearEntries(south, west, north, east) {
    if (this.scale < NEAR_PIXELS) return null;
    const indexes = this.reader.entriesIn(Math.max(south, -90), Math.max(west, -180),
        Math.min(north, 90), Math.min(east, 180));
    if (indexes.length > MOST_ENTRIES) return null;
    const key = indexes.join();
    if (key !== this.near.key)
      this.near = { key, shapes: shapesOf(this.entriesAt(indexes), this.isTiled) };
    return this.near.shapes;
  }
  // The entries with these indexes, up to MOST_POINTS points.
  entriesAt(indexes) {
    const found = [];
    let points = 0;
    for (const index of indexes) {
      if (points > MOST_POINTS) break;
      if (this.kept > 2 * MOST_POINTS) {
        this.entries.clear();
        this.kept = 0;
      }
      if (!this.entries.has(index)) {
        this.entries.set(index, drawnEntry(this.reader.entry(index), this.precision));
        this.kept += this.entries.get(index).points;
      }
      found.push(this.entries.get(index));
      points += found.at(-1).points;
    }
    return found;
  }

  drawPoint(c, pixel, dark) {
    const { lat, lon, border, entries } = this.point;
    c.strokeStyle = dark ? '#ffd166' : '#8a5a00';
    c.lineWidth = 1.5 * pixel;
    for (const entry of entries) {
      c.setLineDash([6 * pixel, 4 * pixel]);
      c.stroke(entry.box);
      c.setLineDash([]);
      c.stroke(entry.path);
    }
    if (border) this.drawBorder(c, pixel, dark);
    c.beginPath();
    c.arc(lon, -lat, 5 * pixel, 0, 2 * Math.PI);
    c.fillStyle = dark ? '#fff' : '#000';
    c.fill();
  }

  // Draws the nearest place of a border, the shortest way there, and the circle of all points that are
  // as far from the point as that place.
  drawBorder(c, pixel, dark) {
    const { lat, lon, border } = this.point;
    // Cuts lines and polygons at the antimeridian and the poles.
    const projection = geoEquirectangular().scale(180 / Math.PI).translate([0, 0]).precision(pixel / 2);
    const path = geoPath(projection, c);
    const colour = dark ? '#7cc4ff' : '#00539f';
    c.strokeStyle = colour;
    const radius = border.metres / METRES_PER_DEGREE;
    if (border.metres >= 1) {
      // Chords are at most a quarter of a pixel within the circle.
      const step = Math.min(2, Math.sqrt(2 * pixel / radius) * 180 / Math.PI);
      const circle = geoCircle().center([lon, lat]).radius(radius).precision(step)();
      c.beginPath();
      path(circle);
      c.fillStyle = `${colour}${dark ? '33' : '22'}`;
      c.fill();
      // As a line, it has no edges where the polygon is cut.
      c.beginPath();
      path({ type: 'LineString', coordinates: circle.coordinates[0] });
      c.stroke();
    }
    c.lineWidth = pixel;
    c.beginPath();
    path({ type: 'LineString', coordinates: [[lon, lat], [border.lon, border.lat]] });
    c.stroke();
    c.beginPath();
    c.arc(border.lon, -border.lat, 3.5 * pixel, 0, 2 * Math.PI);
    c.fillStyle = '#fff';
    c.fill();
    c.stroke();
  }
}
