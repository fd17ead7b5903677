// SPDX-License-Identifier: MIT
// What the page knows: the latest frame of each stream, its history, and the moment that is shown.
import { AxisView } from './axisview.mjs';
import { Grid } from './grid.mjs';
import { History, mergeBearings, mergeLevels } from './history.mjs';

const NARROWEST = 4; // channels that a view shows at least

class Stream {
  frame = null; // latest
  shown = null; // on display: another one while paused
  grid = new Grid([], 0);
  #gridNumber = -1;
  #gridText = '';

  constructor(name) {
    this.name = name;
    this.view = new AxisView();
    if (name === 'panorama') this.history = new History(1, mergeLevels);
    if (name === 'df') this.history = new History(3, mergeBearings);
  }

  /// Levels in the history.
  get levelRing() {
    return this.history.rows[this.name === 'df' ? 2 : 0];
  }

  /// A new connection numbers its grids afresh.
  forgetGridNumber() {
    this.#gridNumber = -1;
  }

  /// Result: whether the grid is another one.
  followGrid(frame, rowMs) {
    if (frame.gridNumber === this.#gridNumber && frame.n === this.grid.n) return false;
    this.#gridNumber = frame.gridNumber;
    const text = JSON.stringify([frame.n, frame.ranges]);
    if (text === this.#gridText) return false;
    this.#gridText = text;
    this.grid = new Grid(frame.ranges, frame.n);
    this.history?.configure(frame.n, rowMs);
    if (!this.grid.empty) {
      const half = this.grid.step / 2;
      this.view.setFull(this.grid.from - half, this.grid.to + half, this.grid.step * NARROWEST);
    }
    return true;
  }

  keep(frame) {
    const ms = frame.timeMs > 0 ? frame.timeMs : frame.receivedMs;
    if (this.name === 'panorama') this.history.push(ms, frame.lost, [frame.live]);
    else if (this.name === 'df' && frame.azimuth && frame.quality)
      this.history.push(ms, frame.lost, [frame.azimuth, frame.quality, frame.live, frame.validity]);
  }
}

export class Session {
  #listeners = { frame: new Set(), grid: new Set(), pause: new Set() };
  paused = false;
  topMs = 0; // while paused: the time at the top of the waterfalls
  lastFrameAt = 0;
  framesReceived = 0;
  streams = Object.fromEntries(
    ['panorama', 'zerospan', 'zerospan2', 'df'].map((name) => [name, new Stream(name)]),
  );

  constructor(url) {
    this.url = url;
  }

  on(event, listener) {
    this.#listeners[event].add(listener);
  }
  #tell(event, argument) {
    for (const listener of this.#listeners[event]) listener(argument);
  }

  beginConnection() {
    for (const stream of Object.values(this.streams)) stream.forgetGridNumber();
  }

  receive(frame) {
    const stream = this.streams[frame.stream];
    const isNewGrid = stream.followGrid(frame, this.url.values.row);
    const isFirst = stream.frame === null;
    stream.frame = frame;
    stream.keep(frame);
    if (!this.paused || isFirst || isNewGrid) stream.shown = frame;
    this.lastFrameAt = performance.now();
    ++this.framesReceived;
    if (isNewGrid) this.#tell('grid', stream);
    this.#tell('frame', stream);
  }

  /// The stream of the spectrum and the waterfall: the panorama, or the direction finder's levels.
  get main() {
    const { panorama, df } = this.streams;
    const wanted = this.streams[this.url.values.source];
    if (wanted?.frame && (wanted === panorama || wanted === df)) return wanted;
    return panorama.frame || !df.frame ? panorama : df;
  }

  /// Bearings share the spectrum's axis where the grids overlap.
  get bearingView() {
    const {
      main,
      streams: { df },
    } = this;
    return main === df || main.grid.overlaps(df.grid) ? main.view : df.view;
  }

  /// Time of the newest row that any history has.
  get newestMs() {
    const { panorama, df } = this.streams;
    return Math.max(...[panorama, df].map(({ history: h }) => (h.newest >= 0 ? h.timeOf(h.newest) : 0)));
  }

  /// Time at the top of the waterfalls.
  get shownMs() {
    return this.paused && this.topMs > 0 ? this.topMs : this.newestMs;
  }

  pause(paused) {
    if (paused === this.paused) return;
    this.paused = paused;
    this.topMs = paused ? this.newestMs : 0;
    if (!paused) for (const stream of Object.values(this.streams)) stream.shown = stream.frame;
    this.#tell('pause');
  }

  /// Shows another moment of the history while paused.
  scroll(ms) {
    if (!this.paused || this.newestMs === 0) return;
    const { history } = this.main;
    const oldest = history.oldest >= 0 ? history.timeOf(history.oldest) : this.newestMs;
    this.topMs = Math.min(this.newestMs, Math.max(oldest, (this.topMs || this.newestMs) + ms));
    this.#tell('pause');
  }

  /// Array `live` of the shown moment; of an earlier one it comes from the history.
  shownLevels(stream) {
    const { history, shown } = stream;
    if (!this.paused || !history || history.factor !== 1 || stream.name === 'df') return shown?.live ?? null;
    const slot = history.slotOf(this.topMs);
    const base = history.baseOf(slot);
    return history.has(slot) ? history.rows[0].subarray(base, base + history.columns) : (shown?.live ?? null);
  }

  setRowMs(rowMs) {
    this.url.set('row', rowMs);
    for (const { history, grid } of Object.values(this.streams))
      if (history && grid.n > 0) history.configure(grid.n, rowMs);
  }
}
