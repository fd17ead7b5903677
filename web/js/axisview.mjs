// SPDX-License-Identifier: MIT
// The part of an axis that is shown; spectrum and waterfalls share one.

export class AxisView {
  #listeners = new Set();
  full = [0, 1];
  from = 0;
  to = 1;
  isFull = true;
  smallest = 1e-9; // span that cannot be zoomed into any more

  onChange(listener) {
    this.#listeners.add(listener);
  }

  /// A new grid: the full span stays full, a zoomed one stays where it is as long as the grid has something
  /// there.
  setFull(from, to, smallest) {
    if (from === this.full[0] && to === this.full[1] && smallest === this.smallest) return;
    this.full = [from, to];
    this.smallest = smallest;
    if (this.isFull || this.to <= from || this.from >= to) this.reset();
    else this.show(this.from, this.to);
  }

  reset() {
    this.#set(this.full[0], this.full[1], true);
  }

  show(from, to) {
    const [least, most] = this.full;
    const span = Math.min(Math.max(to - from, this.smallest), most - least);
    const start = Math.min(Math.max((from + to - span) / 2, least), most - span);
    this.#set(start, start + span, span >= (most - least) * 0.9999);
  }

  zoomAt(position, factor) {
    this.show(position - (position - this.from) * factor, position + (this.to - position) * factor);
  }

  pan(distance) {
    const span = this.to - this.from;
    const from = Math.min(Math.max(this.from + distance, this.full[0]), this.full[1] - span);
    this.#set(from, from + span, this.isFull);
  }

  #set(from, to, isFull) {
    if (from === this.from && to === this.to && isFull === this.isFull) return;
    Object.assign(this, { from, to, isFull });
    for (const listener of this.#listeners) listener();
  }
}
