// SPDX-License-Identifier: MIT
// Binary frames of the stream: one trace of one stream at one time. The layout stands in docs/stream-api.md.

export const NO_VALUE = 32766;
const HEADER_SIZE = 96;
const RANGE_SIZE = 24;
const STREAMS = [null, 'panorama', 'zerospan', 'zerospan2', 'df'];
const LEVEL_ARRAYS = ['live', 'max', 'min', 'average', 'hold'];
const DF_ARRAYS = ['live', 'azimuth', 'quality', 'elevation', 'validity'];

/// Milliseconds of an i64 of nanoseconds. As numbers, not BigInt: a frame must not leave garbage behind.
function milliseconds(view, offset) {
  return view.getInt32(offset + 4, true) * 4294.967296 + view.getUint32(offset, true) * 1e-6;
}

function unitOf(view) {
  let text = '';
  for (let i = 64; i < 72 && view.getUint8(i) !== 0; ++i) text += String.fromCharCode(view.getUint8(i));
  return text;
}

function rangesOf(view, count) {
  const ranges = [];
  for (let at = HEADER_SIZE; ranges.length < count; at += RANGE_SIZE)
    ranges.push({
      start: view.getFloat64(at, true),
      step: view.getFloat64(at + 8, true),
      first: view.getUint32(at + 16, true),
      count: view.getUint32(at + 20, true),
    });
  return ranges;
}

function check(view, names) {
  if (view.byteLength < HEADER_SIZE || view.getUint32(0, false) !== 0x564b3453)
    throw new Error(`expected a frame that begins with VK4S, got ${view.byteLength} other bytes`);
  if (view.getUint8(4) !== 1)
    throw new Error(`expected version 1 of the stream, got ${view.getUint8(4)}; reload the page`);
  if (!names) throw new Error(`expected stream 1 to 4, got ${view.getUint8(5)}`);
}

/// Turns messages of one connection into frames. Arrays of a frame are views of the message, not copies.
export class FrameDecoder {
  #grids = new Map(); // stream -> {number, ranges}: a grid is decoded when it changes, not sixty times a second

  decode(buffer) {
    const view = new DataView(buffer);
    const stream = view.byteLength > 5 ? STREAMS[view.getUint8(5)] : null;
    check(view, stream);
    const n = view.getUint32(76, true);
    const rangeCount = view.getUint16(80, true);
    const frame = {
      stream,
      sequence: view.getUint32(8, true),
      skipped: view.getUint32(12, true),
      timeMs: milliseconds(view, 16),
      receivedMs: milliseconds(view, 24),
      number: view.getUint32(32, true) + view.getUint32(36, true) * 4294967296,
      lost: view.getUint32(40, true),
      averageCount: view.getUint32(44, true),
      holdSinceMs: milliseconds(view, 48),
      scale: view.getFloat64(56, true),
      unit: unitOf(view),
      gridNumber: view.getUint32(72, true),
      n,
      axis: view.getUint8(82) === 1 ? 'seconds' : 'Hz',
      replayed: (view.getUint8(83) & 1) !== 0,
      ranges: null,
    };
    const arraysAt = HEADER_SIZE + rangeCount * RANGE_SIZE;
    this.#addArrays(frame, buffer, view.getUint16(6, true), arraysAt);
    frame.ranges = this.#ranges(frame, view, rangeCount);
    return frame;
  }

  #addArrays(frame, buffer, bits, start) {
    const names = frame.stream === 'df' ? DF_ARRAYS : LEVEL_ARRAYS;
    let at = start;
    for (let bit = 0; bit < names.length; ++bit) {
      if (!(bits & (1 << bit))) {
        frame[names[bit]] = null;
        continue;
      }
      if (at + frame.n * 2 > buffer.byteLength)
        throw new Error(
          `expected ${frame.n * 2} bytes of ${names[bit]} at ${at}, got ${buffer.byteLength - at}`,
        );
      frame[names[bit]] = new Int16Array(buffer, at, frame.n);
      at += frame.n * 2;
    }
  }

  #ranges(frame, view, count) {
    const known = this.#grids.get(frame.stream);
    if (known && known.number === frame.gridNumber && known.ranges.length === count) return known.ranges;
    if (HEADER_SIZE + count * RANGE_SIZE > view.byteLength)
      throw new Error('expected the grid, got the end of the frame');
    const ranges = rangesOf(view, count);
    this.#grids.set(frame.stream, { number: frame.gridNumber, ranges });
    return ranges;
  }
}
