// SPDX-License-Identifier: MIT
// Numbers, times and units as an operator reads them.

const PREFIXES = [
  [1e9, 'GHz'],
  [1e6, 'MHz'],
  [1e3, 'kHz'],
  [1, 'Hz'],
];

/// A frequency with as many digits as the step needs: 101.150 000 MHz reads 101.15 where the step is 10 kHz.
export function frequency(hz, stepHz = 1) {
  if (!Number.isFinite(hz)) return '–';
  const [factor, unit] =
    Math.abs(hz) >= 1e9 && stepHz >= 1e5
      ? PREFIXES[0]
      : (PREFIXES.find(([f]) => f <= 1e6 && Math.abs(hz) >= f) ?? PREFIXES[3]);
  const digits = Math.max(0, Math.ceil(Math.log10(factor / Math.max(stepHz, 1e-3)) - 1e-9));
  return `${(hz / factor).toFixed(Math.min(digits, 9))} ${unit}`;
}

/// A frequency or span without digits that say nothing.
export function shortFrequency(hz) {
  if (!Number.isFinite(hz)) return '–';
  const [factor, unit] = PREFIXES.find(([f]) => Math.abs(hz) >= f) ?? PREFIXES[3];
  return `${+(hz / factor).toPrecision(7)} ${unit}`;
}

export function duration(seconds) {
  if (!Number.isFinite(seconds)) return '–';
  if (seconds < 1) return `${Math.round(seconds * 1000)} ms`;
  if (seconds < 10) return `${seconds.toFixed(1)} s`;
  if (seconds < 120) return `${Math.round(seconds)} s`;
  return seconds < 7200 ? `${Math.round(seconds / 60)} min` : `${Math.round(seconds / 3600)} h`;
}

const two = (x) => String(x).padStart(2, '0');

/// Clock of a position in a recording: 1:02.5.
export function position(seconds) {
  return `${Math.floor(seconds / 60)}:${(seconds % 60).toFixed(1).padStart(4, '0')}`;
}

/// UTC of a time in milliseconds since 1970, to the second or the millisecond.
export function utc(ms, withMilliseconds = false) {
  if (!(ms > 0)) return '–';
  const date = new Date(ms);
  const text = `${two(date.getUTCHours())}:${two(date.getUTCMinutes())}:${two(date.getUTCSeconds())}`;
  return withMilliseconds ? `${text}.${String(date.getUTCMilliseconds()).padStart(3, '0')}` : text;
}

export const utcDate = (ms) => (ms > 0 ? new Date(ms).toISOString().slice(0, 10) : '');

/// Milliseconds of nanoseconds in a string, as the stream's texts carry them.
export const msOfNs = (text) => Number(BigInt(text || 0) / 1000000n);

export const count = (n) => Math.round(n).toLocaleString('en-US');

export function bytes(n) {
  return n >= 1e6 ? `${(n / 1e6).toFixed(n < 1e7 ? 2 : 1)} MB` : `${(n / 1e3).toFixed(0)} kB`;
}

export const degrees = (x) => `${x.toFixed(1)}°`;

/// Units of levels: what the device sends, as it is written; voltages can be read as power into 50 ohms too.
export const unitText = (unit) => unit.replace(/^dBu/, 'dBµ');
export const DBM_OF_DBUV = -106.99;

/// Steps of an axis that read well: 1, 2 or 5 times a power of ten.
export function niceStep(span, most) {
  const raw = span / most;
  const power = 10 ** Math.floor(Math.log10(raw));
  return [1, 2, 5, 10].find((x) => x * power >= raw * 0.9999) * power;
}

/// Ticks of a level axis of this height in pixels: none so low that it would stand beside those of the other
/// axis.
export const levelTicks = (lowest, highest, height) =>
  ticks(lowest + ((highest - lowest) * 10) / height, highest, Math.max(2.5, height / 32)).at;

/// Ticks at multiples of a step that reads well.
export function ticks(from, to, most) {
  const step = niceStep(to - from, most);
  const first = Math.ceil(from / step - 1e-9);
  const count = Math.max(0, Math.floor(to / step + 1e-9) - first + 1);
  return { step, at: Array.from({ length: count }, (_, i) => (first + i) * step) };
}
