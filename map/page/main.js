// The page: its controls, and the text of answers.
import { Drawing, boxOfLargest } from './drawing.js';
import { openReaders } from './reader.js';

const at = (id) => document.getElementById(id);
const element = (name, text) => Object.assign(document.createElement(name), { textContent: text });

const isPlace = (lat, lon) => Math.abs(lat) <= 90 && Math.abs(lon) <= 180;

// Rounds down, so an answer that holds within a length holds within the written one.
function lengthOf(metres) {
  if (metres < 10) return 'less than 10 m';
  if (metres < 10000) return `${Math.floor(metres)} m`;
  if (metres < 100000) return `${(Math.floor(metres / 100) / 10).toFixed(1)} km`;
  return `${Math.floor(metres / 1000)} km`;
}

// Parses "48.85, 2.35", "48.85N 2.35E" or "E 2.35 N 48.85". Returns null if the text is not a point.
const NUMBER = '([-+]?(?:\\d+\\.?\\d*|\\.\\d+))\\s*°?';
const LETTER = '([NSEW])';
const oneOf = (...parts) => new RegExp(`^\\s*${parts.join('\\s*')}\\s*$`);
const PLAIN = oneOf(NUMBER, '(?:[,;]|\\s)', NUMBER);
const BEHIND = oneOf(NUMBER, LETTER, '[,;]?', NUMBER, LETTER);
const BEFORE = oneOf(LETTER, NUMBER, '[,;]?', LETTER, NUMBER);
function parsePoint(written) {
  const text = written.toUpperCase().replace(/\u2212/g, '-');
  let lat, lon;
  const plain = text.match(PLAIN);
  if (plain) {
    [lat, lon] = plain.slice(1).map(Number);
  } else {
    const [, ...found] = text.match(BEHIND) ?? text.match(BEFORE) ?? [];
    const letters = found.filter((word) => /[NSEW]/.test(word)).join('');
    const numbers = found.filter((word) => !/[NSEW]/.test(word));
    if (!/^(?:[NS][EW]|[EW][NS])$/.test(letters) || numbers.some((n) => /^[-+]/.test(n))) return null;
    const values = numbers.map((number, i) => (/[SW]/.test(letters[i]) ? -number : Number(number)));
    [lat, lon] = /[NS]/.test(letters[0]) ? values : values.reverse();
  }
  return isPlace(lat, lon) ? { lat, lon } : null;
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
    at('hover').textContent = '';
    clearTimeout(remembering);
    remembering = setTimeout(remember, 300);
  };

  const answerAt = (lat, lon) => {
    const answers = readers.map((r) => r.look(lat, lon));
    const found = answers.at(-1);
    const entries = map.entriesAt(reader.entriesIn(lat, lon, lat, lon));
    map.point = { lat, lon, border: found.border, entries };
    map.marked = found.zones?.[0] ?? null;
    const list = document.createElement('dl');
    const say = (term, text) => list.append(element('dt', term), element('dd', text));
    say('Point', `${lat.toFixed(5)}, ${lon.toFixed(5)}`);
    answers.forEach((answer, i) => {
      const of = answers.length > 1 ? ` in ${data.databases[i].name}` : '';
      say(`Zones${of}`, (answer.zones ?? [answer.error]).join(' and '));
      say(`A client gets${of}`, answer.raw);
      const { border } = answer;
      if (border) {
        say(`Nearest border${of}`, `${lengthOf(border.metres)}: ${border.zones.join(' and ') || 'no zone'}`);
        if (border.metres - border.holds > 0.01 * border.metres)
          say(`The answer holds within${of}`, lengthOf(border.holds));
      }
    });
    const points = entries.reduce((sum, entry) => sum + entry.points, 0);
    say('The lookup read', `${entries.length} ${entries.length === 1 ? 'ring' : 'rings'} with ${points} points`);
    at('answer').replaceChildren(list);
    map.redraw();
    remember();
  };
  // Removes the point from the map, and shows something else in place of the answer.
  const sayInstead = (...what) => {
    map.point = map.marked = null;
    at('answer').replaceChildren(...what);
    at('hover').textContent = '';
    map.redraw();
    remember();
  };

  const placeOf = (event) => {
    const box = at('map').getBoundingClientRect();
    const [lat, lon] = map.toPoint(event.clientX - box.left, event.clientY - box.top);
    return isPlace(lat, lon) ? [lat, lon] : null;
  };
  at('map').addEventListener('click', (event) => {
    const place = placeOf(event);
    if (place) answerAt(...place);
  });
  let hovered = null;
  for (const end of ['pointerleave', 'pointercancel']) {
    at('map').addEventListener(end, () => {
      hovered = null;
      at('hover').textContent = '';
    });
  }
  at('map').addEventListener('pointermove', (event) => {
    if (event.pointerType === 'touch') return;
    if (hovered === null) {
      requestAnimationFrame(() => {
        const place = hovered && placeOf(hovered);
        const answer = place && reader.look(...place);
        at('hover').textContent = answer ? (answer.zones ?? [answer.error]).join(' and ') : '';
        hovered = null;
      });
    }
    hovered = event;
  });
  const find = () => {
    const wanted = at('zone').value.trim().toLowerCase();
    const zone = shown.zones.find((z) => z.name.toLowerCase() === wanted);
    if (!zone) return false;
    const list = document.createElement('dl');
    const parts = zone.rings.length === 1 ? '1 ring' : `${zone.rings.length} rings, the largest shown`;
    list.append(element('dt', zone.name), element('dd', `${Math.round(zone.km2)} km², ${parts}`));
    sayInstead(list);
    map.marked = zone.name;
    map.showBox(boxOfLargest(zone.rings, shown.precision));
    return true;
  };
  at('find').addEventListener('submit', (event) => {
    event.preventDefault();
    if (!find()) sayInstead(element('p', 'The database has no zone of this name.'));
  });
  // A zone that is picked from the list arrives as a whole, not key by key.
  at('zone').addEventListener('input', (event) => {
    if (event.inputType === undefined || event.inputType === 'insertReplacementText') find();
  });
  at('ask').addEventListener('submit', (event) => {
    event.preventDefault();
    const point = parsePoint(at('point').value);
    if (!point) {
      sayInstead(element('p', 'Enter a latitude and a longitude, such as 48.8566, 2.3522.'));
      return;
    }
    map.show(point.lat, point.lon, Math.max(map.transform.k, 12));
    answerAt(point.lat, point.lon);
  });
  at('in').addEventListener('click', () => map.zoomBy(2));
  at('out').addEventListener('click', () => map.zoomBy(0.5));
  document.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.key === 'Escape') {
      at('zone').value = at('point').value = '';
      sayInstead();
      at('map').focus();
      return;
    }
    if (event.target !== at('map') && event.target !== document.body) return;
    const act = {
      'ArrowLeft': () => map.pan(80, 0), 'ArrowRight': () => map.pan(-80, 0),
      'ArrowUp': () => map.pan(0, 80), 'ArrowDown': () => map.pan(0, -80),
      '+': () => map.zoomBy(2), '=': () => map.zoomBy(2), '-': () => map.zoomBy(0.5),
      '/': () => {
        at('zone').focus();
        at('zone').select();
      },
      'Enter': () => answerAt(...map.center()),
    }[event.key];
    if (!act) return;
    event.preventDefault();
    act();
  });
  for (const { properties: change } of changes) {
    const button = element('button',
        `${change.km2.toFixed(3)} km² from ${change.from ?? 'no zone'} to ${change.to ?? 'no zone'}`);
    button.addEventListener('click', () => {
      // The bounding box of an area that crosses the antimeridian may span the world.
      if (change.box[2] - change.box[0] < 180) map.showBox(change.box); else map.show(...change.sample, 8);
      answerAt(...change.sample);
    });
    const item = document.createElement('li');
    item.append(button);
    at('list').append(item);
  }
  at('changes').hidden = data.databases.length < 2;

  if (changes.length === 0) at('list').replaceWith(element('p', 'No area changes its zone, or the areas are too small to be listed.'));

  const goToAddress = () => {
    const numbers = location.hash.slice(1).split(',').map((text) => (text === '' ? NaN : Number(text)));
    const [lat, lon, k, ...point] = numbers;
    if (numbers.slice(0, 3).every(Number.isFinite) && isPlace(lat, lon)) map.show(lat, lon, k);
    else map.show(20, 0, 1);
    if (point.length === 2 && isPlace(...point)) answerAt(...point);
  };
  addEventListener('hashchange', goToAddress);
  goToAddress();
  // For tests, and for measuring the time of a frame.
  window.offlinetzMap = map;
}

const data = JSON.parse(at('data').textContent);
if (data === null) {
  at('title').textContent = 'This template contains no database. `offlinetz map` adds one.';
} else {
  start(data).catch((error) => { at('answer').textContent = error.message; });
}
