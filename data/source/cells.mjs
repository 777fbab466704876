// Writes the boundary polygons of the pinned package as a GeoJSON FeatureCollection: one
// feature for each zone in each cell of the package's quadtree. The compiler unites the cells.
//
// Usage: node cells.mjs SET OUTPUT, where SET is "all", "1970" or "now".
import { closeSync, openSync, readFileSync, writeSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';

const require = createRequire(import.meta.url);
const geobuf = require('geobuf');
const Pbf = require('pbf');

const FILES = {
  all: 'timezones.geojson',
  1970: 'timezones-1970.geojson',
  now: 'timezones-now.geojson',
};
// The package cuts its cells slightly inside the world's edge. Coordinates at the cut are moved to the
// antimeridian or the pole.
const EDGE_LON = 179.9999;
const EDGE_LAT = 89.9999;
const WORLD = { west: -EDGE_LON, south: -EDGE_LAT, east: EDGE_LON, north: EDGE_LAT };
const CHILDREN = ['a', 'b', 'c', 'd'];

const [set, output] = process.argv.slice(2);
if (!(set in FILES) || output === undefined) {
  console.error('usage: node cells.mjs all|1970|now OUTPUT');
  process.exit(2);
}
const data = path.join(path.dirname(require.resolve('geo-tz')), '..', 'data');
const index = JSON.parse(readFileSync(path.join(data, `${FILES[set]}.index.json`), 'utf8'));
const cells = readFileSync(path.join(data, `${FILES[set]}.geo.dat`));

const toEdge = (value, edge, world) => (Math.abs(value) >= edge ? Math.sign(value) * world : value);
const closePosition = ([lon, lat]) => [toEdge(lon, EDGE_LON, 180), toEdge(lat, EDGE_LAT, 90)];
const closeRings = (rings) => rings.map((ring) => ring.map(closePosition));
const closeGeometry = ({ type, coordinates }) => ({
  type,
  coordinates: type === 'Polygon' ? closeRings(coordinates) : coordinates.map(closeRings),
});

// The bounding box of a cell, rounded as the package rounds the coordinates of neighbouring cells.
function boxGeometry({ west, south, east, north }) {
  const round = (value) => Math.round(value * 1e6) / 1e6;
  const [w, s, e, n] = [west, south, east, north].map(round);
  return { type: 'Polygon', coordinates: closeRings([[[w, s], [w, n], [e, n], [e, s], [w, s]]]) };
}

function childBounds({ west, south, east, north }, child) {
  const lat = (north + south) / 2;
  const lon = (east + west) / 2;
  return {
    a: { west: lon, south: lat, east, north },
    b: { west, south: lat, east: lon, north },
    c: { west, south, east: lon, north: lat },
    d: { west: lon, south, east, north: lat },
  }[child];
}

function* cellFeatures(node, bounds) {
  if (node === undefined) return; // Open sea.
  if (Array.isArray(node)) {
    for (const zone of node) yield [index.timezones[zone], boxGeometry(bounds)];
  } else if (node.len) {
    const cell = geobuf.decode(new Pbf(cells.subarray(node.pos, node.pos + node.len)));
    for (const { properties, geometry } of cell.features) {
      yield [properties.tzid, closeGeometry(geometry)];
    }
  } else {
    for (const child of CHILDREN) yield* cellFeatures(node[child], childBounds(bounds, child));
  }
}

const file = openSync(output, 'w');
writeSync(file, '{"type":"FeatureCollection","features":[');
let separator = '\n';
let chunk = '';
for (const [tzid, geometry] of cellFeatures(index.lookup, WORLD)) {
  chunk += separator + JSON.stringify({ type: 'Feature', properties: { tzid }, geometry });
  separator = ',\n';
  if (chunk.length > 1 << 22) {
    writeSync(file, chunk);
    chunk = '';
  }
}
writeSync(file, chunk + '\n]}\n');
closeSync(file);
