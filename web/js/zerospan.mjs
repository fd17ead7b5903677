// SPDX-License-Identifier: MIT
// Level over the time axis that the device publishes.
import { byId, setText } from './dom.mjs';
import { levelTicks, niceStep, unitText } from './format.mjs';
import { NO_VALUE } from './frame.mjs';
import { Gestures } from './gestures.mjs';
import { LevelCount } from './percentile.mjs';
import { TracePlot } from './traceplot.mjs';

const NAMES = ['live', 'max', 'min', 'average', 'hold'];

/// A time on the axis, in the unit that its ticks need.
export function timeText(seconds, step) {
  const [factor, unit] =
    step < 1e-3 * 0.999 && Math.abs(seconds) < 1e-3 ? [1e6, 'µs'] : step < 0.999 ? [1e3, 'ms'] : [1, 's'];
  return `${+(seconds * factor).toFixed(3)} ${unit}`;
}

export class ZeroSpan {
  #count = new LevelCount();
  #limits = [-20, 80]; // dB; grows with what comes

  constructor(page, name) {
    this.page = page;
    this.panel = byId(name);
    this.stream = page.session.streams[name];
    const host = this.panel.querySelector('.plot');
    const scale = () => this.stream.shown?.scale || 0.1;
    this.plot = new TracePlot(host, {
      names: NAMES,
      theme: page.theme,
      view: () => this.stream.view,
      level: () => this.#limits.map((x) => x / scale()),
      levelTicks: () => levelTicks(...this.#limits, host.clientHeight).map((x) => x / scale()),
      levelLabel: (raw) => `${+(raw * scale()).toPrecision(4)}`,
      unit: () => unitText(this.stream.shown?.unit ?? ''),
      label: timeText,
      onResize: () => page.painter.request(this),
    });
    new Gestures(host, { view: () => this.stream.view, onHover: (seconds) => this.#hover(seconds) });
  }

  #hover(seconds) {
    this.plot.showCursor(seconds);
    const { grid, shown } = this.stream;
    const raw = seconds === null || !shown ? null : (shown.live[grid.indexOf(seconds)] ?? NO_VALUE);
    setText(
      this.panel.querySelector('.readout'),
      raw === null
        ? ''
        : `${timeText(seconds, grid.step)}  ${raw === NO_VALUE ? 'no value' : `${+(raw * shown.scale).toPrecision(4)} ${unitText(shown.unit)}`}`,
    );
  }

  draw() {
    const { shown, grid } = this.stream;
    if (!shown || this.panel.hidden) return;
    this.#follow(shown);
    const { traces } = this.page.url.values;
    this.plot.draw(
      grid,
      NAMES.map((name) => (traces.includes(name) ? shown[name] : null)),
    );
  }

  /// Limits around what came, deep fades of noise left out; they never shrink while one looks.
  #follow({ live, scale }) {
    this.#count.clear();
    this.#count.add(live, NO_VALUE);
    const [lowest, highest] = [0.03, 1].map((share) => this.#count.percentile(share));
    if (lowest === null) return;
    const span = Math.max(1, highest - lowest) * scale;
    const step = niceStep(span, 4);
    const needed = [
      Math.floor((lowest * scale - span / 10) / step) * step,
      Math.ceil((highest * scale + span / 10) / step) * step,
    ];
    this.#limits = this.known
      ? [Math.min(needed[0], this.#limits[0]), Math.max(needed[1], this.#limits[1])]
      : needed;
    this.known = true;
  }
}
