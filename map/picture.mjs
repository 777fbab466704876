// Takes a screenshot of a page of `offlinetz map` for the documents, and measures the time of a frame
// while the map pans on a phone-sized screen.
// Usage: node picture.mjs PAGE PICTURE
import { openBrowser, openPage } from './browser.mjs';

const [path, picture] = process.argv.slice(2);
const browser = await openBrowser();
const page = await openPage(browser, path, { width: 1100, height: 620 });
await page.evaluate(() => window.offlinetzMap.show(49, 8, 14));
await page.type('#point', '48.8566, 2.3522\n');
await page.screenshot({ path: picture });

for (const deviceScaleFactor of [1, 2, 3]) {
  const phone = await openPage(browser, path, { width: 390, height: 844, isMobile: true, deviceScaleFactor });
  const costs = await phone.evaluate(async () => {
    const map = window.offlinetzMap;
    const measure = async (k) => {
      const times = [];
      map.show(49, 8, k);
      for (let i = 0; i < 120; ++i) {
        map.transform = map.transform.translate(i % 60 < 30 ? 0.3 : -0.3, 0);
        const start = performance.now();
        map.draw();
        // Reading a pixel makes the canvas finish deferred drawing.
        map.context.getImageData(0, 0, 1, 1);
        times.push(performance.now() - start);
        await new Promise((done) => requestAnimationFrame(done));
      }
      times.sort((a, b) => a - b);
      return `${times[60].toFixed(1)} ms, slowest ${times.at(-1).toFixed(1)} ms`;
    };
    return { world: await measure(1), continent: await measure(8), near: await measure(400) };
  });
  for (const [what, cost] of Object.entries(costs))
    console.log(`390x844, ${deviceScaleFactor} pixels a unit, ${what}: a frame takes ${cost}`);
}
await browser.close();
