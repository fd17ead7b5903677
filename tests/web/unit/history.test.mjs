// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { History, ROWS, mergeBearings, mergeLevels } from '../../../web/js/history.mjs';

const NO_VALUE = 32766;
const START = 1e6;

function levels(rowMs = 50, n = 3) {
  const history = new History(1, mergeLevels);
  history.configure(n, rowMs);
  return history;
}

const rowAt = (history, ms, ring = 0) => {
  const slot = history.slotOf(ms);
  const base = history.baseOf(slot);
  return history.has(slot) ? [...history.rows[ring].subarray(base, base + history.columns)] : null;
};
const push = (history, ms, values, lost = 0) => history.push(START + ms, lost, [Int16Array.from(values)]);

test('a row lies where its time lies', () => {
  const history = levels();
  push(history, 0, [1, 2, 3]);
  push(history, 500, [4, 5, 6], 1);

  assert.deepEqual(rowAt(history, START), [1, 2, 3]);
  assert.deepEqual(rowAt(history, START + 500), [4, 5, 6]);
});

test('traces that share a row keep their highest levels', () => {
  const history = levels();
  push(history, 0, [1, 9, NO_VALUE]);
  push(history, 20, [5, 2, 3]);

  assert.deepEqual(rowAt(history, START), [5, 9, 3]);
});

test('lost traces leave a hole that says so', () => {
  const history = levels();
  push(history, 0, [1, 2, 3]);
  push(history, 50, [1, 2, 3]);
  push(history, 200, [4, 5, 6], 2);

  assert.equal(rowAt(history, START + 100), null);
  assert.deepEqual(
    [0, 50, 100, 150, 200].map((ms) => history.lostIn(history.slotOf(START + ms))),
    [0, 0, 2, 2, 2],
  );
});

test('a row that lost one of its traces says so too', () => {
  const history = levels();
  push(history, 0, [1, 2, 3]);
  push(history, 10, [1, 2, 3], 1);
  push(history, 20, [1, 2, 3]);

  assert.equal(history.lostIn(history.slotOf(START)), 1);
});

test('a slow device leaves no holes, its trace holds until the next is due', () => {
  const history = levels();
  for (const ms of [0, 200, 400, 600]) push(history, ms, [ms, 0, 0]);

  assert.deepEqual(rowAt(history, START + 550), [400, 0, 0]);
});

test('a pause is a hole, even without a loss', () => {
  const history = levels();
  for (const ms of [0, 50, 100, 150, 1150]) push(history, ms, [1, 2, 3]);

  assert.equal(rowAt(history, START + 600), null);
  assert.equal(history.lostIn(history.slotOf(START + 600)), 0);
});

test('the ring keeps its number of rows and no more', () => {
  const history = levels();
  for (let i = 0; i < ROWS + 10; ++i) push(history, i * 50, [i, 0, 0]);

  assert.equal(rowAt(history, START + 9 * 50), null);
  assert.deepEqual(rowAt(history, START + 10 * 50), [10, 0, 0]);
  assert.equal(history.newest - history.oldest, ROWS - 1);
});

test('a leap forward leaves nothing of the old time', () => {
  const history = levels();
  push(history, 0, [1, 2, 3]);
  push(history, 50 * ROWS * 3, [4, 5, 6]);

  assert.equal(history.slots.filter((slot) => slot >= 0).length, 1);
});

test('a trace that comes a little late goes to its own row', () => {
  const history = levels();
  push(history, 100, [1, 1, 1]);
  push(history, 40, [7, 7, 7]);

  assert.deepEqual(rowAt(history, START + 40), [7, 7, 7]);
  assert.equal(history.newest, history.slotOf(START + 100));
});

test('a clock that goes back begins a new history', () => {
  const history = levels();
  const generation = history.generation;
  push(history, 10000, [1, 1, 1]);
  push(history, 0, [7, 7, 7]);

  assert.equal(rowAt(history, START + 10000), null);
  assert.deepEqual(rowAt(history, START), [7, 7, 7]);
  assert.ok(history.generation > generation);
});

test('a wide trace is reduced by its highest levels, so that memory is bounded', () => {
  const history = levels(50, 20000);
  const wide = new Int16Array(20000).fill(-5);
  wide[19999] = 70;
  history.push(START, 0, [wide]);

  assert.ok(history.columns <= 8192);
  assert.equal(rowAt(history, START)[Math.floor(19999 / history.factor)], 70);
});

test('of bearings that share a row the one of the best quality stays', () => {
  const history = new History(3, mergeBearings);
  history.configure(3, 50);
  const bearings = (azimuth, quality, validity) =>
    history.push(
      START,
      0,
      [azimuth, quality, [10, 20, 30], validity].map((x) => Int16Array.from(x)),
    );
  bearings([100, 200, 3600], [50, 60, 70], [0, 0, 0]);
  bearings([111, 222, -1], [40, 80, 90], [0, 0, 0]);
  bearings([5, 5, 5], [99, 99, 99], [2, 4, 1]);

  assert.deepEqual(rowAt(history, START, 0), [100, 222, 0]);
  assert.deepEqual(rowAt(history, START, 1), [50, 80, 70]);
});
