// SPDX-License-Identifier: MIT
// Makes the pictures of the README: VK410_PROGRAM=build/dev/tools/vk410/vk410 node tests/web/pictures.mjs
import { statSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { closeBrowser, openPage, placeOn, waitForText } from './support/browser.mjs';
import { serve } from './support/program.mjs';

const MOST_BYTES = 300000;
const FILLED_MS = 16000; // until the waterfall has no empty rows
const cleanups = [];
const address = await serve({ after: (f) => cleanups.push(f) }, 'demo');

async function picture(name, query, options, act = async () => {}) {
  const page = await openPage(`${address}?${query}`, options);
  await waitForText(page, '#emitters tbody', /MHz/);
  await page.waitForTimeout(FILLED_MS);
  await act(page);
  const path = fileURLToPath(new URL(`../../docs/images/${name}.png`, import.meta.url));
  await page.screenshot({ path });
  const { size } = statSync(path);
  console.log(`${name}.png ${size} bytes`);
  if (size > MOST_BYTES) throw new Error(`${name}.png is larger than ${MOST_BYTES} bytes`);
  await page.context().close();
}

await picture('page', 'colours=-2_52', {}, async (page) => {
  await page.keyboard.press('m');
  await page.keyboard.press('d');
  await page.keyboard.press('m');
  const { x, y } = await placeOn(page, '#waterfall .picture', 0.34, 0.4);
  await page.mouse.move(x, y);
  await page.waitForTimeout(500);
});
await picture('faults', 'tool=faults&theme=light&colours=-2_52', {}, async (page) => {
  await page.click('[aria-label="inject: drop 1 %"]');
  await waitForText(page, '[data-fault=drop]', /injected [1-9]/);
  await page.waitForTimeout(4000);
  await page.click('[aria-label="inject: drop off"]');
});
await picture('phone', 'colours=-2_52', {
  viewport: { width: 390, height: 844 },
  isMobile: true,
  hasTouch: true,
});
await closeBrowser();
for (const cleanup of cleanups) await cleanup();
