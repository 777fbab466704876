// The page: what is asked, and what is shown of the answer.
import { Drawing } from './drawing.js';
import { openReaders } from './reader.js';

const at = (id) => document.getElementById(id);
const element = (name, text) => Object.assign(document.createElement(name), { textContent: text });

// "48.85, 2.35", also with N, S, E and W; null where it is no point.
function parsePoint(text) {
  const words = text.toUpperCase().replace(/°/g, ' ').match(/[-+]?\d+(\.\d*)?|[NSEW]/g) ?? [];
  const numbers = words.filter((word) => !/[NSEW]/.test(word)).map(Number);
  const letters = words.filter((word) => /[NSEW]/.test(word));
  if (numbers.length !== 2 || (letters.length !== 0 && letters.length !== 2)) return null;
  if ('EW'.includes(letters[0] ?? '-')) {
    numbers.reverse();
    letters.reverse();
  }
  const [lat, lon] = numbers.map((n, i) => ('SW'.includes(letters[i] ?? '-') ? -n : n));
  return Math.abs(lat) <= 90 && Math.abs(lon) <= 180 ? { lat, lon } : null;
}

async function start(data) {
  const shown = data.databases.at(-1);
  const { changes } = data;
  at('title').textContent = data.databases.map((d) => d.name).join(' → ');
  at('notice').textContent =
      `Version ${shown.version}, ${shown.bytes} bytes, ${shown.zones.length} zones. ${shown.notice}`;
  for (const zone of shown.zones) at('zones').append(Object.assign(element('option'), { value: zone.name }));
  const readers = await openReaders(data.databases);
  const reader = readers.at(-1);
  const map = new Drawing(at('map'), shown, reader, changes);

  const remember = () => {
    const view = map.view().map((n) => n.toFixed(4));
    const point = map.point ? [map.point.lat.toFixed(5), map.point.lon.toFixed(5)] : [];
    history.replaceState(null, '', `#${[...view, ...point].join(',')}`);
  };
  let remembering;
  map.onmove = () => {
    clearTimeout(remembering);
    remembering = setTimeout(remember, 300);
  };

  const answerAt = (lat, lon) => {
    const answers = readers.map((r) => r.look(lat, lon));
    const found = answers.at(-1);
    const entries = reader.entriesIn(lat, lon, lat, lon);
    map.point = { lat, lon, radiusKm: found.radius_km ?? 0, entries };
    map.marked = found.zones?.[0] ?? null;
    const list = document.createElement('dl');
    const say = (term, text) => list.append(element('dt', term), element('dd', text));
    say('Point', `${lat.toFixed(5)}, ${lon.toFixed(5)}`);
    answers.forEach((answer, i) => {
      const of = answers.length > 1 ? ` in ${data.databases[i].name}` : '';
      say(`Zones${of}`, (answer.zones ?? [answer.error]).join(' and '));
      say(`A client gets${of}`, answer.raw);
      if (answer.radius_km !== undefined) say(`Holds within${of}`, `${answer.radius_km.toFixed(2)} km`);
    });
    const points = entries.reduce((sum, place) => sum + map.entryAt(place).points, 0);
    say('The lookup read', `${entries.length} ${entries.length === 1 ? 'ring' : 'rings'} with ${points} points`);
    at('answer').replaceChildren(list);
    map.redraw();
    remember();
  };
  const clear = () => {
    map.point = map.marked = null;
    at('answer').replaceChildren();
    at('hover').textContent = '';
    map.redraw();
    remember();
  };

  const placeOf = (event) => {
    const box = at('map').getBoundingClientRect();
    const [lat, lon] = map.toPoint(event.clientX - box.left, event.clientY - box.top);
    return Math.abs(lat) <= 90 && Math.abs(lon) <= 180 ? [lat, lon] : null;
  };
  at('map').addEventListener('click', (event) => {
    const place = placeOf(event);
    if (place) answerAt(...place);
  });
  let hovered = null;
  at('map').addEventListener('pointermove', (event) => {
    if (hovered === null) {
      requestAnimationFrame(() => {
        const place = placeOf(hovered);
        const answer = place && reader.look(...place);
        at('hover').textContent = answer ? (answer.zones ?? [answer.error]).join(' and ') : '';
        hovered = null;
      });
    }
    hovered = event;
  });
  at('find').addEventListener('submit', (event) => event.preventDefault());
  const find = () => {
    const wanted = at('zone').value.trim().toLowerCase();
    const zone = shown.zones.find((z) => z.name.toLowerCase() === wanted);
    if (!zone) return;
    map.marked = zone.name;
    map.showBox(zone.box);
    const list = document.createElement('dl');
    list.append(element('dt', zone.name), element('dd', `${Math.round(zone.km2)} km²`));
    at('answer').replaceChildren(list);
  };
  at('zone').addEventListener('change', find);
  at('find').addEventListener('submit', find);
  at('ask').addEventListener('submit', (event) => {
    event.preventDefault();
    const point = parsePoint(at('point').value);
    if (!point) {
      at('answer').replaceChildren(element('p', 'That is no latitude and longitude.'));
      return;
    }
    map.show(point.lat, point.lon, Math.max(map.transform.k, 12));
    answerAt(point.lat, point.lon);
  });
  at('in').addEventListener('click', () => map.zoomBy(2));
  at('out').addEventListener('click', () => map.zoomBy(0.5));
  document.addEventListener('keydown', (event) => {
    if (event.key === 'Escape') {
      clear();
      at('map').focus();
      return;
    }
    if (event.target instanceof HTMLInputElement || event.ctrlKey || event.metaKey || event.altKey) return;
    const act = {
      'ArrowLeft': () => map.pan(80, 0), 'ArrowRight': () => map.pan(-80, 0),
      'ArrowUp': () => map.pan(0, 80), 'ArrowDown': () => map.pan(0, -80),
      '+': () => map.zoomBy(2), '=': () => map.zoomBy(2), '-': () => map.zoomBy(0.5),
      '/': () => at('zone').focus(),
      'Enter': () => event.target === at('map') && answerAt(...map.center()),
    }[event.key];
    if (!act) return;
    if (event.key !== 'Enter') event.preventDefault();
    act();
  });
  for (const { properties: change } of changes) {
    const button = element('button',
        `${change.km2.toFixed(3)} km² from ${change.from ?? 'no zone'} to ${change.to ?? 'no zone'}`);
    button.addEventListener('click', () => {
      map.showBox(change.box);
      answerAt(...change.sample);
    });
    const item = document.createElement('li');
    item.append(button);
    at('list').append(item);
  }
  at('changes').hidden = data.databases.length < 2;

  const [lat, lon, k, ...point] = location.hash.slice(1).split(',').map(Number);
  if (k > 0) map.show(lat, lon, k); else map.show(20, 0, 1);
  if (point.length === 2) answerAt(...point);
  // For whoever measures what a frame costs.
  window.offlinetzMap = map;
}

const data = JSON.parse(at('data').textContent);
if (data === null) {
  at('title').textContent = 'A template: `offlinetz map` puts a database in.';
} else {
  start(data).catch((error) => { at('answer').textContent = error.message; });
}
