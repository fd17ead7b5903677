// SPDX-License-Identifier: MIT
// The spectrum: traces, ranges that are suppressed or blanked, markers, and what the cursor is on.
import { byId, element, setText } from './dom.mjs';
import { duration, frequency, utc } from './format.mjs';
import { NO_VALUE } from './frame.mjs';
import { Gestures } from './gestures.mjs';
import { nextPeak } from './markers.mjs';
import { hatchOf } from './hatch.mjs';
import { TracePlot } from './traceplot.mjs';

export const TRACES = ['live', 'max', 'min', 'average', 'hold'];
const EXPLAINED = {
  live: 'The latest trace',
  max: 'Highest level since the last reset',
  min: 'Lowest level since the last reset',
  average: 'Average; click again with shift for more traces in it',
  hold: 'Highest level of the last 5 seconds (P)',
};
const AVERAGES = [4, 16, 64, 256];
const PROMINENCE_DB = 6;

export class Spectrum {
  #gridChanged = '';

  constructor(page) {
    this.page = page;
    this.panel = byId('spectrum');
    const host = this.panel.querySelector('.plot');
    this.plot = new TracePlot(host, {
      names: TRACES,
      theme: page.theme,
      view: () => page.session.main.view,
      level: () => page.levels.rawAxis,
      levelTicks: () => page.levels.rawTicks(host.clientHeight),
      levelLabel: page.levels.label,
      unit: () => page.levels.unit,
      label: (hz, step) => frequency(hz, step),
      below: (u) => this.#drawRanges(u),
      above: (u) => this.#drawMarkers(u),
      onResize: () => page.painter.request(this),
    });
    new Gestures(host, {
      view: () => page.session.main.view,
      onClick: (hz) => this.placeMarker(hz),
      onHover: (hz, y) => page.moveCursor(hz, null, y),
      onBox: (top, bottom) => page.levels.showShares(this.plot.share(top), this.plot.share(bottom)),
      onLevelWheel: (y, factor) => page.levels.zoomAxis(this.plot.share(y), factor),
      onLevelDrag: (dy) => page.levels.moveAxis(this.plot.share(dy) - this.plot.share(0)),
    });
    this.buttons = TRACES.map((name) => this.#button(name));
    byId('tracebuttons').append(
      ...this.buttons,
      element(
        'button',
        { title: 'Max, min and hold begin anew, for everyone (R)', onclick: () => page.resetHolds() },
        'Reset',
      ),
    );
  }

  get visible() {
    return this.page.url.values.traces;
  }

  #button(name) {
    const swatch = element('i', { class: 'swatch' });
    swatch.style.background = `var(--${name})`;
    const click = (event) => (event.shiftKey && name === 'average' ? this.#moreAverage() : this.toggle(name));
    return element(
      'button',
      { title: EXPLAINED[name], onclick: click },
      swatch,
      element('span', {}, name === 'average' ? 'avg' : name),
    );
  }

  #moreAverage() {
    const now = this.page.session.main.frame?.averageCount ?? 16;
    this.page.send({ command: 'average', count: AVERAGES.find((count) => count > now) ?? AVERAGES[0] });
  }

  toggle(name) {
    const traces = TRACES.filter((trace) => this.visible.includes(trace) !== (trace === name));
    this.page.url.set('traces', traces);
    this.page.subscribe();
    this.page.painter.request(this);
  }

  gridChanged(isAnother) {
    if (isAnother) this.#gridChanged = `new grid ${utc(Date.now())}, holds began anew`;
  }

  draw() {
    const { session, levels } = this.page;
    const stream = session.main;
    const frame = stream.shown;
    if (!frame || this.panel.hidden) return;
    levels.follow(frame);
    const live = session.shownLevels(stream);
    this.plot.draw(
      stream.grid,
      TRACES.map((name) =>
        this.visible.includes(name)
          ? name === 'live'
            ? live
            : stream.name === 'panorama'
              ? frame[name]
              : null
          : null,
      ),
    );
    this.#writeTexts(stream, frame, live);
  }

