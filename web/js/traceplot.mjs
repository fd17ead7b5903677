// SPDX-License-Identifier: MIT
// Traces over an axis, drawn with uPlot: one value per column of pixels, raw levels until the labels are
// written.
import { element } from './dom.mjs';
import { NO_VALUE } from './frame.mjs';
import { GUTTER, MARGIN } from './gestures.mjs';
import { decimate, mapColumns } from './grid.mjs';
import { ticks } from './format.mjs';

const X_AXIS = 24;
const FONT = '11px system-ui, sans-serif';

export class TracePlot {
  #plot;
  #lo = new Int32Array(0);
  #hi = new Int32Array(0);
  #mapped = '';
  #data;

  /// `plot`: names (of the traces), theme, view(), level() -> [lowest, highest] in raw, label(position,
  /// step), levelLabel(raw), unit(), and optionally below(u), above(u), which draw behind and in front of the
  /// traces.
  constructor(host, plot) {
    this.host = host;
    this.plot = plot;
    this.#data = [[0, 1], ...plot.names.map(() => [null, null])];
    this.#plot = new uPlot(this.#options(), this.#data, host);
    this.crosshair = host.appendChild(element('div', { class: 'crosshair', hidden: '' }));
    new ResizeObserver(() => this.#resize()).observe(host);
  }

  get canvas() {
    return this.#plot.ctx.canvas;
  }
  get box() {
    return this.#plot.bbox;
  } // device pixels
  get columns() {
    return this.#lo.length;
  }
  get channelsPerColumn() {
    return this.#hi.reduce((most, hi, c) => Math.max(most, hi - this.#lo[c]), 0);
  }
  /// Share of the level axis, from its top, at a height in CSS pixels of the host.
  share(y) {
    return (y * devicePixelRatio - this.box.top) / this.box.height;
  }
  x(position) {
    return this.#plot.valToPos(position, 'x', true);
  }
  y(raw) {
    return this.#plot.valToPos(raw, 'y', true);
  }

  /// `traces`: for each name an array of raw levels, or null: not shown.
  draw(grid, traces) {
    this.#map(grid);
    traces.forEach((levels, i) => {
      const out = this.#data[i + 1];
      out.length = this.#lo.length;
      if (levels) decimate(levels, NO_VALUE, this.#lo, this.#hi, out, this.plot.names[i] === 'min');
      else out.fill(null);
    });
    this.#plot.setData(this.#data);
  }

  showCursor(position) {
    const view = this.plot.view();
    const share = (position - view.from) / (view.to - view.from);
    this.crosshair.hidden = position === null || share < 0 || share > 1;
    this.crosshair.style.transform = `translateX(${GUTTER + share * (this.host.clientWidth - GUTTER - MARGIN)}px)`;
  }

  #map(grid) {
    const view = this.plot.view();
    const width = Math.max(2, Math.min(2048, Math.round(this.box.width)));
    const key = `${width} ${view.from} ${view.to}`;
    if (key === this.#mapped && grid === this.grid) return;
    this.#mapped = key;
    this.grid = grid;
    if (this.#lo.length !== width) [this.#lo, this.#hi] = [new Int32Array(width), new Int32Array(width)];
    mapColumns(grid, view.from, view.to, this.#lo, this.#hi);
    const column = (view.to - view.from) / width;
    this.#data[0] = Float64Array.from({ length: width }, (_, c) => view.from + (c + 0.5) * column);
  }

  #resize() {
    const { clientWidth: width, clientHeight: height } = this.host;
    if (width < GUTTER + 40 || height < X_AXIS + 20) return;
    this.#plot.setSize({ width, height });
    this.plot.onResize?.();
  }

  #options() {
    const { plot } = this;
    const colours = plot.theme.colours;
    const axis = {
      stroke: () => colours.muted,
      font: FONT,
      ticks: { show: false },
      grid: { stroke: () => colours.grid, width: 1 },
    };
    return {
      width: 300,
      height: 120,
      pxAlign: 0,
      padding: [8, MARGIN, 0, 0],
      legend: { show: false },
      cursor: { show: false },
      select: { show: false },
      scales: {
        x: { time: false, range: () => [plot.view().from, plot.view().to] },
        y: { range: () => plot.level() },
      },
      series: [
        {},
        ...plot.names.map((name) => ({
          stroke: () => colours[name],
          width: name === 'live' ? 1.25 : 1,
          points: { show: false },
          spanGaps: false,
        })),
      ],
      axes: [
        {
          ...axis,
          size: X_AXIS,
          gap: 3,
          splits: (u) => this.#placesOfLabels(u),
          values: (u, at) => at.map((position) => plot.label(position, at.length > 1 ? at[1] - at[0] : 1)),
        },
        {
          ...axis,
          size: GUTTER,
          gap: 6,
          splits: () => plot.levelTicks(),
          values: (u, at) => at.map(plot.levelLabel),
        },
      ],
      hooks: {
        drawClear: [(u) => plot.below?.(u)],
        draw: [
          (u) => {
            this.#drawUnit(u);
            plot.above?.(u);
          },
        ],
      },
    };
  }

  /// Labels stand in the middle of their ticks: at the edges there is no room for them.
  #placesOfLabels({ width }) {
    const { from, to } = this.plot.view();
    const margin = ((to - from) * 18) / width;
    return ticks(from, to, width / 120).at.filter((position) => position < to - margin);
  }

  #drawUnit({ ctx, bbox }) {
    const { colours } = this.plot.theme;
    const ratio = devicePixelRatio;
    const text = this.plot.unit();
    ctx.save();
    ctx.font = `${11 * ratio}px system-ui, sans-serif`;
    ctx.textAlign = 'left';
    ctx.textBaseline = 'top';
    ctx.fillStyle = colours.panel;
    ctx.fillRect(bbox.left + 4 * ratio, bbox.top, ctx.measureText(text).width + 4 * ratio, 14 * ratio);
    ctx.fillStyle = colours.muted;
    ctx.fillText(text, bbox.left + 6 * ratio, bbox.top + 2 * ratio);
    ctx.restore();
  }
}
