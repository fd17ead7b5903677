// SPDX-License-Identifier: MIT
// Pointer, touch and keys, and what they leave in the address.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { after, before, test } from 'node:test';
import {
  closeBrowser,
  closeQuietly,
  openPage,
  placeOn,
  queryOf,
  textOf,
  until,
  waitForQuery,
  waitForText,
} from '../support/browser.mjs';
import { StandIn } from '../support/server.mjs';

const PLOT = '#spectrum .plot';
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
  await waitForText(page, '#drawn', /drawn/);
  for (const id of ['right', 'bearings', 'zerospan']) await page.waitForSelector(`#${id}:not([hidden])`); // then nothing moves any more
  await page.waitForFunction(
    () =>
      Math.abs(
        document.querySelector('#spectrum canvas').clientHeight -
          document.querySelector('#spectrum .plot').clientHeight,
      ) <= 1,
  );
  return page;
}

const spanOf = (page) => (queryOf(page).get('span') ?? '').split('_').map(Number);
const received = (command) => server.commands.filter((c) => c.command === command);

test('the wheel zooms at the cursor, drag pans, double click shows the full span', async () => {
  const page = await openLive();
  const { x, y } = await placeOn(page, PLOT, 0.25);
  await page.mouse.move(x, y);
  await page.mouse.wheel(0, -100);
  await waitForQuery(page, 'span', /_/);
  const zoomed = spanOf(page);
  assert.ok(Math.abs(zoomed[1] - zoomed[0] - 10.00625e6 / 1.25) < 2e4, `${zoomed}`);
  assert.ok(Math.abs(zoomed[0] + 0.25 * (zoomed[1] - zoomed[0]) - 97.5e6) < 3e4, `${zoomed}`);

  await page.mouse.down();
  await page.mouse.move(x + 100, y, { steps: 4 });
  await page.mouse.up();
  await until(() => spanOf(page)[0] < zoomed[0] - 5e5, 'a pan');
  assert.equal(queryOf(page).get('markers'), null, 'a drag is no click');

  await page.mouse.dblclick(x, y);
  await until(() => !queryOf(page).has('span'), 'the full span');
  await closeQuietly(page);
});

test('shift-drag zooms into a box, in frequency and level', async () => {
  const page = await openLive('?level=-20_80');
  const { height } = await page.locator(PLOT).boundingBox();
  const shareOfLevels = (share) => (8 + share * (height - 32)) / height; // 8 pixels above the axis, 24 below
  const from = await placeOn(page, PLOT, 0.4, shareOfLevels(0.25));
  const to = await placeOn(page, PLOT, 0.6, shareOfLevels(0.75));
  await page.keyboard.down('Shift');
  await page.mouse.move(from.x, from.y);
  await page.mouse.down();
  await page.mouse.move(to.x, to.y, { steps: 4 });
  await page.mouse.up();
  await page.keyboard.up('Shift');

  await waitForQuery(page, 'span', /_/);
  const [low, high] = spanOf(page);
  assert.ok(Math.abs(low - 99e6) < 5e4 && Math.abs(high - 101e6) < 5e4, `${[low, high]}`);
  await waitForQuery(page, 'level', /^(4\.9|5(\.0)?)\d*_(54\.9|55(\.0)?)\d*$/);
  assert.equal(await page.locator('.box').count(), 0);
  await closeQuietly(page);
});

test('two fingers zoom', async () => {
  const page = await openLive('', { viewport: { width: 390, height: 844 }, hasTouch: true, isMobile: true });
  const client = await page.context().newCDPSession(page);
  const { x, y } = await placeOn(page, PLOT, 0.5);
  const touch = (type, ...xs) =>
    client.send('Input.dispatchTouchEvent', { type, touchPoints: xs.map((at, id) => ({ x: at, y, id })) });
  await touch('touchStart', x - 30, x + 30);
  for (const d of [40, 60, 80, 90]) await touch('touchMove', x - d, x + d);
  await touch('touchEnd');

  await waitForQuery(page, 'span', /_/);
  const [low, high] = spanOf(page);
  assert.ok(Math.abs(high - low - 10.00625e6 / 3) < 8e5, `${[low, high]}`);
  assert.ok(Math.abs((high + low) / 2 - 100e6) < 3e5, `${[low, high]}`);
  await closeQuietly(page);
});

test('a click sets a marker, M goes to the next peak, D measures from it', async () => {
  const page = await openLive();
  const { x, y } = await placeOn(page, PLOT, 0.9);
  await page.mouse.click(x, y);
  await waitForText(page, '#markers', /^M1 104\.00\d+ MHz/);

  await page.keyboard.press('Escape');
  await waitForText(page, '#markers', /^$/);
  await page.keyboard.press('m');
  await waitForText(
    page,
    '#markers',
    /^M1 97\.00000? MHz\s+60\.0 dBµV|^M1 97\.0000 MHz 60\.0 dBµV|^M1 97\.000 MHz\s+60\.0 dBµV/,
  );
  await page.keyboard.press('d');
  await page.keyboard.press('m');
  await waitForText(page, '#markers', /M2−M1 \+3\.000\d* MHz \/ −15\.0 dB/);
  await page.keyboard.press('m');
  await waitForText(page, '#markers', /M2−M1 \+6\.250\d* MHz \/ −30\.0 dB/);
  await waitForQuery(page, 'markers', /^97000000_103250000$/);
  await closeQuietly(page);
});