  #writeTexts(stream, frame, live) {
    const { page } = this;
    TRACES.forEach((name, i) => {
      this.buttons[i].setAttribute('aria-pressed', this.visible.includes(name));
      this.buttons[i].hidden = name !== 'live' && stream.name !== 'panorama';
      if (name === 'average' && frame.averageCount > 0)
        setText(this.buttons[i].lastChild, `avg ${frame.averageCount}`);
    });
    this.#writeDrawn(stream, frame);
    setText(byId('markers'), this.#markerText(stream, live));
    const { hz } = page.cursor;
    setText(
      byId('reading'),
      hz === null
        ? ''
        : `${frequency(hz, stream.grid.step / 10)}  ${levels(page, live, stream.grid.indexOf(hz))}`,
    );
  }

  /// How the drawing came about: what a pixel stands for, and since when the holds hold.
  #writeDrawn({ name }, frame) {
    const most = this.plot.channelsPerColumn;
    const heldMs = (frame.timeMs || frame.receivedMs) - frame.holdSinceMs;
    const parts = [most > 1 ? `highest of ${most} drawn` : 'every channel drawn'];
    if (name === 'panorama' && frame.holdSinceMs > 0 && heldMs > 0)
      parts.push(`max of ${duration(heldMs / 1000)}`);
    if (this.#gridChanged) parts.push(this.#gridChanged);
    const text = parts.join(' · ');
    setText(byId('drawn'), text);
    byId('drawn').title =
      `${text}. A pixel shows the highest of its channels (of min: the lowest), never a sample. Max, min and hold begin anew with R and with a new grid.`;
  }

  // Markers: in the address as frequencies; with `delta` the second one moves and the first is its reference.

  get markers() {
    return this.page.url.values.markers;
  }

  placeMarker(hz) {
    const { session, url } = this.page;
    const { grid } = session.main;
    const index = grid.indexOf(hz);
    if (index < 0) return;
    const at = grid.positionOf(index);
    url.set('markers', url.values.delta && this.markers.length > 0 ? [this.markers[0], at] : [at]);
    this.page.selectIfHeard(at);
    this.page.painter.request(this);
  }

  nextPeak() {
    const stream = this.page.session.main;
    const { grid, shown, view } = stream;
    if (!shown) return;
    // The average stands stiller than the latest trace: the order of peaks does not jump from press to press.
    const levels =
      (stream.name === 'panorama' && (shown.average ?? shown.max)) || this.page.session.shownLevels(stream);
    const at = this.markers.at(-1);
    const channels = (hz) => Math.max(0, Math.min(grid.n, grid.indexOf(hz)));
    const from = view.isFull ? 0 : channels(view.from);
    const to = view.isFull ? grid.n : channels(view.to) + 1 || grid.n;
    const peak = nextPeak(
      levels,
      NO_VALUE,
      from,
      to,
      at === undefined ? -1 : grid.indexOf(at),
      PROMINENCE_DB / shown.scale,
    );
    if (peak >= 0) this.placeMarker(grid.positionOf(peak));
  }

  toggleDelta() {
    const { url } = this.page;
    const delta = !url.values.delta;
    url.set('delta', delta);
    if (!delta) url.set('markers', this.markers.slice(-1));
    this.page.painter.request(this);
  }

  clearMarkers() {
    this.page.url.set('markers', []);
    this.page.url.set('delta', false);
    this.page.painter.request(this);
  }

