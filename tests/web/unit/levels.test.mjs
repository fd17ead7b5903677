// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { azimuthColour, oklch, viridis } from '../../../web/js/colours.mjs';
import * as format from '../../../web/js/format.mjs';
import { LevelCount } from '../../../web/js/percentile.mjs';

const percentiles = (levels, ...shares) => {
  const count = new LevelCount();
  count.add(Int16Array.from(levels), 32766);
  return shares.map((share) => count.percentile(share));
};

test('percentiles are levels that were there', () => {
  assert.deepEqual(percentiles([5, 1, 4, 2, 3], 0, 0.2, 0.21, 0.5, 1), [1, 1, 2, 3, 5]);
});
test('no value counts for nothing', () =>
  assert.deepEqual(percentiles([32766, -7, 32766], 0.5, 1), [-7, -7]));
test('without levels there is no percentile', () => assert.deepEqual(percentiles([32766], 0.5), [null]));
test('the extremes of 16 bits have their place', () =>
  assert.deepEqual(percentiles([-32768, 32767], 0.1, 1), [-32768, 32767]));

const luminance = ([r, g, b]) => 0.2126 * r + 0.7152 * g + 0.0722 * b;

test('directions are alike in brightness and the circle closes', () => {
  const all = Array.from({ length: 360 }, (_, degrees) => luminance(azimuthColour(degrees)));
  assert.ok(Math.max(...all) / Math.min(...all) < 1.35, `${Math.max(...all) / Math.min(...all)}`);
  assert.deepEqual(azimuthColour(360), azimuthColour(0));
});

test('no direction is cut off at the edge of what a screen shows', () => {
  for (let degrees = 0; degrees < 360; ++degrees)
    for (const channel of azimuthColour(degrees))
      assert.ok(channel > 0 && channel < 255, `${degrees}: ${channel}`);
});

test('white and black are where they belong', () => {
  assert.deepEqual(oklch(1, 0, 0), [255, 255, 255]);
  assert.deepEqual(oklch(0, 0, 0), [0, 0, 0]);
});

test('viridis is the published one to 2 % and grows in brightness', () => {
  const map = viridis();
  const bytes = (i) => [map[i] & 255, (map[i] >> 8) & 255, (map[i] >> 16) & 255];
  for (const [i, expected] of [
    [0, [68, 1, 84]],
    [127, [33, 144, 141]],
    [255, [253, 231, 37]],
  ])
    bytes(i).forEach((x, c) => assert.ok(Math.abs(x - expected[c]) <= 5, `${i}: ${bytes(i)}`));
  for (let i = 8; i < 256; i += 8) assert.ok(luminance(bytes(i)) > luminance(bytes(i - 8)), `${i}`);
});

for (const [actual, expected] of [
  [format.frequency(101.15e6, 10e3), '101.15 MHz'],
  [format.frequency(101.15e6, 6250), '101.150 MHz'],
  [format.frequency(2.4e9, 1e6), '2.400 GHz'],
  [format.frequency(433.92e6, 1), '433.920000 MHz'],
  [format.frequency(12500, 1), '12.500 kHz'],
  [format.frequency(NaN), '–'],
  [format.shortFrequency(20e6), '20 MHz'],
  [format.duration(0.012), '12 ms'],
  [format.duration(3.24), '3.2 s'],
  [format.duration(600), '10 min'],
  [format.position(62.54), '1:02.5'],
  [format.utc(Date.UTC(2025, 0, 1, 4, 5, 21, 132), true), '04:05:21.132'],
  [format.utc(0), '–'],
  [format.msOfNs('1735689600012000000'), 1735689600012],
  [format.unitText('dBuV'), 'dBµV'],
  [format.bytes(201000), '201 kB'],
  [format.niceStep(10, 8), 2],
])
  test(`it reads ${expected}`, () => assert.equal(actual, expected));
