// SPDX-License-Identifier: MIT
// What was received, by time: a ring of rows of equal duration. Rows lie where their time lies, so that a
// loss stays a hole.
import { NO_VALUE } from './frame.mjs';

export const ROWS = 2048;
const MOST_COLUMNS = 8192; // wider traces are reduced by their highest value, which bounds the ring at 32 MiB an array
const EMPTY = -1;
const JUMP_BACK_MS = 2000; // a clock that goes back further is another time: a seek, or another receiver

/// How levels share a row: the highest stays.
export function mergeLevels(rows, base, factor, [levels]) {
  const [ring] = rows;
  for (let i = 0; i < levels.length; ++i) {
    const at = base + Math.floor(i / factor);
    if (levels[i] !== NO_VALUE && (ring[at] === NO_VALUE || levels[i] > ring[at])) ring[at] = levels[i];
  }
}

/// How bearings share a row: the one of the best quality stays. Rings: azimuth, quality, level.
export function mergeBearings(rows, base, factor, [azimuth, quality, levels, validity]) {
  const [azimuths, qualities, ringLevels] = rows;
  for (let i = 0; i < azimuth.length; ++i) {
    if (
      azimuth[i] < 0 ||
      azimuth[i] === NO_VALUE ||
      quality[i] === NO_VALUE ||
      (validity && validity[i] !== 0)
    )
      continue;
    const at = base + Math.floor(i / factor);
    if (qualities[at] !== NO_VALUE && qualities[at] >= quality[i]) continue;
    azimuths[at] = azimuth[i] % 3600;
    qualities[at] = quality[i];
    if (levels) ringLevels[at] = levels[i];
  }
}

export class History {
  #merge;
  #arrayCount;
  #interval = 0;
  #lastMs = 0;
  rowMs = 50;
  columns = 0;
  factor = 1;
  newest = EMPTY; // slot
  oldest = EMPTY;
  generation = 0; // changes when rows were thrown away

  constructor(arrayCount, merge) {
    this.#arrayCount = arrayCount;
    this.#merge = merge;
    this.slots = new Float64Array(ROWS);
    this.lost = new Uint32Array(ROWS);
    this.rows = [];
  }

  /// Begins anew for traces of n channels in rows of this duration.
  configure(n, rowMs) {
    this.factor = Math.max(1, Math.ceil(n / MOST_COLUMNS));
    this.columns = Math.ceil(n / this.factor);
    this.rowMs = rowMs;
    this.rows = Array.from({ length: this.#arrayCount }, () => new Int16Array(this.columns * ROWS));
    this.clear();
  }

  clear() {
    this.slots.fill(EMPTY);
    this.lost.fill(0);
    this.newest = this.oldest = EMPTY;
    this.#interval = this.#lastMs = 0;
    ++this.generation;
  }

  slotOf(ms) {
    return Math.floor(ms / this.rowMs);
  }
  timeOf(slot) {
    return slot * this.rowMs;
  }
  has(slot) {
    return this.slots[slot % ROWS] === slot;
  }
  baseOf(slot) {
    return (slot % ROWS) * this.columns;
  }

  /// Whether data was lost in the time of this row, or nothing came in it because it was lost.
  lostIn(slot) {
    return slot > this.newest || slot <= this.newest - ROWS ? 0 : this.lost[slot % ROWS];
  }

  push(ms, lost, arrays) {
    if (this.newest !== EMPTY && ms < this.#lastMs - JUMP_BACK_MS) this.clear();
    const slot = this.slotOf(ms);
    if (this.newest !== EMPTY && slot <= this.newest - ROWS) return;
    this.#advance(slot, lost, ms);
    this.#begin(slot);
    this.#merge(this.rows, this.baseOf(slot), this.factor, arrays);
    this.#measure(ms);
  }

  /// Frees the rows between the newest and this one; says of them whether they were lost.
  #advance(slot, lost, ms) {
    const previous = this.newest;
    if (previous === EMPTY) {
      this.newest = this.oldest = slot;
      this.lost[slot % ROWS] = 0; // what was lost before we began is not ours to show
      return;
    }
    if (slot <= previous) {
      this.lost[slot % ROWS] += lost;
      return;
    }
    for (let s = Math.max(previous + 1, slot - ROWS + 1); s <= slot; ++s) {
      this.slots[s % ROWS] = EMPTY;
      this.lost[s % ROWS] = lost;
    }
    // A device that sends fewer traces than there are rows leaves no holes: its last trace holds until the
    // next is due.
    if (lost === 0 && ms - this.#lastMs < 2.5 * this.#interval) this.#hold(previous, slot);
    this.newest = slot;
    this.oldest = Math.max(this.oldest, slot - ROWS + 1);
  }

  #hold(from, to) {
    if (!this.has(from)) return;
    for (let slot = from + 1; slot < to; ++slot) {
      for (const ring of this.rows)
        ring.copyWithin(this.baseOf(slot), this.baseOf(from), this.baseOf(from) + this.columns);
      this.slots[slot % ROWS] = slot;
    }
  }

  #begin(slot) {
    if (this.has(slot)) return;
    for (const ring of this.rows) ring.fill(NO_VALUE, this.baseOf(slot), this.baseOf(slot) + this.columns);
    this.slots[slot % ROWS] = slot;
  }

  /// The usual time between traces that come here; one pause does not make it a long one.
  #measure(ms) {
    const passed = ms - this.#lastMs;
    if (this.#lastMs > 0 && passed > 0)
      this.#interval =
        this.#interval === 0 ? passed : this.#interval * 0.9 + Math.min(passed, 4 * this.#interval) * 0.1;
    this.#lastMs = Math.max(ms, this.#lastMs);
  }
}