  #markerText({ grid }, live) {
    const [first, second] = this.markers;
    if (first === undefined || !live) return this.page.url.values.delta ? 'Δ: click for M1' : '';
    const rawOf = (hz) => live[grid.indexOf(hz)];
    const text = `M1 ${frequency(first, grid.step)} ${this.page.levels.text(rawOf(first))}`;
    if (second === undefined) return this.page.url.values.delta ? `${text}   Δ: click for M2` : text;
    const [a, b] = [rawOf(first), rawOf(second)];
    const db = [a, b].some((raw) => raw === undefined || raw === NO_VALUE)
      ? 'no value'
      : `${((b - a) * this.page.levels.scale).toFixed(1)} dB`;
    return `${text}   M2−M1 ${second < first ? '−' : '+'}${frequency(Math.abs(second - first), grid.step)} / ${db.replace('-', '−')}`;
  }

  #drawMarkers(u) {
    const { session, theme } = this.page;
    const stream = session.main;
    const live = session.shownLevels(stream);
    if (!live) return;
    const ratio = devicePixelRatio;
    const { ctx, bbox } = u;
    ctx.save();
    ctx.font = `600 ${11 * ratio}px system-ui, sans-serif`;
    ctx.fillStyle = ctx.strokeStyle = theme.colours.text;
    ctx.textAlign = 'center';
    this.markers.forEach((hz, i) => {
      const raw = live[stream.grid.indexOf(hz)];
      const x = this.plot.x(hz);
      if (x < bbox.left || x > bbox.left + bbox.width) return;
      const level = raw === undefined || raw === NO_VALUE ? bbox.top + bbox.height : this.plot.y(raw);
      const y = Math.max(bbox.top + 18 * ratio, Math.min(bbox.top + bbox.height, level)) - 3 * ratio;
      ctx.beginPath();
      ctx.moveTo(x, y);
      ctx.lineTo(x - 5 * ratio, y - 8 * ratio);
      ctx.lineTo(x + 5 * ratio, y - 8 * ratio);
      ctx.fill();
      ctx.fillText(`M${i + 1}`, x, y - 10 * ratio);
    });
    ctx.restore();
  }

  #drawRanges(u) {
    const { ranges, theme, session } = this.page;
    for (const kind of ['blanking', 'suppress'])
      for (const range of ranges.lists[kind])
        this.#drawBand(u, range, kind === 'blanking' ? 'blanked' : 'suppressed', theme);
    if (session.main.name === 'df') this.#drawJobEdges(u, session.main.grid, theme);
  }

  #drawBand({ ctx, bbox }, range, word, theme) {
    const left = Math.max(bbox.left, this.plot.x(range.fromHz));
    const right = Math.min(bbox.left + bbox.width, this.plot.x(range.toHz));
    if (!(right >= left)) return;
    const width = Math.max(2, right - left);
    ctx.save();
    ctx.fillStyle = hatchOf(ctx, word === 'blanked' ? 'dots' : 'lines', theme.colours.band);
    ctx.fillRect(left, bbox.top, width, bbox.height);
    if (width > 60 * devicePixelRatio) {
      ctx.font = `${10 * devicePixelRatio}px system-ui, sans-serif`;
      ctx.fillStyle = theme.colours.muted;
      ctx.textBaseline = 'bottom';
      ctx.fillText(
        range.name ? `${word}: ${range.name}` : word,
        left + 4 * devicePixelRatio,
        bbox.top + bbox.height - 3 * devicePixelRatio,
        width,
      );
    }
    ctx.restore();
  }

  #drawJobEdges({ ctx, bbox }, grid, theme) {
    ctx.save();
    ctx.strokeStyle = theme.colours.muted;
    ctx.setLineDash([2 * devicePixelRatio, 4 * devicePixelRatio]);
    ctx.beginPath();
    for (const r of grid.ranges)
      for (const hz of [r.start - r.step / 2, r.start + r.step * (r.count - 0.5)]) {
        const x = this.plot.x(hz);
        if (x < bbox.left || x > bbox.left + bbox.width) continue;
        ctx.moveTo(x, bbox.top);
        ctx.lineTo(x, bbox.top + bbox.height);
      }
    ctx.stroke();
    ctx.restore();
  }
}

const levels = (page, live, index) => (index < 0 || !live ? 'no value' : page.levels.text(live[index]));
