// SPDX-License-Identifier: MIT
// Where channels lie on an axis (Hz, or seconds for zero span), and which of them fall into which column of
// pixels.

const usable = (range) =>
  range.count > 0 && range.step > 0 && Number.isFinite(range.step) && Number.isFinite(range.start);

export class Grid {
  constructor(ranges, n) {
    this.n = n;
    this.ranges = ranges
      .filter(usable)
      .map((r) => ({ ...r, count: Math.min(r.count, n - r.first) }))
      .filter(usable);
    this.from = Infinity;
    this.to = -Infinity;
    for (const r of this.ranges) {
      this.from = Math.min(this.from, r.start);
      this.to = Math.max(this.to, r.start + r.step * (r.count - 1));
    }
    this.step = Math.min(...this.ranges.map((r) => r.step));
    this.empty = this.ranges.length === 0;
  }

  positionOf(index) {
    const range = this.ranges.find((r) => index >= r.first && index < r.first + r.count);
    return range ? range.start + range.step * (index - range.first) : NaN;
  }

  /// Index of the channel that covers a position; -1: none does.
  indexOf(position) {
    for (const r of this.ranges) {
      const k = Math.round((position - r.start) / r.step);
      if (k >= 0 && k < r.count) return r.first + k;
    }
    return -1;
  }

  overlaps(other) {
    return !this.empty && !other.empty && this.from <= other.to && other.from <= this.to;
  }
}

/// Channels lo[c] to hi[c] - 1 of each column c between `from` and `to`; lo = hi where there is none. A
/// column shows every channel whose centre lies in it; where channels are wider than columns, the one that
/// covers it.
export function mapColumns(grid, from, to, lo, hi) {
  const width = (to - from) / lo.length;
  lo.fill(0);
  hi.fill(0);
  for (const r of grid.ranges)
    for (let c = 0; c < lo.length; ++c) {
      if (hi[c] > lo[c]) continue; // of overlapping ranges the first one shows
      const left = (from + c * width - r.start) / r.step;
      let first = Math.max(0, Math.ceil(left));
      let end = Math.min(r.count, Math.ceil(left + width / r.step));
      if (first >= end) {
        first = Math.round(left + width / r.step / 2);
        end = first + 1;
        if (first < 0 || first >= r.count) continue;
      }
      lo[c] = r.first + first;
      hi[c] = r.first + end;
    }
}

/// One value per column: the highest (or lowest) of its channels, null where none has a value. Never a sample
/// of them, so that no carrier is lost between two pixels.
export function decimate(levels, noValue, lo, hi, out, lowest = false) {
  for (let c = 0; c < lo.length; ++c) {
    let best = null;
    for (let i = lo[c]; i < hi[c]; ++i) {
      const value = levels[i];
      if (value === noValue) continue;
      if (best === null || (lowest ? value < best : value > best)) best = value;
    }
    out[c] = best;
  }
  return out;
}
