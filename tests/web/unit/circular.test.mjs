// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { CircularMean, DirectionHistogram, difference } from '../../../web/js/circular.mjs';

const close = (actual, expected, tolerance = 1e-6) =>
  assert.ok(Math.abs(actual - expected) <= tolerance, `${actual} is not ${expected}`);

function meanOf(...samples) {
  const mean = new CircularMean();
  for (const [degrees, weight] of samples) mean.add(degrees, weight);
  return mean;
}

test('the mean of 350 and 20 degrees is 5, not 185', () => close(meanOf([350, 1], [20, 1]).mean, 5));
test('the mean is never negative', () => close(meanOf([350, 1]).mean, 350));
test('weights pull the mean', () => close(meanOf([0, 3], [90, 1]).mean, (Math.atan2(1, 3) * 180) / Math.PI));
test('equal directions have no deviation', () => close(meanOf([77, 2], [77, 9]).deviation, 0, 1e-5));
test('opposite directions have no common one', () => assert.ok(meanOf([0, 1], [180, 1]).deviation > 400));
test('nothing has an infinite deviation', () => assert.equal(new CircularMean().deviation, Infinity));

test('the deviation of a narrow spread is that of the samples', () => {
  // Four samples at 88, 89, 91, 92: root of the mean square is sqrt(2.5).
  close(meanOf([88, 1], [89, 1], [91, 1], [92, 1]).deviation, Math.sqrt(2.5), 0.01);
});

test('differences go the short way round', () => {
  assert.equal(difference(10, 350), 20);
  assert.equal(difference(350, 10), -20);
  assert.equal(difference(180, 0), -180);
});

test('peaks of a histogram cross north', () => {
  const histogram = new DirectionHistogram(72);
  for (const degrees of [357, 358, 359, 0, 1, 2]) histogram.add(degrees, 10);
  const [peak] = histogram.peaks(3);
  assert.ok(Math.abs(difference(peak.degrees, 0)) < 1, `${peak.degrees}`);
});

test('the strongest directions come first, and one peak only once', () => {
  const histogram = new DirectionHistogram(72);
  for (let i = 0; i < 20; ++i) histogram.add(91 + (i % 3), 50);
  for (let i = 0; i < 10; ++i) histogram.add(221 + (i % 3), 50);
  const peaks = histogram.peaks(3);
  assert.deepEqual(
    peaks.map((p) => Math.round(p.degrees / 10) * 10),
    [90, 220],
  );
  close(peaks[0].share, 2 / 3);
});

test('an empty histogram has no peaks', () => assert.deepEqual(new DirectionHistogram(72).peaks(3), []));
