// Tests the page of `offlinetz map` as users operate it: by clicks, taps and keys at known places.
// Usage: node --test page_test.mjs, with the program in OFFLINETZ and a world database in WORLD
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { openBrowser, openPage } from './browser.mjs';

const { OFFLINETZ, WORLD } = process.env;
const directory = mkdtempSync(join(tmpdir(), 'page-'));
const inDirectory = (name) => join(directory, name);
const offlinetz = (...words) => execFileSync(OFFLINETZ, words, { encoding: 'utf8' });
let browser;

const square = (tzid, west, east, north = 10) => ({
  type: 'Feature', properties: { tzid },
  geometry: { type: 'Polygon', coordinates: [[[west, 0], [east, 0], [east, north], [west, north], [west, 0]]] },
});
function compile(name, features, ...options) {
  writeFileSync(inDirectory(`${name}.json`), JSON.stringify({ type: 'FeatureCollection', features }));
  offlinetz('compile', inDirectory(`${name}.json`), '-o', inDirectory(`${name}.bin`), '--precision', '20', '--max-error', '0',
      '--notice', '<!-- <script>', ...options);
  return inDirectory(`${name}.bin`);
}

// The terms and the descriptions of the answer.
const answer = (page) => page.$$eval('#answer dt', (terms) =>
  Object.fromEntries(terms.map((term) => [term.textContent, term.nextSibling.textContent])));
const type = async (page, selector, text) => {
  await page.click(selector, { clickCount: 3 });
  await page.keyboard.type(text);
  await page.keyboard.press('Enter');
};
const placeOnScreen = (page, lat, lon) => page.evaluate(([lat, lon]) => {
  const box = document.getElementById('map').getBoundingClientRect();
  const [x, y] = window.offlinetzMap.toScreen(lat, lon);
  return [box.left + x, box.top + y];
}, [lat, lon]);
// The colour at a place after the next frame.
const colourAt = (page, lat, lon) => page.evaluate(async ([lat, lon]) => {
  await new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)));
  const { context, canvas } = window.offlinetzMap;
  const [x, y] = window.offlinetzMap.toScreen(lat, lon);
  const ratio = canvas.width / canvas.clientWidth;
  return [...context.getImageData(x * ratio, y * ratio, 1, 1).data.slice(0, 3)];
}, [lat, lon]);

before(async () => {
  offlinetz('map', WORLD, '-o', inDirectory('world.html'));
  browser = await openBrowser();
});
after(async () => {
  await browser.close();
  rmSync(directory, { recursive: true });
});

test('places clicked at low and high zoom have the answers of the library', async () => {
  const page = await openPage(browser, inDirectory('world.html'));
  const places = [
    [48.8566, 2.3522, 'Europe/Paris', '"Europe/Paris"', 'Etc/GMT'],
    [-33.9, 18.6, 'Africa/Johannesburg', '"Africa/Johannesburg"', 'Etc/GMT-1'],
    [64.15, -21, 'Atlantic/Reykjavik', '"Atlantic/Reykjavik"', 'Etc/GMT+1'],
    [0.5, -30.5, 'Etc/GMT+2', '"Etc/GMT+2"', 'America/Noronha'],
    [43.8, 87.6, 'Asia/Shanghai and Asia/Urumqi', '"Asia/Shanghai""Asia/Urumqi"', 'Asia/Hovd'],
  ];
  for (const k of [1, 3000]) {
    for (const [lat, lon, zones, raw, beyond] of places) {
      await page.evaluate((lat, lon, k) => window.offlinetzMap.show(k > 1 ? lat : 20, k > 1 ? lon : 0, k), lat, lon, k);
      await page.mouse.click(...(await placeOnScreen(page, lat, lon)));
      const said = await answer(page);
      assert.equal(said.Zones, zones);
      assert.equal(said['A client gets'], raw);
      assert.equal(said['Nearest border'].replace(/^[\d.]+ k?m: /, ''), beyond);
      assert.match(said['The lookup read'], /^(1 ring|\d+ rings) with \d+ points$/);
      const [x, y] = await placeOnScreen(page, lat, lon);
      await page.mouse.move(x + 1, y + 1);
      await page.waitForFunction((text) => document.getElementById('hover').textContent === text, {}, zones);
    }
  }
  // It requests nothing but itself.
  assert.deepEqual(page.wanted.filter((url) => !url.startsWith('data:')), [`file://${inDirectory('world.html')}`]);
  assert.deepEqual(page.faults, []);
});

