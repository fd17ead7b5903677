// SPDX-License-Identifier: MIT
// The page and the program together, as somebody sees them who runs the demo.
import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import {
  closeBrowser,
  closeQuietly,
  highestOf,
  openPage,
  placeOn,
  textOf,
  until,
  waitForText,
} from '../support/browser.mjs';
import { record, serve } from '../support/program.mjs';

const LIVE = [92, 200, 220];
const CARRIER_HZ = 96.1e6; // of the demo's band
const PAGE_BYTES = 150000;

after(closeBrowser);

const numberIn = (text) => Number(/([\d,]+)/.exec(text)[1].replaceAll(',', ''));
const cell = (page, metric) => textOf(page, `#ledger [data-metric=${metric}] b`).then(numberIn);
const injected = async (page, fault) =>
  numberIn(/injected ([\d,]+)/.exec(await textOf(page, `[data-fault=${fault}]`))[1]);

test('the demo shows a band, bearings and a zero span, live and without a loss', async (t) => {
  const page = await openPage(await serve(t, 'demo'));
  await waitForText(page, '#state', /^live$/);
  for (const id of ['spectrum', 'waterfall', 'bearings', 'zerospan', 'compass', 'emitters'])
    await page.waitForSelector(`#${id}:not([hidden])`);
  await waitForText(page, '#emitters tbody', /MHz\s+\d+\.\d°/);
  const share = (CARRIER_HZ - 94.996875e6) / 10.00625e6;
  await until(async () => (await highestOf(page, '#spectrum .plot canvas', share, LIVE)) > 0, 'a trace');
  const [carrier, floor] = [
    await highestOf(page, '#spectrum .plot canvas', share, LIVE),
    await highestOf(page, '#spectrum .plot canvas', 0.16, LIVE),
  ];

  assert.ok(carrier < floor - 20, `carrier at ${carrier}, floor at ${floor}`);
  assert.equal(await cell(page, 'wire_lost'), 0);
  assert.match(await textOf(page, '#centre'), /^100 MHz$/);
  await closeQuietly(page);
});

test('the ledger counts what the demo injects', async (t) => {
  const page = await openPage(`${await serve(t, 'demo')}?tool=faults`);
  await waitForText(page, '#state', /^live$/);
  await page.click('[aria-label="inject: drop 10 %"]');
  await until(async () => (await injected(page, 'drop')) >= 20, 'drops');
  await page.waitForSelector('#ledger .bad[data-metric=wire_lost]');
  await page.click('[aria-label="inject: drop off"]');
  await page.click('[aria-label="inject: duplicate 10 %"]');
  await until(async () => (await injected(page, 'duplicate')) >= 20, 'duplicates');
  await page.click('[aria-label="inject: duplicate off"]');

  // The last gap is seen with the datagram behind it, and the next status tells it.
  await until(
    async () => (await cell(page, 'wire_lost')) === (await injected(page, 'drop')),
    'as many losses as drops',
  );
  await until(
    async () => (await cell(page, 'wire_duplicates')) === (await injected(page, 'duplicate')),
    'as many duplicates as injected',
  );
  await page.waitForSelector('#ledger .warn[data-metric=wire_lost]');
  await page.hover('#ledger [data-metric=wire_lost]');
  assert.match(await textOf(page, '#tip'), /wire lost: [\d,]+\s+\S+/);
  await closeQuietly(page);
});

test('the page weighs less than 150 kB, comes from one host and needs no inline code', async (t) => {
  const page = await openPage('about:blank');
  const client = await page.context().newCDPSession(page);
  let bytes = 0;
  client.on('Network.loadingFinished', ({ encodedDataLength }) => {
    bytes += encodedDataLength;
  });
  await client.send('Network.enable');
  const response = await page.goto(await serve(t, 'demo', 'band'));
  await waitForText(page, '#state', /^live$/);

  assert.ok(bytes > 20000 && bytes < PAGE_BYTES, `${bytes} bytes`);
  const policy = response.headers()['content-security-policy'];
  assert.match(policy, /default-src 'self'/);
  assert.doesNotMatch(policy, /unsafe/);
  await page.context().close();
});

