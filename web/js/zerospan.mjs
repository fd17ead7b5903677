// SPDX-License-Identifier: MIT
// Level over the time axis that the device publishes.
import { byId, setText } from './dom.mjs';
import { ticks, unitText } from './format.mjs';
import { NO_VALUE } from './frame.mjs';
import { Gestures } from './gestures.mjs';
import { TracePlot } from './traceplot.mjs';

const NAMES = ['live', 'max', 'min', 'average', 'hold'];

/// A time on the axis, in the unit that its ticks need.
export function timeText(seconds, step) {
  const [factor, unit] = step < 1e-3 * 0.999 && Math.abs(seconds) < 1e-3 ? [1e6, 'µs'] : step < 0.999 ? [1e3, 'ms'] : [1, 's'];
  return `${+(seconds * factor).toFixed(3)} ${unit}`;
}

export class ZeroSpan {
  #limits = [-20, 80]; // dB; grows with what comes

  constructor(page, name = 'zerospan') {
    this.page = page;
    this.panel = byId('zerospan');
    this.stream = page.session.streams[name];
    const host = this.panel.querySelector('.plot');
    const scale = () => this.stream.shown?.scale || 0.1;
    this.plot = new TracePlot(host, {
      names: NAMES, theme: page.theme, view: () => this.stream.view, level: () => this.#limits.map((x) => x / scale()),
      levelTicks: () => ticks(...this.#limits, Math.max(2, host.clientHeight / 32)).at.map((x) => x / scale()),
      levelLabel: (raw) => `${+(raw * scale()).toFixed(1)}`, unit: () => unitText(this.stream.shown?.unit ?? ''),
      label: timeText, onResize: () => page.painter.request(this),
    });
    new Gestures(host, { view: () => this.stream.view, onHover: (seconds) => this.#hover(seconds) });
  }

  #hover(seconds) {
    this.plot.showCursor(seconds);
    const { grid, shown } = this.stream;
    const raw = seconds === null || !shown ? null : shown.live[grid.indexOf(seconds)] ?? NO_VALUE;
    setText(this.panel.querySelector('.readout'), raw === null ? ''
      : `${timeText(seconds, grid.step)}  ${raw === NO_VALUE ? 'no value' : `${(raw * shown.scale).toFixed(1)} ${unitText(shown.unit)}`}`);
  }

  draw() {
    const { shown, grid } = this.stream;
    if (!shown || this.panel.hidden) return;
    this.#follow(shown);
    const { traces } = this.page.url.values;
    this.plot.draw(grid, NAMES.map((name) => (traces.includes(name) ? shown[name] : null)));
  }

  /// Limits in tens of dB around everything that came; they never shrink while one looks.
  #follow({ live, scale }) {
    let lowest = 32767, highest = -32768;
    for (const raw of live) {
      if (raw === NO_VALUE) continue;
      if (raw < lowest) lowest = raw;
      if (raw > highest) highest = raw;
    }
    if (lowest > highest) return;
    const needed = [Math.floor((lowest * scale - 5) / 10) * 10, Math.ceil((highest * scale + 5) / 10) * 10];
    this.#limits = this.known ? [Math.min(needed[0], this.#limits[0]), Math.max(needed[1], this.#limits[1])] : needed;
    this.known = true;
  }
}
