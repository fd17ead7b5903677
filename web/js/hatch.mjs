// SPDX-License-Identifier: MIT
// Patterns that say without colour what is no data: lines (suppressed), dots (blanked), crosses (lost).

const patterns = new Map();

const DRAWN = {
  lines(ctx, size) {
    for (const d of [-size, 0, size]) {
      ctx.moveTo(d, size);
      ctx.lineTo(d + size, 0);
    }
  },
  lost(ctx, size) {
    for (const d of [-size, 0, size]) {
      ctx.moveTo(d, 0);
      ctx.lineTo(d + size, size);
    }
  },
  dots(ctx, size) {
    ctx.moveTo(size / 2 - 1, size / 2);
    ctx.lineTo(size / 2 + 1, size / 2);
  },
};

export function hatchOf(target, name, colour) {
  const key = `${name} ${colour} ${devicePixelRatio}`;
  if (patterns.has(key)) return patterns.get(key);
  const size = Math.round((name === 'dots' ? 5 : 7) * devicePixelRatio);
  const tile = document.createElement('canvas');
  tile.width = tile.height = size;
  const ctx = tile.getContext('2d');
  ctx.strokeStyle = colour;
  ctx.globalAlpha = name === 'lost' ? 0.9 : 0.45;
  ctx.lineWidth = (name === 'dots' ? 2 : 1) * devicePixelRatio;
  ctx.beginPath();
  DRAWN[name](ctx, size);
  ctx.stroke();
  patterns.set(key, target.createPattern(tile, 'repeat'));
  return patterns.get(key);
}