test('the nearest border is marked, and the circle through it crosses the antimeridian', async () => {
  const zone = [square('Test/Line', 140, 180, 60), square('Test/Line', -180, -140, 60)];
  const show = async (...options) => {
    offlinetz('map', compile('line', zone, ...options), '-o', inDirectory('line.html'));
    return openPage(browser, inDirectory('line.html'));
  };
  const page = await show();
  await type(page, '#point', '20, 175');
  assert.equal((await answer(page))['Nearest border'], '2223 km: no zone');
  await page.evaluate(() => window.offlinetzMap.show(20, 0, 1));
  assert.deepEqual(await colourAt(page, 0, 175), [255, 255, 255]);
  // At 20 degrees north the circle reaches from 153.7 degrees east to 163.7 west.
  const inside = await colourAt(page, 20, 155), outside = await colourAt(page, 20, 152);
  assert.notDeepEqual(inside, outside);
  assert.deepEqual(await colourAt(page, 20, -165), inside);
  assert.deepEqual(await colourAt(page, 20, -162), outside);
  await type(page, '#point', '-0.02, 175');
  const said = await answer(page);
  assert.equal(said['Nearest border'], '2223 m: Test/Line');
  assert.match(said['The answer holds within'], /^21\d\d m$/);
  // Without tiles the nearest border is not known.
  const whole = await show('--max-tile-points', '0');
  await type(whole, '#point', '20, 175');
  assert.equal((await answer(whole)).Zones, 'Test/Line');
  assert.equal((await answer(whole))['Nearest border'], undefined);
});

test('the rings that lookups read are drawn at high zoom as the zones are at low zoom', async () => {
  const page = await openPage(browser, inDirectory('world.html'));
  const coloursAt = async (k) => {
    await page.evaluate((k) => window.offlinetzMap.show(47.5, 2.5, k), k);
    return [await colourAt(page, 47.49, 2.49), await colourAt(page, 47.51, 2.51)];
  };
  const unmarked = await coloursAt(20);
  assert.deepEqual(await coloursAt(3000), unmarked);
  await type(page, '#zone', 'Europe/Paris');
  const marked = await coloursAt(20);
  assert.notDeepEqual(marked, unmarked);
  assert.deepEqual(await coloursAt(3000), marked);
  // An enclave is visible although its name sorts before that of the zone around it.
  await page.evaluate(() => window.offlinetzMap.show(47.696, 8.69, 1500));
  assert.notDeepEqual(await colourAt(page, 47.696, 8.69), await colourAt(page, 47.68, 8.62));
  // At a coast nothing is drawn over the sea.
  await page.evaluate(() => window.offlinetzMap.show(43.1, -9.5, 150));
  assert.deepEqual(await colourAt(page, 43.1, -10.4), [0xdf, 0xe9, 0xef]);
  assert.notDeepEqual(await colourAt(page, 43, -8.7), [0xdf, 0xe9, 0xef]);
});

test('keys alone find a zone, move, zoom, look up and clear', async () => {
  const page = await openPage(browser, inDirectory('world.html'));
  await page.keyboard.press('/');
  await page.keyboard.type('europe/lisbon\n');
  assert.deepEqual(Object.keys(await answer(page)), ['Europe/Lisbon']);
  const colour = await colourAt(page, 39.5, -8);
  await page.keyboard.type('x\n');
  assert.equal(await page.$eval('#answer', (e) => e.textContent), 'The database has no zone of this name.');
  await page.keyboard.type('y');
  await page.keyboard.press('Escape');
  assert.notDeepEqual(await colourAt(page, 39.5, -8), colour);
  assert.deepEqual(await answer(page), {});
  await page.keyboard.type('/europe/lisbon\n');
  assert.deepEqual(Object.keys(await answer(page)), ['Europe/Lisbon']);
  await page.click('#map');
  const view = () => page.evaluate(() => window.offlinetzMap.view());
  const [lat, lon, k] = await view();
  await page.keyboard.press('+');
  await page.waitForFunction((k) => Math.abs(window.offlinetzMap.view()[2] - 2 * k) < 1e-3 * k, {}, k);
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('ArrowUp');
  const moved = await view();
  assert.ok(moved[0] > lat && moved[1] > lon, `${moved}`);
  await page.evaluate(() => window.offlinetzMap.show(38.75, -9.2, 50));
  await page.keyboard.press('Enter');
  assert.equal((await answer(page)).Zones, 'Europe/Lisbon');
});

