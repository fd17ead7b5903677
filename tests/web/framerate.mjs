// SPDX-License-Identifier: MIT
// Frames a second and script time a frame for 4096 channels and 4 traces at 60 a second: node
// tests/web/framerate.mjs [seconds]
import { closeBrowser, openPage, waitForText } from './support/browser.mjs';
import { StandIn } from './support/server.mjs';

const seconds = Number(process.argv[2] ?? 10);
const metricsOf = async (client) =>
  Object.fromEntries(
    (await client.send('Performance.getMetrics')).metrics.map(({ name, value }) => [name, value]),
  );

/// Counts what the browser paints, and how often the spectrum was drawn anew.
function count(milliseconds) {
  return new Promise((resolve) => {
    const begin = performance.now();
    let frames = 0;
    let longest = 0;
    let last = begin;
    const step = (now) => {
      ++frames;
      longest = Math.max(longest, now - last);
      last = now;
      if (now - begin < milliseconds) return requestAnimationFrame(step);
      resolve({ perSecond: (frames / (now - begin)) * 1000, frames, longest });
    };
    requestAnimationFrame(step);
  });
}

async function measure(options, name) {
  const server = await new StandIn({ points: 4096, ...options }).start();
  const page = await openPage(`${server.address}?traces=live.max.min.average`);
  await waitForText(page, '#state', /^live$/);
  const client = await page.context().newCDPSession(page);
  await client.send('Performance.enable');
  await page.waitForTimeout(2000);
  const before = await metricsOf(client);
  const traces = server.scene.traces;
  const { perSecond, frames, longest } = await page.evaluate(count, seconds * 1000);
  const after = await metricsOf(client);
  const per = (metric) => (((after[metric] - before[metric]) / frames) * 1000).toFixed(2);
  console.log(
    `${name}: ${perSecond.toFixed(1)} frames/s (longest ${longest.toFixed(0)} ms), ${((server.scene.traces - traces) / seconds).toFixed(1)} traces/s sent, ` +
      `script ${per('ScriptDuration')} ms, layout ${per('LayoutDuration')} ms, style ${per('RecalcStyleDuration')} ms a frame, ` +
      `heap ${(before.JSHeapUsedSize / 1e6).toFixed(1)} -> ${(after.JSHeapUsedSize / 1e6).toFixed(1)} MB`,
  );
  await page.context().close();
  await server.stop();
}

await measure({ bearings: false, zeroSpan: false }, '4096 channels, 4 traces');
await measure({}, 'the same with bearings and zero span');
await closeBrowser();
