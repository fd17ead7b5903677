// SPDX-License-Identifier: MIT
// A browser for tests, and what every test asks of a page.
import assert from 'node:assert/strict';
import { chromium } from 'playwright-core';

export const PATIENCE_MS = 30000; // a loaded machine is slow, not wrong

let browser;

export async function launch() {
  browser ??= await chromium.launch({
    executablePath: process.env.VK410_CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox'],
  });
  return browser;
}

export async function closeBrowser() {
  await browser?.close();
  browser = undefined;
}

/// A page at an address. `complaints` collects console errors and warnings, exceptions and requests to other
/// hosts; a test that expects some (a server that goes away) looks at them itself.
export async function openPage(address, options = {}) {
  const context = await (
    await launch()
  ).newContext({ viewport: { width: 1280, height: 720 }, colorScheme: 'dark', ...options });
  const page = await context.newPage();
  page.setDefaultTimeout(PATIENCE_MS);
  page.complaints = [];
  const isOurs = (text) => text.includes('willReadFrequently'); // the tests read canvases, the page does not
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type()) && !isOurs(message.text()))
      page.complaints.push(message.text());
  });
  page.on('pageerror', (error) => page.complaints.push(String(error.stack)));
  page.on('request', (request) => {
    const { hostname, protocol } = new URL(request.url());
    if (hostname !== new URL(address).hostname && !['blob:', 'data:'].includes(protocol))
      page.complaints.push(`request to ${request.url()}`);
  });
  await page.goto(address);
  return page;
}

export async function closeQuietly(page) {
  assert.deepEqual(page.complaints, []);
  await page.context().close();
}

export const textOf = (page, selector) => page.locator(selector).innerText();

export const waitForText = (page, selector, pattern) =>
  page.waitForFunction(
    ([s, p]) => new RegExp(p).test(document.querySelector(s)?.innerText ?? ''),
    [selector, pattern.source],
  );

export const queryOf = (page) => new URL(page.url()).searchParams;

export const waitForQuery = (page, name, pattern) =>
  page.waitForFunction(
    ([n, p]) => new RegExp(p).test(new URL(location.href).searchParams.get(n) ?? ''),
    [name, pattern.source],
  );

/// Where a share of the axis lies on the screen: the middle of a plot's height, the gutter left out.
export async function placeOn(page, selector, share, height = 0.5) {
  const box = await page.locator(selector).boundingBox();
  return { x: box.x + 56 + share * (box.width - 56 - 12), y: box.y + height * box.height };
}

/// The brightest colour [r, g, b] of three pixels of a canvas, about a share of the axis at a height in CSS
/// pixels.
export function pixelOf(page, selector, share, y) {
  return page.evaluate(
    ([s, where, top]) => {
      const canvas = document.querySelector(s);
      const ratio = devicePixelRatio;
      const x = Math.round((56 + where * (canvas.clientWidth - 56 - 12)) * ratio);
      const { data } = canvas.getContext('2d').getImageData(x - 1, Math.round(top * ratio), 3, 1);
      return [0, 4, 8]
        .map((i) => [...data.slice(i, i + 3)])
        .sort((a, b) => b[0] + b[1] + b[2] - a[0] - a[1] - a[2])[0];
    },
    [selector, share, y],
  );
}

/// Height in CSS pixels of the highest pixel of a colour near a share of the axis; -1: none.
export function highestOf(page, selector, share, colour) {
  return page.evaluate(
    ([s, where, [r, g, b]]) => {
      const canvas = document.querySelector(s);
      const ratio = devicePixelRatio;
      const middle = Math.round((56 + where * (canvas.clientWidth - 56 - 12)) * ratio);
      const { data, width } = canvas.getContext('2d').getImageData(middle - 3, 0, 7, canvas.height);
      for (let i = 0; i < data.length; i += 4)
        if (Math.abs(data[i] - r) + Math.abs(data[i + 1] - g) + Math.abs(data[i + 2] - b) < 60)
          return Math.floor(i / 4 / width) / ratio;
      return -1;
    },
    [selector, share, colour],
  );
}

/// Waits until a condition of this process holds.
export async function until(condition, what) {
  const end = Date.now() + PATIENCE_MS;
  while (!(await condition())) {
    assert.ok(Date.now() < end, `waited in vain for ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
}
