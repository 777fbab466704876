// Opens a page of `offlinetz map` in a headless browser without a network.
import puppeteer from 'puppeteer-core';

export async function openBrowser() {
  return puppeteer.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    // The browser's sandbox does not start for root, and tests may run as root.
    args: ['--no-sandbox', '--disable-dev-shm-usage'],
  });
}

// Opens the page at a path and waits until its map is ready. `page.wanted` collects the URLs that it
// requests, `page.faults` its uncaught errors. Other options are passed to the viewport.
export async function openPage(browser, path, { width = 1200, height = 800, dark = false, ...options } = {}) {
  const page = await browser.newPage();
  page.wanted = [];
  page.faults = [];
  page.on('request', (request) => page.wanted.push(request.url()));
  page.on('pageerror', (error) => page.faults.push(error.message));
  await page.setViewport({ width, height, ...options });
  await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: dark ? 'dark' : 'light' }]);
  await page.setOfflineMode(true);
  await page.goto(`file://${path}`);
  await page.waitForFunction(() => window.offlinetzMap !== undefined);
  return page;
}
