// The map on its canvas: straight in latitude and longitude, as the database's edges are.
import { geoCircle } from 'd3-geo';
import { select } from 'd3-selection';
import { zoom, zoomIdentity } from 'd3-zoom';

const KM_PER_DEGREE = 111.195;
const MOST_ZOOM = 40000;
// Zones are thinned for drawing. From so many pixels a degree on, what lookups read is drawn
// instead, as long as no more entries are in sight.
const NEAR_PIXELS = 250;
// From further away points are left out that lie closer together, in degrees: less than a pixel.
const STEPS = [0.2, 0.04, 0];
const MOST_STEP_PIXELS = 0.8;
const MOST_ENTRIES = 4000;

const hueOf = (name) => {
  let hash = 7;
  for (const c of name) hash = (hash * 31 + c.codePointAt(0)) % 360;
  return (hash * 137) % 360;
};

// Paths have x to the east and y to the south, in degrees.

// The rings of a zone, each point as the step from the one before it, without points that are less
// than `step` from the last one drawn.
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
      // A ring gets its place in the path once it is more than a point.
      if (++points === 2) path.moveTo(lastX, lastY);
      if (points > 1) path.lineTo(x, y);
      [lastX, lastY] = [x, y];
    }
    if (points > 1) path.closePath();
  }
  return path;
}

// The ring of an entry, and the box that it is looked at in.
function drawnEntry({ zone, box: [south, west, north, east], points }, precision) {
  const scale = 2 ** (precision - 1);
  const path = new Path2D();
  for (let i = 0; i < points.length; i += 2)
    path.lineTo(points[i + 1] * 180 / scale, -points[i] * 90 / scale);
  path.closePath();
  const box = new Path2D();
  // A box holds its last units whole.
  box.rect(west * 180 / scale, -(north + 1) * 90 / scale,
      (east + 1 - west) * 180 / scale, (north + 1 - south) * 90 / scale);
  return { name: zone, hue: hueOf(zone), path, box, points: points.length / 2 };
}

// The polygons of a GeoJSON feature.
function pathOfFeature(feature) {
  const path = new Path2D();
  for (const ring of feature.geometry.coordinates.flat()) {
    for (const [lon, lat] of ring) path.lineTo(lon, -lat);
    path.closePath();
  }
  return path;
}

export class Drawing {
  // `reader` reads `database`, which is drawn; `changes` are features.
  constructor(canvas, database, reader, changes) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d', { alpha: false });
    this.precision = database.precision;
    this.dark = matchMedia('(prefers-color-scheme: dark)');
    this.zones = database.zones.map((zone) => ({
      name: zone.name, box: zone.box, hue: hueOf(zone.name),
      paths: STEPS.map((step) => pathOfZone(zone.rings, this.precision, step)),
    }));
    this.reader = reader;
    this.entries = new Map();  // By their places in the table, as they have been seen.
    this.changes = changes.map(pathOfFeature);
    this.transform = zoomIdentity;
    this.marked = null;      // The name of a zone.
    this.point = null;       // {lat, lon, radiusKm, entries: their places}
    this.zoom = zoom().scaleExtent([0.8, MOST_ZOOM]).on('zoom', (event) => {
      this.transform = event.transform;
      this.redraw();
      this.onmove?.();
    });
    select(canvas).call(this.zoom).on('dblclick.zoom', null);
    new ResizeObserver(() => this.redraw()).observe(canvas);
    this.dark.addEventListener('change', () => this.redraw());
  }

  // Pixels a degree at zoom 1: the whole world fits.
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

  show(lat, lon, k) {
    const scale = this.base * k;
    const t = zoomIdentity.translate(this.canvas.clientWidth / 2 - (lon + 180) * scale,
        this.canvas.clientHeight / 2 - (90 - lat) * scale).scale(k);
    select(this.canvas).call(this.zoom.transform, t);
  }
  showBox([west, south, east, north]) {
    const k = 0.8 * Math.min(this.canvas.clientWidth / Math.max(east - west, 1e-3),
        this.canvas.clientHeight / Math.max(north - south, 1e-3)) / this.base;
    this.show((south + north) / 2, (west + east) / 2, Math.min(k, MOST_ZOOM));
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
      for (const entry of near) {
        c.save();
        c.clip(entry.box);
        this.drawZone(c, entry, entry.path, pixel, dark);
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

  // The entries in sight; null from too far.
  nearEntries(south, west, north, east) {
    if (this.scale < NEAR_PIXELS) return null;
    const places = this.reader.entriesIn(Math.max(south, -90), Math.max(west, -180),
        Math.min(north, 90), Math.min(east, 180));
    return places.length <= MOST_ENTRIES ? places.map((place) => this.entryAt(place)) : null;
  }
  entryAt(place) {
    if (!this.entries.has(place))
      this.entries.set(place, drawnEntry(this.reader.entry(place), this.precision));
    return this.entries.get(place);
  }

  drawPoint(c, pixel, dark) {
    const { lat, lon, radiusKm, entries } = this.point;
    c.strokeStyle = dark ? '#ffd166' : '#8a5a00';
    c.lineWidth = 1.5 * pixel;
    for (const entry of entries.map((place) => this.entryAt(place))) {
      c.setLineDash([6 * pixel, 4 * pixel]);
      c.stroke(entry.box);
      c.setLineDash([]);
      c.stroke(entry.path);
    }
    if (radiusKm > 0) {
      const circle = geoCircle().center([lon, lat]).radius(radiusKm / KM_PER_DEGREE).precision(2)();
      c.beginPath();
      // Where it crosses the antimeridian it goes on beyond the map's edge.
      for (const [x, y] of circle.coordinates[0])
        c.lineTo(x - 360 * Math.round((x - lon) / 360), -y);
      c.closePath();
      c.strokeStyle = dark ? '#7cc4ff' : '#00539f';
      c.fillStyle = dark ? '#7cc4ff33' : '#00539f22';
      c.fill();
      c.stroke();
    }
    c.beginPath();
    c.arc(lon, -lat, 5 * pixel, 0, 2 * Math.PI);
    c.fillStyle = dark ? '#fff' : '#000';
    c.fill();
  }
}