test('coordinates are typed as people write them', async () => {
  const page = await openPage(browser, inDirectory('world.html'));
  for (const [text, zones] of [
    ['52.52, 13.405', 'Europe/Berlin'], ['-36.85 174.76', 'Pacific/Auckland'],
    ['33.9°S 151.2°E', 'Australia/Sydney'], ['151.2E 33.9S', 'Australia/Sydney'],
    ['E 13.405 N 52.52', 'Europe/Berlin'], ['\u221236.85;174.76', 'Pacific/Auckland'],
    ['.5, .25', 'Etc/GMT'], ['91, 0', undefined], ['here 5 6', undefined],
    ['-33.9S 151.2E', undefined], ['10N 20N', undefined], ['1 2 3', undefined],
  ]) {
    await type(page, '#point', text);
    assert.equal((await answer(page)).Zones, zones, text);
  }
  // The address keeps the view and the point.
  await type(page, '#point', '52.52, 13.405');
  const url = page.url();
  const again = await openPage(browser, inDirectory('world.html') + new URL(url).hash);
  assert.equal((await answer(again)).Zones, 'Europe/Berlin');
  await again.evaluate(() => { location.hash = '#a,b,5,x,'; });
  await again.waitForFunction(() => window.offlinetzMap.view()[2] === 1);
});

test('a drag looks nothing up, and a resized window shows the same place', async () => {
  const page = await openPage(browser, inDirectory('world.html'));
  await page.evaluate(() => window.offlinetzMap.show(48.85, 2.35, 400));
  await page.mouse.move(400, 400);
  await page.mouse.down();
  await page.mouse.move(440, 380, { steps: 4 });
  await page.mouse.up();
  assert.deepEqual(await answer(page), {});
  const [lat, lon] = await page.evaluate(() => window.offlinetzMap.view());
  assert.ok(lon < 2.35 && lat < 48.85, `${lat} ${lon}`);
  await page.setViewport({ width: 844, height: 390 });
  await page.waitForFunction((lat, lon) => {
    const [a, b] = window.offlinetzMap.view();
    return Math.hypot(a - lat, b - lon) < 1e-6 && document.getElementById('map').clientHeight === 390;
  }, {}, lat, lon);
});

test('a phone in dark mode shows all controls and answers a tap', async () => {
  const page = await openPage(browser, inDirectory('world.html'), {
    width: 390, height: 844, dark: true, isMobile: true, hasTouch: true, deviceScaleFactor: 3,
  });
  for (const part of ['#map', '#find', '#ask', '#in']) {
    const { left, right, top, bottom } = await page.$eval(part, (e) => e.getBoundingClientRect().toJSON());
    assert.ok(left >= 0 && right <= 390 && top >= 0 && bottom <= 844, part);
  }
  assert.ok((await colourAt(page, 0, -30)).every((part) => part < 80));
  const background = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  assert.equal(background, 'rgb(20, 25, 29)');
  await page.evaluate(() => window.offlinetzMap.show(35.7, 139.7, 40));
  await page.touchscreen.tap(...(await placeOnScreen(page, 35.7, 139.7)));
  await page.waitForSelector('#answer dt');
  assert.equal((await answer(page)).Zones, 'Asia/Tokyo');
});

test('two databases show the changed areas, and the answer of each there', async () => {
  const name = '</script><img src=x onerror=window.taken=1>';
  const was = compile('was', [square('Test/West', 0, 10), square(name, 10, 20)]);
  const is = compile('is', [square('Test/West', 0, 12), square(name, 12, 20), square('Test/Far', 80, 83)]);
  offlinetz('map', was, is, '-o', inDirectory('change.html'));
  const page = await openPage(browser, inDirectory('change.html'));
  const buttons = await page.$$('#list button');
  assert.equal(buttons.length, 2);
  const text = await buttons[1].evaluate((button) => button.textContent);
  assert.match(text, /^2460\d\d\.\d{3} km² from .*img.* to Test\/West$/);
  await buttons[1].click();
  const said = await answer(page);
  assert.equal(said['Zones in was.bin'], name);
  assert.equal(said['Zones in is.bin'], 'Test/West');
  assert.equal(await page.evaluate(() => window.taken), undefined);
  assert.deepEqual(page.faults, []);
});
