// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { AxisView } from '../../../web/js/axisview.mjs';
import { formatState, parseState } from '../../../web/js/urlstate.mjs';

test('a state comes back from its address', () => {
  const query =
    'span=100000000_101500000.5&traces=live.min&level=-10_60&auto=1&markers=1e8_1.01e8&quality=55&theme=light';
  const state = parseState(query);

  assert.deepEqual(state.span, [100000000, 101500000.5]);
  assert.deepEqual(state.traces, ['live', 'min']);
  assert.deepEqual(state.level, [-10, 60]);
  assert.equal(state.auto, true);
  assert.deepEqual(state.markers, [1e8, 1.01e8]);
  assert.deepEqual(parseState(formatState(state)), state);
});

test('what has its default is left out of the address', () => assert.equal(formatState(parseState('')), ''));

for (const bad of [
  'span=5_1',
  'span=abc',
  'span=1',
  'level=_',
  'quality=',
  'quality=x',
  'markers=1_x',
  'traces=<b>',
])
  test(`an address with ${bad} shows the default`, () => {
    const name = bad.split('=')[0];
    const expected = name === 'traces' ? [] : parseState('')[name];
    assert.deepEqual(parseState(bad)[name], expected);
  });

function view() {
  const axis = new AxisView();
  axis.setFull(0, 1000, 10);
  return axis;
}

test('zooming keeps the position under the cursor', () => {
  const axis = view();
  axis.zoomAt(300, 0.5);
  assert.deepEqual([axis.from, axis.to], [150, 650]);
});

test('panning and zooming out stop at the ends', () => {
  const axis = view();
  axis.show(100, 200);
  axis.pan(-500);
  assert.deepEqual([axis.from, axis.to], [0, 100]);
  axis.zoomAt(50, 1000);
  assert.deepEqual([axis.from, axis.to, axis.isFull], [0, 1000, true]);
});

test('nothing zooms in further than the smallest span', () => {
  const axis = view();
  axis.zoomAt(500, 1e-9);
  assert.equal(axis.to - axis.from, 10);
});

test('a full view follows a new grid, a zoomed one stays while the grid reaches it', () => {
  const axis = view();
  axis.setFull(0, 2000, 10);
  assert.equal(axis.to, 2000);
  axis.show(1000, 1100);
  axis.setFull(500, 3000, 10);
  assert.deepEqual([axis.from, axis.to], [1000, 1100]);
  axis.setFull(5000, 6000, 10);
  assert.deepEqual([axis.from, axis.to, axis.isFull], [5000, 6000, true]);
});

test('a change is told once, no change is not', () => {
  const axis = view();
  let told = 0;
  axis.onChange(() => ++told);
  axis.show(100, 200);
  axis.show(100, 200);
  assert.equal(told, 1);
});
