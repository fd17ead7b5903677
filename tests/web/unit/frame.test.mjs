// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { FrameDecoder } from '../../../web/js/frame.mjs';

// Byte numbers by hand, not by the page's own code: this is what the wire carries.
function bytesOfFrame({ stream = 1, arrays = 0b00101, ranges = 1, version = 1 } = {}) {
  const bytes = new Uint8Array(96 + 24 + 2 * 3 * 2);
  bytes.set([0x56, 0x4b, 0x34, 0x53, version, stream, arrays, 0]);
  bytes.set([7, 0, 0, 0, 2, 0, 0, 0], 8); // sequence 7, skipped 2
  bytes.set([0x00, 0x84, 0x5f, 0x8f, 0xf0, 0x6e, 0x16, 0x18], 16);
  bytes.set([5, 0, 0, 0, 1, 0, 0, 0], 32); // trace 2^32 + 5
  bytes.set([3, 0, 0, 0, 16, 0, 0, 0], 40); // lost 3, average 16
  bytes.set([0x9a, 0x99, 0x99, 0x99, 0x99, 0x99, 0xb9, 0x3f], 56); // 0.1
  bytes.set([0x64, 0x42, 0x75, 0x56], 64); // dBuV
  bytes.set([9, 0, 0, 0, 3, 0, 0, 0, ranges, 0, 0, 1], 72); // grid 9, n 3, axis Hz, replayed
  bytes.set([0, 0, 0, 0, 0x84, 0xd7, 0x97, 0x41], 96); // 1e8 as f64
  bytes.set([0, 0, 0, 0, 0, 0x6a, 0xf8, 0x40], 104); // 1e5
  bytes.set([0, 0, 0, 0, 3, 0, 0, 0], 112);
  bytes.set([0x26, 0xfd, 0xfe, 0x7f, 0xfe, 0x7f], 120); // -730, then 32766 twice
  bytes.set([1, 0, 2, 0, 3, 0], 126);
  return bytes.buffer;
}

test('a frame gives what stands at the published offsets', () => {
  const frame = new FrameDecoder().decode(bytesOfFrame());

  assert.equal(frame.stream, 'panorama');
  assert.equal(frame.sequence, 7);
  assert.equal(frame.skipped, 2);
  assert.equal(frame.number, 4294967301);
  assert.equal(frame.lost, 3);
  assert.equal(frame.averageCount, 16);
  assert.equal(frame.scale, 0.1);
  assert.equal(frame.unit, 'dBuV');
  assert.equal(frame.gridNumber, 9);
  assert.equal(frame.axis, 'Hz');
  assert.equal(frame.replayed, true);
  assert.deepEqual(frame.ranges, [{ start: 1e8, step: 1e5, first: 0, count: 3 }]);
});

test('times of nanoseconds are milliseconds, exact to the microsecond', () => {
  const frame = new FrameDecoder().decode(bytesOfFrame());

  const expected = Number(0x18166ef08f5f8400n / 1000n) / 1000;
  assert.ok(Math.abs(frame.timeMs - expected) < 0.001, `${frame.timeMs} for ${expected}`);
  assert.equal(frame.receivedMs, 0);
});

test('arrays follow in the order of their bits, others are absent', () => {
  const frame = new FrameDecoder().decode(bytesOfFrame());

  assert.deepEqual([...frame.live], [-730, 32766, 32766]);
  assert.deepEqual([...frame.min], [1, 2, 3]);
  assert.equal(frame.max, null);
  assert.equal(frame.hold, null);
});

test('arrays of a direction-finding frame have their own names', () => {
  const frame = new FrameDecoder().decode(bytesOfFrame({ stream: 4, arrays: 0b00110 }));

  assert.deepEqual([...frame.quality], [1, 2, 3]);
  assert.equal(frame.azimuth[0], -730);
  assert.equal(frame.live, null);
});

test('a grid is decoded once for its number', () => {
  const decoder = new FrameDecoder();

  assert.equal(decoder.decode(bytesOfFrame()).ranges, decoder.decode(bytesOfFrame()).ranges);
});

for (const [name, buffer, text] of [
  ['nothing', new ArrayBuffer(0), /VK4S/],
  ['another magic', new ArrayBuffer(200), /VK4S/],
  ['another version', bytesOfFrame({ version: 2 }), /version 1/],
  ['an unknown stream', bytesOfFrame({ stream: 9 }), /stream 1 to 4/],
  ['more ranges than there are bytes', bytesOfFrame({ ranges: 40 }), /expected/],
  ['more arrays than there are bytes', bytesOfFrame({ arrays: 0b11111 }), /expected 6 bytes/],
])
  test(`a frame of ${name} is refused with what was expected`, () => {
    assert.throws(() => new FrameDecoder().decode(buffer), text);
  });

test('no prefix of a frame is taken for a frame', () => {
  const whole = bytesOfFrame();
  for (let size = 0; size < whole.byteLength; ++size)
    assert.throws(() => new FrameDecoder().decode(whole.slice(0, size)), `size ${size}`);
});
