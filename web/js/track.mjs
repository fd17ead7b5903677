// SPDX-License-Identifier: MIT
// Bearing of the selected channel over time, from the history; degrees do not join over north.
import { byId, element, setText } from './dom.mjs';
import { frequency, utc } from './format.mjs';
import { NO_VALUE } from './frame.mjs';

const SHOWN_MS = 60000;

export class Track {
  #data = [
    [0, 1],
    [null, null],
  ];

  constructor(page) {
    this.page = page;
    this.panel = byId('track');
    const host = this.panel.querySelector('.plot');
    const { colours } = page.theme;
    const axis = {
      stroke: () => colours.muted,
      font: '11px system-ui, sans-serif',
      ticks: { show: false },
      grid: { stroke: () => colours.grid, width: 1 },
    };
    this.plot = new uPlot(
      {
        width: 300,
        height: 120,
        pxAlign: 0,
        padding: [8, 12, 0, 0],
        legend: { show: false },
        cursor: { show: false },
        scales: { x: { time: false, range: () => this.#span }, y: { range: () => [0, 360] } },
        series: [
          {},
          { paths: () => null, points: { show: true, size: 3, width: 0, fill: () => colours.accent } },
        ],
        axes: [
          {
            ...axis,
            size: 24,
            gap: 6,
            space: 70,
            incrs: [5e3, 1e4, 2e4, 6e4],
            values: (u, at) => at.map((ms) => utc(ms)),
          },
          {
            ...axis,
            size: 44,
            splits: () => [0, 90, 180, 270, 360],
            values: (u, at) => at.map((x) => `${x}°`),
          },
        ],
      },
      this.#data,
      host,
    );
    host.append(element('div', { class: 'crosshair', hidden: '' }));
    new ResizeObserver(() => {
      if (host.clientWidth > 80 && host.clientHeight > 40)
        this.plot.setSize({ width: host.clientWidth, height: host.clientHeight });
    }).observe(host);
  }

  get #span() {
    const end = this.page.session.shownMs;
    return [end - SHOWN_MS, end];
  }

  draw() {
    const { session, selectedHz, url } = this.page;
    const { history, grid } = session.streams.df;
    const [times, azimuths] = this.#data;
    times.length = azimuths.length = 0;
    const channel = selectedHz === null ? -1 : Math.floor(grid.indexOf(selectedHz) / history.factor);
    setText(
      this.panel.querySelector('.readout'),
      selectedHz === null ? 'no channel selected' : frequency(selectedHz, grid.step),
    );
    if (channel >= 0 && history.newest >= 0) this.#collect(history, channel, url.values.quality);
    if (times.length === 0) {
      times.push(...this.#span);
      azimuths.push(null, null);
    }
    this.plot.setData(this.#data);
  }

  #collect(history, channel, least) {
    const [times, azimuths] = this.#data;
    const top = Math.min(history.newest, history.slotOf(this.page.session.shownMs));
    const first = Math.max(history.oldest, history.slotOf(history.timeOf(top) - SHOWN_MS));
    for (let slot = first; slot <= top; ++slot) {
      const at = history.baseOf(slot) + channel;
      const quality = history.has(slot) ? history.rows[1][at] : NO_VALUE;
      if (quality === NO_VALUE || quality < least) continue;
      times.push(history.timeOf(slot));
      azimuths.push(history.rows[0][at] / 10);
    }
  }
}