test('traces are asked for as they are shown, and P shows the hold', async () => {
  const page = await openLive();
  await page.keyboard.press('p');
  await until(() => server.commands.at(-1).arrays?.includes('hold'), 'a subscription to hold');
  assert.deepEqual(server.commands.at(-1).arrays, ['live', 'max', 'hold']);
  await waitForQuery(page, 'traces', /^live\.max\.hold$/);

  await page.keyboard.press('p');
  await until(() => server.commands.at(-1).arrays.length === 2, 'a subscription without hold');
  await closeQuietly(page);
});

test('R resets the holds of the server', async () => {
  const page = await openLive();
  const before = received('resetHolds').length;
  await page.keyboard.press('r');
  await until(() => received('resetHolds').length === before + 1, 'resetHolds');
  await closeQuietly(page);
});

test('A sets the levels once, X always, Z shows the full span, U changes the unit', async () => {
  const page = await openLive('?span=97000000_98000000&level=20_30&colours=20_30');
  await page.keyboard.press('a');
  await waitForQuery(page, 'level', /^-10_80$/);
  await page.keyboard.press('x');
  await waitForQuery(page, 'auto', /^1$/);
  assert.equal(await page.getAttribute('#autoalways', 'aria-pressed'), 'true');
  await page.keyboard.press('z');
  await until(() => !queryOf(page).has('span'), 'the full span');
  await page.keyboard.press('m');
  await page.keyboard.press('u');
  await waitForText(page, '#markers', /M1 97\.000\d* MHz\s+-47\.0 dBm/);
  await closeQuietly(page);
});

test('space pauses while data flows on, a badge tells how far behind, L is live again', async () => {
  const page = await openLive();
  await page.keyboard.press(' ');
  await waitForText(page, '#state', /live, display paused/);
  const shown = await textOf(page, '#utc');
  await waitForText(page, '#behind', /^[2-9]\.\d s behind$/);

  assert.equal(await textOf(page, '#utc'), shown);
  assert.match(await textOf(page, '#age'), /ms$/); // what arrives is as young as ever
  const { x, y } = await placeOn(page, '#waterfall .picture', 0.5, 0.2);
  await page.mouse.move(x, y);
  await page.mouse.down();
  await page.mouse.move(x, y - 20, { steps: 3 });
  await page.mouse.up();
  await until(async () => (await textOf(page, '#utc')) < shown, 'an earlier moment');

  await page.keyboard.press('l');
  await waitForText(page, '#state', /^live$/);
  assert.equal(await page.locator('#behind').isVisible(), false);
  await until(() => !queryOf(page).has('paused'), 'an address without the pause');
  await closeQuietly(page);
});

test('the keyboard map opens with ? and names every key', async () => {
  const page = await openLive();
  await page.keyboard.press('?');
  await page.waitForSelector('#keys[open]');
  const keys = await page.locator('#keys kbd').allInnerTexts();

  assert.deepEqual(
    ['space', 'L', 'M', 'D', 'P', 'R', 'A', 'X', 'Z', 'S', 'E', '?', 'wheel', 'pinch'].filter(
      (key) => !keys.includes(key),
    ),
    [],
  );
  await closeQuietly(page);
});

test('keys that are typed into a field do nothing else', async () => {
  const page = await openLive('?tool=values');
  await page.focus('#filter');
  await page.keyboard.type('map x');

  assert.equal(await page.inputValue('#filter'), 'map x');
  await waitForQuery(page, 'filter', /map x/);
  assert.ok(!queryOf(page).has('markers') && !queryOf(page).has('auto') && !queryOf(page).has('paused'));
  await closeQuietly(page);
});

