// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Grid, decimate, mapColumns } from '../../../web/js/grid.mjs';

const NO_VALUE = 32766;
const grid = new Grid([{ start: 100, step: 10, first: 0, count: 11 }], 11);

function columns(of, from, to, width) {
  const lo = new Int32Array(width);
  const hi = new Int32Array(width);
  mapColumns(of, from, to, lo, hi);
  return [...lo].map((first, c) => [first, hi[c]]);
}

test('channels lie at start plus k times step', () => {
  assert.equal(grid.positionOf(3), 130);
  assert.deepEqual([grid.from, grid.to], [100, 200]);
});

test('a position belongs to the channel that covers it, and to none outside', () => {
  assert.equal(grid.indexOf(134), 3);
  assert.equal(grid.indexOf(136), 4);
  assert.equal(grid.indexOf(94), -1);
  assert.equal(grid.indexOf(206), -1);
});

test('each channel is in exactly one column when columns are wider than channels', () => {
  const shown = columns(grid, 95, 205, 4).flatMap(([lo, hi]) =>
    Array.from({ length: hi - lo }, (_, i) => lo + i),
  );
  assert.deepEqual(shown, [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10]);
});

test('columns narrower than a channel show the one that covers them', () => {
  assert.deepEqual(columns(grid, 105, 125, 4), [
    [1, 2],
    [1, 2],
    [2, 3],
    [2, 3],
  ]);
});

test('columns outside the grid, and between its ranges, are empty', () => {
  const two = new Grid(
    [
      { start: 0, step: 1, first: 0, count: 2 },
      { start: 10, step: 1, first: 2, count: 2 },
    ],
    4,
  );
  assert.deepEqual(
    columns(two, -2, 14, 8).map(([lo, hi]) => hi - lo),
    [0, 2, 0, 0, 0, 0, 2, 0],
  );
});

test('ranges that claim more channels than the arrays have are cut', () => {
  assert.equal(new Grid([{ start: 0, step: 1, first: 4, count: 100 }], 10).to, 5);
});

for (const [name, range] of [
  ['an infinite step', { step: Infinity }],
  ['a step of 0', { step: 0 }],
  ['no number as start', { start: NaN }],
  ['no channels', { count: 0 }],
])
  test(`a range with ${name} is left out`, () => {
    assert.equal(new Grid([{ start: 0, step: 1, first: 0, count: 3, ...range }], 3).empty, true);
  });

test('a column shows the highest of its channels, never a sample of them', () => {
  const levels = Int16Array.of(1, 2, 99, 3, 4, 5, 6, 7, 8, 9, 10);
  const lo = Int32Array.of(0, 5);
  const hi = Int32Array.of(5, 11);
  assert.deepEqual(decimate(levels, NO_VALUE, lo, hi, []), [99, 10]);
  assert.deepEqual(decimate(levels, NO_VALUE, lo, hi, [], true), [1, 5]);
});

test('no value is a gap, not a level', () => {
  const levels = Int16Array.of(NO_VALUE, NO_VALUE, NO_VALUE, 4);
  assert.deepEqual(decimate(levels, NO_VALUE, Int32Array.of(0, 2, 4), Int32Array.of(2, 4, 4), []), [
    null,
    4,
    null,
  ]);
});

test('every carrier of a random trace is in the drawing of any width', () => {
  const n = 4096;
  const wide = new Grid([{ start: 0, step: 1, first: 0, count: n }], n);
  for (const width of [1, 7, 640, 1023, 4096, 9000])
    for (const at of [0, 1, 1777, 4094, 4095]) {
      const levels = new Int16Array(n).fill(-100);
      levels[at] = 500;
      const lo = new Int32Array(width);
      const hi = new Int32Array(width);
      mapColumns(wide, -0.5, n - 0.5, lo, hi);
      const drawn = decimate(levels, NO_VALUE, lo, hi, []);
      assert.equal(Math.max(...drawn), 500, `width ${width}, channel ${at}`);
    }
});
