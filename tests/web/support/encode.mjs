// SPDX-License-Identifier: MIT
// Writes frames as docs/stream-api.md lays them out, for the stand-in server of the tests.

const NS = 1000000n;

export function encodeFrame(frame) {
  const arrays = frame.arrays; // [[bit, Int16Array], ...] in ascending order
  const n = arrays[0][1].length;
  const bytes = Buffer.alloc(96 + 24 * frame.ranges.length + 2 * n * arrays.length);
  bytes.write('VK4S', 0, 'latin1');
  bytes.writeUInt8(1, 4);
  bytes.writeUInt8(frame.stream, 5);
  bytes.writeUInt16LE(
    arrays.reduce((bits, [bit]) => bits | (1 << bit), 0),
    6,
  );
  bytes.writeUInt32LE(frame.sequence, 8);
  bytes.writeUInt32LE(0, 12);
  bytes.writeBigInt64LE(BigInt(Math.round(frame.timeMs)) * NS, 16);
  bytes.writeBigInt64LE(BigInt(Date.now()) * NS, 24);
  bytes.writeBigUInt64LE(BigInt(frame.number), 32);
  bytes.writeUInt32LE(frame.lost ?? 0, 40);
  bytes.writeUInt32LE(16, 44);
  bytes.writeBigInt64LE(BigInt(frame.holdSinceMs ?? 0) * NS, 48);
  bytes.writeDoubleLE(0.1, 56);
  bytes.write('dBuV', 64, 'latin1');
  bytes.writeUInt32LE(frame.gridNumber ?? 1, 72);
  bytes.writeUInt32LE(n, 76);
  bytes.writeUInt16LE(frame.ranges.length, 80);
  bytes.writeUInt8(frame.axis ?? 0, 82);
  frame.ranges.forEach(({ start, step, first, count }, i) => {
    bytes.writeDoubleLE(start, 96 + 24 * i);
    bytes.writeDoubleLE(step, 104 + 24 * i);
    bytes.writeUInt32LE(first, 112 + 24 * i);
    bytes.writeUInt32LE(count, 116 + 24 * i);
  });
  let at = 96 + 24 * frame.ranges.length;
  for (const [, values] of arrays) {
    Buffer.from(values.buffer, values.byteOffset, values.byteLength).copy(bytes, at);
    at += values.byteLength;
  }
  return bytes;
}
