// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { findPeaks, nextPeak } from '../../../web/js/markers.mjs';

const NO_VALUE = 32766;
const peaks = (levels, prominence = 60) =>
  findPeaks(Int16Array.from(levels), NO_VALUE, 0, levels.length, prominence);

test('peaks come highest first', () => {
  assert.deepEqual(peaks([0, 200, 0, 0, 300, 0, 100, 0]), [4, 1, 6]);
});

test('ripple below the prominence is no peak', () => {
  assert.deepEqual(peaks([0, 20, 0, 30, 10, 300, 280, 299, 0]), [5]);
});

test('a shoulder of a higher peak is no peak of its own', () => {
  assert.deepEqual(peaks([0, 100, 150, 140, 300, 0]), [4]);
});

test('peaks at the edges count', () => {
  assert.deepEqual(peaks([300, 0, 0, 200]), [0, 3]);
});

test('a gap of no value ends a peak and is never one', () => {
  assert.deepEqual(peaks([0, 200, NO_VALUE, NO_VALUE, 0, 100, 0]), [1, 5]);
});

test('a flat trace has no peak above its edges', () => {
  assert.deepEqual(peaks([5, 5, 5, 5]), []);
});

test('next peak walks down in level and begins again at the highest', () => {
  const levels = Int16Array.from([0, 200, 0, 300, 0, 100, 0]);
  const walk = [-1];
  for (let i = 0; i < 4; ++i) walk.push(nextPeak(levels, NO_VALUE, 0, levels.length, walk.at(-1), 60));
  assert.deepEqual(walk.slice(1), [3, 1, 5, 3]);
});

test('from beside a peak the next lower one is found', () => {
  const levels = Int16Array.from([0, 200, 0, 300, 250, 0, 100, 0]);
  assert.equal(nextPeak(levels, NO_VALUE, 0, levels.length, 4, 60), 1);
});

test('only what is shown is searched', () => {
  const levels = Int16Array.from([0, 900, 0, 300, 0, 100, 0]);
  assert.equal(nextPeak(levels, NO_VALUE, 2, levels.length, -1, 60), 3);
  assert.equal(nextPeak(levels, NO_VALUE, 0, 1, -1, 60), -1);
});
