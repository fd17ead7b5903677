// SPDX-License-Identifier: MIT
// Live, silent, waiting, disconnected: four different things, and the way back.
import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { closeBrowser, closeQuietly, openPage, textOf, waitForText } from '../support/browser.mjs';
import { StandIn } from '../support/server.mjs';

after(closeBrowser);

async function standIn(t, options, port) {
  const server = await new StandIn(options).start(port);
  t.after(() => server.stop());
  return server;
}

test('silence, a wait and a lost connection are told apart', async (t) => {
  const server = await standIn(t);
  const page = await openPage(server.address);
  await waitForText(page, '#state', /^live$/);

  server.sending = false;
  await waitForText(page, '#state', /^no data for [3-9]/);
  assert.match(await textOf(page, '#age'), / s$/);
  server.state = 'silent';
  await waitForText(page, '#state', /^no data for/);
  server.state = 'waiting';
  await waitForText(page, '#state', /^connected, silent$/);
  await waitForText(page, '#notice', /start the device/);
  await server.stop();
  await waitForText(page, '#state', /^page disconnected$/);
  await waitForText(page, '#notice', /what you see is old. Trying again in \d/);
  await page.context().close();
});

test('before the first data the page says what it waits for', async (t) => {
  const server = await standIn(t);
  server.sending = false;
  server.state = 'waiting';
  const page = await openPage(server.address);

  await waitForText(page, '#waiting', /start the device/);
  assert.equal(await page.locator('#spectrum').isVisible(), false);
  server.sending = true;
  await page.waitForSelector('#spectrum:not([hidden])');
  assert.equal(await page.locator('#waiting').isVisible(), false);
  await closeQuietly(page);
});

test('the page comes back by itself when the server has begun anew', async (t) => {
  const first = await standIn(t);
  const { port } = first;
  const page = await openPage(first.address);
  await waitForText(page, '#state', /^live$/);
  await first.stop();
  await waitForText(page, '#state', /^page disconnected$/);

  await standIn(t, { points: 801 }, port);
  await waitForText(page, '#state', /^live$/);
  await waitForText(page, '#channels', /^801 /);
  assert.equal(await page.locator('#notice').isVisible(), false);
  assert.deepEqual(
    page.complaints.filter((text) => !/ERR_CONNECTION_REFUSED|WebSocket connection/.test(text)),
    [],
  );
  await page.context().close();
});

test('a frame that is none is told and does not stop the page', async (t) => {
  const server = await standIn(t);
  const page = await openPage(server.address);
  await waitForText(page, '#state', /^live$/);
  server.broken = true;

  await waitForText(page, '#notice', /expected a frame that begins with VK4S/);
  server.broken = false;
  await waitForText(page, '#state', /^live$/);
  await page.context().close();
});
