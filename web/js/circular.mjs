// SPDX-License-Identifier: MIT
// Statistics on the circle: 359 and 1 degree are neighbours, their mean is north.

const RADIANS = Math.PI / 180;

/// Mean direction and circular standard deviation, in degrees, of samples with weights.
export class CircularMean {
  #sine = 0;
  #cosine = 0;
  #weight = 0;
  #count = 0;

  add(degrees, weight) {
    this.#sine += Math.sin(degrees * RADIANS) * weight;
    this.#cosine += Math.cos(degrees * RADIANS) * weight;
    this.#weight += weight;
    ++this.#count;
  }

  get count() {
    return this.#count;
  }
  get weight() {
    return this.#weight;
  }

  /// Length of the mean vector: 1 all agree, 0 none does.
  get length() {
    return this.#weight > 0 ? Math.min(1, Math.hypot(this.#sine, this.#cosine) / this.#weight) : 0;
  }

  get mean() {
    const degrees = Math.atan2(this.#sine, this.#cosine) / RADIANS;
    return degrees < 0 ? degrees + 360 : degrees;
  }

  /// Infinite when the samples have no common direction.
  get deviation() {
    return this.length > 0 ? Math.sqrt(Math.max(0, -2 * Math.log(this.length))) / RADIANS : Infinity;
  }
}

/// Signed difference a - b on the circle, -180 to 180 degrees.
export function difference(a, b) {
  return ((((a - b + 540) % 360) + 360) % 360) - 180;
}

/// Sum of weights by direction, in bins of equal width that begin at north.
export class DirectionHistogram {
  constructor(binCount) {
    this.bins = new Float64Array(binCount);
    this.width = 360 / binCount;
  }

  clear() {
    this.bins.fill(0);
  }
  add(degrees, weight) {
    this.bins[Math.floor(degrees / this.width) % this.bins.length] += weight;
  }

  /// The strongest directions: mean and deviation over the bins around each local maximum, strongest first.
  peaks(most, reach = 3) {
    const count = this.bins.length;
    const total = this.bins.reduce((sum, weight) => sum + weight, 0);
    const at = (i) => this.bins[(i + count) % count];
    const taken = new Uint8Array(count);
    const order = [...this.bins.keys()]
      .filter((i) => this.bins[i] > total * 0.01)
      .sort((a, b) => this.bins[b] - this.bins[a]);
    const peaks = [];
    for (const i of order) {
      if (peaks.length === most) break;
      if (taken[i] || at(i) < at(i - 1) || at(i) < at(i + 1)) continue;
      const mean = new CircularMean();
      for (let k = i - reach; k <= i + reach; ++k) {
        if (taken[(k + count) % count]) continue;
        taken[(k + count) % count] = 1;
        mean.add((k + 0.5) * this.width, at(k));
      }
      peaks.push({ degrees: mean.mean, deviation: mean.deviation, share: mean.weight / total });
    }
    return peaks;
  }
}
