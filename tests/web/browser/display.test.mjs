// SPDX-License-Identifier: MIT
// What the page draws of a band whose every level is known.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import {
  closeBrowser,
  closeQuietly,
  highestOf,
  openPage,
  pixelOf,
  placeOn,
  textOf,
  until,
  waitForQuery,
  waitForText,
} from '../support/browser.mjs';
import { StandIn } from '../support/server.mjs';

const SPECTRUM = '#spectrum .plot canvas';
const WATERFALL = '#waterfall .picture canvas';
const LIVE = [92, 200, 220]; // --live of the dark theme
const shareOf = (hz) => (hz - (95e6 - 3125)) / (10e6 + 6250);

let server;
before(async () => {
  server = await new StandIn().start();
});
after(async () => {
  await closeBrowser();
  await server.stop();
});

async function openLive(query = '', options = {}) {
  const page = await openPage(server.address + query, options);
  await waitForText(page, '#state', /^live/);
  await page.waitForSelector('#spectrum:not([hidden])');
  return page;
}

/// A page whose spectrum has been drawn with given levels on its axis.
async function openWithLevels(query = 'level=-20_80&colours=0_60&traces=live') {
  const page = await openLive(`?${query}`);
  await until(async () => (await highestOf(page, SPECTRUM, shareOf(100e6), LIVE)) > 0, 'a trace');
  return page;
}

test('the page is alive within two seconds, and its first paint within one', async () => {
  const times = [];
  for (let i = 0; i < 3; ++i) {
    // of three, since a loaded machine may pause once
    const page = await openLive();
    const [alive, paint] = await page.evaluate(() => [
      performance.now(),
      performance.getEntriesByName('first-contentful-paint')[0]?.startTime ?? Infinity,
    ]);
    times.push({ alive, paint });
    await closeQuietly(page);
  }
  assert.ok(Math.min(...times.map((t) => t.alive)) < 2000, JSON.stringify(times));
  assert.ok(Math.min(...times.map((t) => t.paint)) < 1000, JSON.stringify(times));
});

test('carriers stand in the spectrum at their frequencies, in order of their levels', async () => {
  const page = await openWithLevels();
  const [high, middle, low, floor] = await Promise.all(
    [97e6, 100e6, 103.25e6, 98.3e6].map((hz) => highestOf(page, SPECTRUM, shareOf(hz), LIVE)),
  );

  assert.ok(high > 0 && high < middle && middle < low && low < floor, `${[high, middle, low, floor]}`);
  // 60, 45 and 30 dB on one axis of 100 dB: equal distances, to a few pixels.
  assert.ok(Math.abs(middle - high - (low - middle)) <= 3, `${[high, middle, low]}`);
  await closeQuietly(page);
});

test('what has no value is a gap, not a low level', async () => {
  const page = await openWithLevels();

  assert.notEqual(await highestOf(page, SPECTRUM, 0.95, LIVE), -1);
  assert.equal(await highestOf(page, SPECTRUM, 0.994, LIVE), -1);
  await closeQuietly(page);
});

test('the drawing says that it shows the highest of several channels, and every channel when zoomed in', async () => {
  const page = await openWithLevels();
  assert.match(await textOf(page, '#drawn'), /highest of \d drawn/);

  const { x, y } = await placeOn(page, '#spectrum .plot', shareOf(100e6));
  await page.mouse.move(x, y);
  for (let i = 0; i < 12; ++i) await page.mouse.wheel(0, -100);

  await waitForText(page, '#drawn', /every channel drawn/);
  assert.ok((await highestOf(page, SPECTRUM, 0.5, LIVE)) >= 0);
  await closeQuietly(page);
});

test('the waterfall shows carriers in the colours of their levels', async () => {
  const page = await openWithLevels();
  const brightness = (rgb) => rgb[0] + rgb[1] + rgb[2];
  await until(
    async () => brightness(await pixelOf(page, WATERFALL, shareOf(97e6), 10)) > 300,
    'a row at ten pixels',
  );

  const [strong, weak, floor] = await Promise.all(
    [97e6, 103.25e6, 98.3e6].map((hz) => pixelOf(page, WATERFALL, shareOf(hz), 10)),
  );
  assert.deepEqual(
    strong.map((x, i) => Math.abs(x - [253, 231, 37][i]) < 12),
    [true, true, true],
    `${strong}`,
  ); // the end of viridis
  assert.ok(
    brightness(strong) > brightness(weak) && brightness(weak) > brightness(floor),
    `${[strong, weak, floor]}`,
  );
  await closeQuietly(page);
});

