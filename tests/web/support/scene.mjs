// SPDX-License-Identifier: MIT
// A small band whose every level is known: carriers over a floor, bearings of two transmitters, a burst over
// time.

export const CARRIERS = [
  [97e6, 600],
  [100e6, 450],
  [103.25e6, 300],
]; // Hz, tenths of a dBuV
export const TRANSMITTERS = [
  [98.5e6, 1234, 92],
  [102e6, 2750, 71],
]; // Hz, tenths of a degree, percent
const FLOOR = 50;

/// Noise from a counter, so that each run has the same.
function noise(seed) {
  const x = Math.imul(seed ^ (seed >>> 15), 0x2c1b3c6d);
  return (((x ^ (x >>> 12)) >>> 0) % 41) - 20;
}

export class Scene {
  constructor({ points = 1601, bearings = true, zeroSpan = true } = {}) {
    this.points = points;
    this.bearings = bearings;
    this.zeroSpan = zeroSpan;
    this.traces = 0;
    this.max = new Int16Array(points).fill(-32768);
    this.min = new Int16Array(points).fill(32767);
    this.range = { start: 95e6, step: 10e6 / (points - 1), first: 0, count: points };
  }

  panorama() {
    const live = new Int16Array(this.points);
    for (let i = 0; i < this.points; ++i) live[i] = FLOOR + noise(this.traces * this.points + i);
    for (const [hz, level] of CARRIERS) {
      const k = Math.round((hz - this.range.start) / this.range.step);
      for (let i = -2; i <= 2; ++i) live[k + i] = level - Math.abs(i) * 80;
    }
    for (let i = 0; i < 20; ++i) live[this.points - 20 + i] = 32766; // the end of the band is not measured
    for (let i = 0; i < this.points; ++i) {
      if (live[i] === 32766) {
        this.max[i] = this.min[i] = 32766;
        continue;
      }
      this.max[i] = Math.max(this.max[i], live[i]);
      this.min[i] = Math.min(this.min[i], live[i]);
    }
    ++this.traces;
    const average = live.map((level) => (level === 32766 || level > FLOOR + 20 ? level : FLOOR));
    return {
      stream: 1,
      ranges: [this.range],
      number: this.traces,
      arrays: [
        [0, live],
        [1, this.max.slice()],
        [2, this.min.slice()],
        [3, average],
        [4, this.max.slice()],
      ],
    };
  }

  directions() {
    const count = 801;
    const range = { start: 95e6, step: 12500, first: 0, count };
    const arrays = [FLOOR, -1, -1, 0, 0].map((value) => new Int16Array(count).fill(value));
    for (const [hz, azimuth, quality] of TRANSMITTERS) {
      const k = Math.round((hz - range.start) / range.step);
      for (let i = -3; i <= 3; ++i) {
        arrays[0][k + i] = 400 - Math.abs(i) * 40;
        arrays[1][k + i] = (azimuth + noise(this.traces + i) + 3600) % 3600;
        arrays[2][k + i] = quality - Math.abs(i) * 2;
      }
    }
    return {
      stream: 4,
      ranges: [range],
      number: this.traces,
      arrays: arrays.map((values, bit) => [bit, values]),
    };
  }

  overTime() {
    const live = new Int16Array(1001);
    for (let i = 0; i < 1001; ++i) live[i] = (i > 300 && i < 500 ? 420 : FLOOR) + noise(this.traces + i);
    return {
      stream: 2,
      ranges: [{ start: 0, step: 2e-5, first: 0, count: 1001 }],
      axis: 1,
      number: this.traces,
      arrays: [[0, live]],
    };
  }
}