test('E exports the channels on display with their levels, gaps empty', async () => {
  const page = await openLive('?span=96990000_97010000&traces=live.min');
  const [download] = await Promise.all([page.waitForEvent('download'), page.keyboard.press('e')]);
  const lines = (await readFile(await download.path(), 'utf8')).split('\n');

  assert.match(download.suggestedFilename(), /^vk410-20\d\d-.*\.csv$/);
  assert.deepEqual(lines.slice(0, 1), ['# source udp 127.0.0.1:5555']);
  assert.match(lines[1], /^# time 20\d\d-/);
  assert.deepEqual(lines.slice(2, 4), ['# levels in dBuV', 'frequency_hz,live,min']);
  const rows = lines
    .slice(4)
    .filter(Boolean)
    .map((line) => line.split(','));
  assert.deepEqual(
    rows.map(([hz]) => Number(hz)),
    [96987500, 96993750, 97000000, 97006250, 97012500],
  );
  assert.deepEqual(
    rows.map(([, live]) => Number(live)),
    [44, 52, 60, 52, 44],
  );
  await closeQuietly(page);
});

test('what was not measured is empty in an export', async () => {
  const page = await openLive('?span=104980000_105000000&traces=live');
  const [download] = await Promise.all([page.waitForEvent('download'), page.keyboard.press('e')]);
  const rows = (await readFile(await download.path(), 'utf8')).trimEnd().split('\n').slice(4);

  assert.ok(rows.length >= 3);
  assert.deepEqual(
    rows.map((row) => row.split(',')[1]),
    rows.map(() => ''),
  );
  await closeQuietly(page);
});

test('S saves a picture', async () => {
  const page = await openLive();
  const [download] = await Promise.all([page.waitForEvent('download'), page.keyboard.press('s')]);
  const bytes = await readFile(await download.path());

  assert.equal(bytes.subarray(1, 4).toString(), 'PNG');
  assert.ok(
    bytes.readUInt32BE(16) > 700 && bytes.readUInt32BE(20) > 400,
    `${bytes.readUInt32BE(16)} x ${bytes.readUInt32BE(20)}`,
  );
  await closeQuietly(page);
});

test('an address brings back what it was copied from', async () => {
  const query =
    '?span=99000000_101000000&traces=live.average&level=0_70&colours=5_50&markers=100000000&quality=70&row=100&theme=light&tool=values&filter=name&paused=1';
  const page = await openLive(query);

  await waitForText(page, '#markers', /^M1 100\.000\d* MHz/);
  await waitForText(page, '#state', /display paused/);
  assert.equal(await page.getAttribute('html', 'data-theme'), 'light');
  assert.equal(await page.inputValue('#quality'), '70');
  assert.equal(await page.inputValue('#row'), '100');
  assert.equal(await page.inputValue('#filter'), 'name');
  assert.equal(await page.locator('#tool-values').isVisible(), true);
  assert.deepEqual(await page.locator('#tracebuttons button[aria-pressed="true"]').allInnerTexts(), [
    'live',
    'avg 16',
  ]);
  assert.match(await textOf(page, '#colourbar'), /5\s+50 dBµV/);
  await page.keyboard.press('t'); // no key of the map: nothing changes
  await page.keyboard.press('l');
  await waitForText(page, '#state', /^live$/);
  await until(() => !queryOf(page).has('paused'), 'the address without the pause');
  assert.equal(`?${queryOf(page)}`, query.replace('&paused=1', ''));
  await closeQuietly(page);
});

test('dragging the colour bar sets the limits of the colours', async () => {
  const page = await openLive('?colours=0_60&level=-20_80');
  const bar = await page.locator('#colourbar canvas').boundingBox();
  await page.mouse.move(bar.x + bar.width - 5, bar.y + 5);
  await page.mouse.down();
  await page.mouse.move(bar.x + bar.width - 25, bar.y + 5, { steps: 4 });
  await page.mouse.up();

  await waitForQuery(page, 'colours', /^0_50$/);
  await closeQuietly(page);
});

test('ranges are added and taken away by command, with the display as a template', async () => {
  const page = await openLive('?tool=ranges&markers=98000000_99000000&delta=1');
  await page.click('#addrange [name=take]');
  assert.equal(await page.inputValue('#addrange [name=from]'), '98');
  await page.fill('#addrange [name=name]', 'pager');
  await page.click('#addrange button:not([name])');
  await until(() => received('addRange').length === 1, 'addRange');
  assert.deepEqual(received('addRange')[0], {
    command: 'addRange',
    kind: 'suppress',
    fromHz: 98e6,
    toHz: 99e6,
    name: 'pager',
  });

  server.ranges.suppress = [{ id: 7, list: 'local', fromHz: 98e6, toHz: 99e6, name: '<i>pager</i>' }];
  server.sendAll({ type: 'ranges', ...server.ranges });
  await waitForText(page, '#tool-ranges tbody', /suppress, local\s+98 MHz\s+99 MHz\s+<i>pager<\/i>/);
  await page.click('#tool-ranges tbody button');
  await until(() => received('removeRange').length === 1, 'removeRange');
  assert.deepEqual(received('removeRange')[0], { command: 'removeRange', kind: 'suppress', id: 7 });
  await closeQuietly(page);
});

test('what the server refuses is told', async () => {
  const page = await openLive();
  server.sendAll({ type: 'error', command: 'addRange', text: 'expected from below to, got 5 and 4' });
  await waitForText(page, '#notice', /addRange: expected from below to, got 5 and 4/);
  await closeQuietly(page);
});
