// SPDX-License-Identifier: MIT
// Percentiles of raw levels by counting: no sort and no garbage, whatever the number of values.

const LOWEST = -32768;

export class LevelCount {
  #counts = new Uint32Array(65536);
  #total = 0;

  clear() {
    this.#counts.fill(0);
    this.#total = 0;
  }

  add(levels, noValue) {
    for (let i = 0; i < levels.length; ++i) {
      if (levels[i] === noValue) continue;
      ++this.#counts[levels[i] - LOWEST];
      ++this.#total;
    }
  }

  /// The smallest level that at least this share of all levels does not exceed; null without levels.
  percentile(share) {
    if (this.#total === 0) return null;
    const wanted = Math.max(1, Math.ceil(this.#total * share));
    let sum = 0;
    for (let i = 0; i < this.#counts.length; ++i) {
      sum += this.#counts[i];
      if (sum >= wanted) return i + LOWEST;
    }
    return null;
  }
}
