// SPDX-License-Identifier: MIT
// What is shown, as a picture or as numbers.
import { byId, download } from './dom.mjs';
import { shortFrequency, utc, utcDate } from './format.mjs';
import { NO_VALUE } from './frame.mjs';
import { TRACES } from './spectrum.mjs';

const timeOf = (page) =>
  page.session.paused
    ? page.session.shownMs
    : page.session.main.shown?.timeMs || page.session.main.shown?.receivedMs;
const fileName = (page, ending) =>
  `vk410-${new Date(timeOf(page) || Date.now()).toISOString().replace(/[:.]/g, '-')}.${ending}`;

/// The channels on display, one line each; what was not measured is an empty cell.
export function csvOf({ grid, view, scale, unit, source, ms, traces }) {
  const names = Object.keys(traces);
  const lines = [
    `# source ${source.replace(/[\r\n]/g, ' ')}`,
    `# time ${new Date(ms).toISOString()}`,
    `# levels in ${unit}`,
    ['frequency_hz', ...names].join(),
  ];
  for (let i = 0; i < grid.n; ++i) {
    const hz = grid.positionOf(i);
    if (!(hz >= view.from && hz <= view.to)) continue;
    const cells = names.map((name) =>
      traces[name][i] === NO_VALUE ? '' : +(traces[name][i] * scale).toFixed(6),
    );
    lines.push([+hz.toFixed(3), ...cells].join());
  }
  return `${lines.join('\n')}\n`;
}

export function saveCsv(page) {
  const stream = page.session.main;
  const { shown, grid, view } = stream;
  if (!shown) return;
  const traces = {};
  for (const name of TRACES) {
    const levels =
      name === 'live' ? page.session.shownLevels(stream) : stream.name === 'panorama' ? shown[name] : null;
    if (levels && page.url.values.traces.includes(name)) traces[name] = levels;
  }
  const text = csvOf({
    grid,
    view,
    scale: shown.scale,
    unit: shown.unit,
    source: byId('source').textContent,
    ms: timeOf(page),
    traces,
  });
  download(fileName(page, 'csv'), new Blob([text], { type: 'text/csv' }));
}

/// Spectrum and waterfalls below each other, with a line that says what they are.
export function savePng(page) {
  const parts = ['spectrum', 'waterfall', 'bearings', 'zerospan', 'zerospan2']
    .map(byId)
    .filter((panel) => !panel.hidden)
    .map((panel) => panel.querySelector('.plot canvas, .picture canvas'));
  const ratio = devicePixelRatio;
  const title = 28 * ratio;
  const picture = document.createElement('canvas');
  picture.width = Math.max(...parts.map((part) => part.width));
  picture.height = title + parts.reduce((sum, part) => sum + part.height + 4 * ratio, 0);
  const ctx = picture.getContext('2d');
  ctx.fillStyle = page.theme.colours.panel;
  ctx.fillRect(0, 0, picture.width, picture.height);
  ctx.fillStyle = page.theme.colours.text;
  ctx.font = `${12 * ratio}px system-ui, sans-serif`;
  const { view } = page.session.main;
  const ms = timeOf(page);
  ctx.fillText(
    `${byId('source').textContent}   ${utcDate(ms)} ${utc(ms, true)} UTC   ${shortFrequency(view.from)} to ${shortFrequency(view.to)}   levels in ${page.levels.unit}`,
    10 * ratio,
    18 * ratio,
  );
  let y = title;
  for (const part of parts) {
    ctx.drawImage(part, 0, y);
    y += part.height + 4 * ratio;
  }
  picture.toBlob((blob) => download(fileName(page, 'png'), blob));
}
