// SPDX-License-Identifier: MIT
// The level axis and the colours' limits: raw levels on one side, the unit that the operator wants on the
// other.
import { DBM_OF_DBUV, levelTicks, unitText } from './format.mjs';
import { NO_VALUE } from './frame.mjs';
import { LevelCount } from './percentile.mjs';

const AUTO_ROWS = 100;
const LEAST_DB = 10;

/// Level axis, colour limits and unit of the main stream, in the device's unit (dB); the address keeps them.
export class Levels {
  #count = new LevelCount();
  #listeners = new Set();
  scale = 0.1;
  deviceUnit = 'dBuV';
  axis = [-20, 80];
  colours = [-10, 60];
  isSet = false; // by a link or the first auto level

  constructor(url) {
    this.url = url;
    if (url.values.level) this.axis = url.values.level;
    if (url.values.colours) this.colours = url.values.colours;
    this.isSet = Boolean(url.values.level && url.values.colours);
  }

  onChange(listener) {
    this.#listeners.add(listener);
  }
  #tell() {
    for (const listener of this.#listeners) listener();
  }

  follow(frame) {
    if (frame.scale > 0) this.scale = frame.scale;
    this.deviceUnit = frame.unit || this.deviceUnit;
  }

  get isPower() {
    return this.url.values.unit === 'dBm' && this.deviceUnit === 'dBuV';
  }
  get offset() {
    return this.isPower ? DBM_OF_DBUV : 0;
  }
  get unit() {
    return this.isPower ? 'dBm' : unitText(this.deviceUnit);
  }
  get rawAxis() {
    return [this.axis[0] / this.scale, this.axis[1] / this.scale];
  }
  get rawColours() {
    return [this.colours[0] / this.scale, this.colours[1] / this.scale];
  }

  text(raw) {
    return raw === null || raw === undefined || raw === NO_VALUE
      ? 'no value'
      : `${(raw * this.scale + this.offset).toFixed(1)} ${this.unit}`;
  }
  label = (raw) => `${+(raw * this.scale + this.offset).toFixed(1)}`;

  /// Places of the level labels, in raw, for a plot of this height.
  rawTicks(height) {
    const [lowest, highest] = this.axis.map((level) => level + this.offset);
    return levelTicks(lowest, highest, height).map((level) => (level - this.offset) / this.scale);
  }

  toggleUnit() {
    this.url.set('unit', this.url.values.unit === 'dBm' ? '' : 'dBm');
    this.#tell();
  }

  setAxis(lowest, highest) {
    const span = Math.min(300, Math.max(LEAST_DB, highest - lowest));
    this.axis = [lowest, lowest + span];
    this.url.set('level', this.axis);
    this.#tell();
  }

  setColours(lowest, highest) {
    this.colours = [lowest, Math.max(highest, lowest + 1)];
    this.url.set('colours', this.colours);
    this.#tell();
  }

  zoomAxis(share, factor) {
    const [lowest, highest] = this.axis;
    const at = highest - share * (highest - lowest);
    this.setAxis(at - (at - lowest) * factor, at + (highest - at) * factor);
  }

  moveAxis(share) {
    const distance = share * (this.axis[1] - this.axis[0]);
    this.setAxis(this.axis[0] + distance, this.axis[1] + distance);
  }

  showShares(top, bottom) {
    const [lowest, highest] = this.axis;
    this.setAxis(highest - bottom * (highest - lowest), highest - top * (highest - lowest));
  }

  /// The first auto level leaves alone what a link has set.
  firstAuto(history, ring) {
    const { level, colours } = this.url.values;
    if (!this.auto(history, ring, false)) return;
    this.axis = level ?? this.axis;
    this.colours = colours ?? this.colours;
    this.isSet = true;
    this.#tell();
  }

  /// Percentiles of the newest rows: the floor a little above the bottom, all but the rarest levels below the
  /// top. Kept in the address only if the operator asked for it. Result: whether there were levels.
  auto(history, ring, keep = true) {
    this.#count.clear();
    for (let slot = history.newest; slot > history.newest - AUTO_ROWS && slot >= history.oldest; --slot)
      if (history.has(slot))
        this.#count.add(
          ring.subarray(history.baseOf(slot), history.baseOf(slot) + history.columns),
          NO_VALUE,
        );
    const [floor, high, highest] = [0.05, 0.999, 1].map((share) => this.#count.percentile(share));
    if (floor === null) return false;
    const db = (raw) => raw * this.scale;
    this.axis = [Math.floor((db(floor) - 8) / 10) * 10, Math.ceil((db(highest) + 12) / 10) * 10];
    this.colours = [Math.floor(db(floor)), Math.max(Math.ceil(db(high)), Math.floor(db(floor)) + 20)];
    if (keep)
      [
        ['level', this.axis],
        ['colours', this.colours],
      ].forEach(([name, value]) => this.url.set(name, value));
    this.#tell();
    return true;
  }
}
