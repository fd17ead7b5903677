// SPDX-License-Identifier: MIT
// Memory of program and page over a long demo: VK410_PROGRAM=build/dev/tools/vk410/vk410 node
// tests/web/endurance.mjs [minutes]
import { readFileSync } from 'node:fs';
import { closeBrowser, openPage, waitForText } from './support/browser.mjs';
import { launch } from './support/program.mjs';

const minutes = Number(process.argv[2] ?? 30);
const MINUTE_MS = 60000;

/// Megabytes of the program in memory.
function resident(pid) {
  const [, kilobytes] = /VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${pid}/status`, 'utf8'));
  return Number(kilobytes) / 1000;
}

const { child, address } = launch('demo');
const page = await openPage(`${await address}?traces=live.max.min.average`);
await waitForText(page, '#state', /^live$/);
const client = await page.context().newCDPSession(page);
await client.send('Performance.enable');
console.log('minute  program MB  page heap MB  nodes');
for (let minute = 0; minute <= minutes; ++minute) {
  if (minute > 0) await page.waitForTimeout(MINUTE_MS);
  await client.send('HeapProfiler.collectGarbage');
  const { metrics } = await client.send('Performance.getMetrics');
  const of = (name) => metrics.find((metric) => metric.name === name).value;
  console.log(
    `${String(minute).padStart(6)}  ${resident(child.pid).toFixed(1).padStart(10)}  ` +
      `${(of('JSHeapUsedSize') / 1e6).toFixed(2).padStart(12)}  ${String(of('Nodes')).padStart(5)}`,
  );
}
await waitForText(page, '#state', /^live$/);
await closeBrowser();
child.kill('SIGINT');
