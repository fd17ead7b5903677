// SPDX-License-Identifier: MIT
// The legend of bearings: every direction's colour, with its degrees.
import { azimuthCss } from './colours.mjs';
import { fitCanvas } from './dom.mjs';

export function drawHueBar(canvas) {
  requestAnimationFrame(() => {
    fitCanvas(canvas);
    const ctx = canvas.getContext('2d');
    const { width, height } = canvas;
    for (let x = 0; x < width; ++x) {
      ctx.fillStyle = azimuthCss((x / width) * 360);
      ctx.fillRect(x, 0, 1, height);
    }
    ctx.fillStyle = '#10151a';
    ctx.font = `${9 * devicePixelRatio}px system-ui, sans-serif`;
    ctx.textBaseline = 'middle';
    ['0°', '90°', '180°', '270°'].forEach((text, i) => {
      ctx.textAlign = i === 0 ? 'left' : 'center';
      ctx.fillText(text, 2 + (i * (width - 4)) / 4, height / 2 + 1);
    });
  });
}
