// SPDX-License-Identifier: MIT
// Peaks of a trace, and the two markers.

/// The peak that follows a given one in level (the highest for index -1, or when there is none lower).
/// A peak stands out of what lies between it and higher ones by at least `prominence`.
export function nextPeak(levels, noValue, from, to, index, prominence) {
  const peaks = findPeaks(levels, noValue, from, to, prominence);
  if (peaks.length === 0) return -1;
  const at = peaks.findIndex((p) => p === index);
  if (at >= 0) return peaks[(at + 1) % peaks.length];
  if (index < 0) return peaks[0];
  return peaks.find((p) => levels[p] < levels[index]) ?? peaks[0];
}

/// Indices of all peaks between `from` and `to` (excluded), highest first; equal ones from left to right.
export function findPeaks(levels, noValue, from, to, prominence) {
  const peaks = [];
  let candidate = -1;
  let valley = Infinity; // lowest level since the last peak or candidate
  const keep = () => {
    if (candidate >= 0) peaks.push(candidate);
    candidate = -1;
  };
  for (let i = from; i < to; ++i) {
    const level = levels[i];
    if (level === noValue) {
      keep();
      valley = Infinity;
      continue;
    }
    if (candidate >= 0 && level > levels[candidate]) candidate = i;
    else if (candidate < 0 && (valley === Infinity || level >= valley + prominence)) candidate = i;
    if (candidate >= 0 && level <= levels[candidate] - prominence) {
      keep();
      valley = level;
    }
    valley = Math.min(valley, level);
  }
  if (candidate >= 0 && levels[candidate] >= valley + prominence) keep();
  return peaks.sort((a, b) => levels[b] - levels[a] || a - b);
}