test('rows whose traces were lost are hatched and stay a hole', async () => {
  const page = await openWithLevels('level=-20_80&colours=0_60&row=20');
  const isCarrier = ([r, g]) => r > 200 && g > 180;
  await until(async () => isCarrier(await pixelOf(page, WATERFALL, shareOf(97e6), 110)), 'a full picture');
  server.lose = 60; // a second of 60 traces: 50 rows
  await until(() => server.lose === 0, 'losses');
  await until(async () => (await rowsMarkedLost(page)) >= 40, 'marks of the loss');

  const rows = await Promise.all(
    [...Array(28).keys()].map((i) => pixelOf(page, WATERFALL, shareOf(97e6), 2 + i * 4)),
  );
  const holes = rows.filter((rgb) => !isCarrier(rgb)).length;
  assert.ok(holes >= 9 && holes <= 16, `${holes} of 28 rows in 112 pixels have no carrier`);
  await closeQuietly(page);
});

/// Rows that have the red mark of a loss at the edge.
function rowsMarkedLost(page) {
  return page.evaluate(() => {
    const canvas = document.querySelector('#waterfall .picture canvas');
    const { data } = canvas.getContext('2d').getImageData(canvas.width - 8, 0, 1, canvas.height);
    let red = 0;
    for (let i = 0; i < data.length; i += 4) red += data[i] > 200 && data[i + 1] < 140;
    return red;
  });
}

test('hovering tells frequency, level and time', async () => {
  const page = await openWithLevels();
  const at = await placeOn(page, '#waterfall .picture', shareOf(100e6), 0.05);
  const reading = /^(99\.99|100\.00)\d+ MHz\s+(45|37|29)\.0 dBµV\s+\d\d:\d\d:\d\d\.\d{3}/;
  await until(async () => {
    await page.mouse.move(at.x, at.y); // again: a busy machine may have left a row out just there
    return reading.test(await textOf(page, '#waterfall .readout'));
  }, 'a reading');
  await closeQuietly(page);
});

test('bearings have the colour of their direction on the axis of the spectrum, and are told with the convention', async () => {
  const page = await openLive();
  await page.waitForSelector('#right:not([hidden])');
  await until(
    async () => Math.max(...(await pixelOf(page, '#bearings .picture canvas', shareOf(98.5e6), 6))) > 120,
    'a bearing',
  );
  assert.deepEqual(await pixelOf(page, '#bearings .picture canvas', shareOf(96e6), 6), [16, 21, 26]);

  await waitForText(page, '#emitters tbody', /98\.50\d* MHz\s+123\.4°\s+1\.2°\s+92 %/);
  await waitForText(page, '#selected', /98\.50\d* MHz\s+12\d\.\d° ± /); // of the best quality, until one is chosen
  for (const panel of ['#bearings', '#compass', '#emitters', '#track'])
    assert.match(await textOf(page, `${panel} .convention`), /clockwise from north/);
  await closeQuietly(page);
});

test('a minimum of quality takes weaker bearings out', async () => {
  const page = await openLive();
  await page.click('#emitters tbody tr:nth-child(2)');
  await waitForText(page, '#selected', /102\.00\d* MHz\s+27\d\.\d°/);

  await page.fill('#quality', '80');

  await waitForText(page, '#selected', /102\.00\d* MHz\s+no bearing/);
  await waitForQuery(page, 'selected', /^102000000$/);
  await closeQuietly(page);
});

test('text from data stays text', async () => {
  const page = await openLive('?tool=values');
  await waitForText(page, '#tool-values tbody', /<img src=x>/);

  assert.equal(await page.locator('#tool-values tbody img, #tool-values tbody b').count(), 0);
  await page.fill('#filter', 'frequency');
  await waitForText(page, '#valuecount', /1 of 2/);
  assert.equal(await page.locator('#tool-values tbody tr:visible').count(), 1);
  await closeQuietly(page);
});

test('panels without data are not there', async (t) => {
  const plain = await new StandIn({ bearings: false, zeroSpan: false }).start();
  t.after(() => plain.stop());
  const page = await openPage(plain.address);
  await page.waitForSelector('#spectrum:not([hidden])');

  for (const id of ['right', 'bearings', 'zerospan', 'timebar', 'waiting'])
    assert.equal(await page.locator(`#${id}`).isVisible(), false, id);
  await closeQuietly(page);
});

for (const [name, viewport] of [
  ['a phone', { width: 390, height: 844 }],
  ['a small screen', { width: 1280, height: 720 }],
])
  test(`everything fits the width of ${name}`, async () => {
    const page = await openLive('', { viewport });
    await page.waitForSelector('#right:not([hidden])');
    const wide = await page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
    assert.ok(wide <= 0, `${wide} pixels too wide`);
    for (const id of ['spectrum', 'waterfall', 'bearings', 'zerospan', 'compass', 'emitters', 'track']) {
      const box = await page.locator(`#${id}`).boundingBox();
      assert.ok(box.height >= 90 && box.width >= 300, `${id}: ${JSON.stringify(box)}`);
    }
    await closeQuietly(page);
  });