test('the JavaScript client of the box runs as it stands', async (t) => {
  const address = await serve(t, 'demo');
  const page = await openPage(`${address}?tool=stream`);
  await waitForText(page, '#client', /new WebSocket/);
  const lines = [];
  page.on('console', (message) => lines.push(message.text()));
  await page.addScriptTag({ url: `${address}clients/stream.js`, type: 'module' });

  await until(() => lines.length >= 3, 'three traces');
  assert.deepEqual(
    lines.slice(0, 3).filter((line) => !/^(9|10)\d\.\d{4} MHz \d+\.\d$/.test(line)),
    [],
  );
  await page.click('#clients button:has-text("Python")');
  await waitForText(page, '#client', /import base64/);
  await closeQuietly(page);
});

test('ranges take effect in the program and come back to every page', async (t) => {
  const address = await serve(t, 'demo');
  const [page, other] = [await openPage(`${address}?tool=ranges`), await openPage(`${address}?tool=ranges`)];
  await waitForText(page, '#state', /^live$/);
  for (const [kind, from, to, name] of [
    ['suppress', '97', '97.2', 'pager'],
    ['blanking', '101', '101.5', 'own transmitter'],
  ]) {
    await page.selectOption('#addrange [name=kind]', kind);
    await page.fill('#addrange [name=from]', from);
    await page.fill('#addrange [name=to]', to);
    await page.fill('#addrange [name=name]', name);
    await page.click('#addrange button:not([name])');
    await waitForText(
      other,
      '#tool-ranges tbody',
      new RegExp(`${kind}[^\\t]*\\t${from} MHz\\t${to} MHz\\t${name}`),
    );
  }
  await page.click('#tool-ranges tbody tr:has-text("pager") button');
  await until(async () => !/pager/.test(await textOf(other, '#tool-ranges tbody')), 'one range less');
  assert.match(await textOf(other, '#tool-ranges tbody'), /own transmitter/);

  await page.selectOption('#addrange [name=kind]', 'suppress');
  await page.fill('#addrange [name=from]', '-5');
  await page.fill('#addrange [name=to]', '-4');
  await page.click('#addrange button:not([name])');
  await waitForText(page, '#notice', /addRange: /);
  await closeQuietly(other);
  await closeQuietly(page);
});

test('a recording has a time bar: pause, step, seek, speed, and its losses in red', async (t) => {
  const page = await openPage(await serve(t, 'monitor', record(t, 4)));
  await page.waitForSelector('#timebar:not([hidden])');
  await waitForText(page, '#position', /^0:0\d\.\d \/ 0:0[34]\.\d/);
  const secondsShown = async () => Number(/^0:0(\d\.\d)/.exec(await textOf(page, '#position'))[1]);
  const red = () =>
    page.evaluate(() => {
      const canvas = document.querySelector('#times');
      const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, 6);
      return data.some((x, i) => i % 4 === 0 && x > 200 && data[i + 1] < 140);
    });
  await until(red, 'ticks of losses');

  await pausePlayback(page);
  await waitForText(page, '#play', /^Play$/);
  const bar = await page.locator('#times').boundingBox();
  await page.mouse.click(bar.x + bar.width / 2, bar.y + bar.height / 2);
  await until(async () => Math.abs((await secondsShown()) - 2) < 0.4, 'the middle of the recording');

  await page.click('#step');
  await page.selectOption('#speed', '0.5');
  await until(async () => (await page.inputValue('#speed')) === '0.5', 'another speed');
  await page.click('#play');
  await until(async () => (await secondsShown()) > 2.5, 'the recording going on');
  await closeQuietly(page);
});

/// The space bar pauses a recording that plays, and plays one that has ended in the meantime.
async function pausePlayback(page) {
  for (;;) {
    const state = await textOf(page, '#state');
    if (state === 'replay paused') return;
    await page.keyboard.press(' ');
    await page.waitForFunction((before) => document.querySelector('#state').innerText !== before, state);
  }
}
