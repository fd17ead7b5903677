// SPDX-License-Identifier: MIT
// The waterfall's colour bar: drag its left or right third to set a limit, its middle to move both.
import { viridis } from './colours.mjs';
import { byId, element, fitCanvas, setText } from './dom.mjs';

const DB_PER_PIXEL = 0.5;

export class ColourBar {
  #dragging = null;

  constructor(page) {
    this.page = page;
    this.low = element('span', { title: 'Level of the darkest colour' });
    this.high = element('span', { title: 'Level of the brightest colour' });
    this.canvas = element('canvas', {
      title: 'Drag the left or right third to set a limit, the middle to move both; double click: auto',
    });
    byId('colourbar').append(this.low, this.canvas, this.high);
    this.canvas.addEventListener('pointerdown', (event) => this.#down(event));
    this.canvas.addEventListener('pointermove', (event) => this.#move(event));
    this.canvas.addEventListener('pointerup', () => {
      this.#dragging = null;
    });
    this.canvas.addEventListener('dblclick', () => page.autoLevel());
    page.levels.onChange(() => page.painter.request(this));
  }

  #down(event) {
    const part = Math.floor((event.offsetX / this.canvas.clientWidth) * 3);
    this.#dragging = {
      x: event.clientX,
      limits: [...this.page.levels.colours],
      moves: [
        [1, 0],
        [1, 1],
        [0, 1],
      ][Math.min(2, Math.max(0, part))],
    };
    this.canvas.setPointerCapture(event.pointerId);
  }

  #move(event) {
    if (!this.#dragging) return;
    const {
      x,
      limits: [low, high],
      moves,
    } = this.#dragging;
    const db = Math.round((event.clientX - x) * DB_PER_PIXEL);
    const lowest = Math.min(low + db * moves[0], moves[1] ? Infinity : high - 1);
    this.page.levels.setColours(lowest, Math.max(high + db * moves[1], lowest + 1));
  }

  draw() {
    const { levels } = this.page;
    const [low, high] = levels.colours.map((level) => (level + levels.offset).toFixed(0));
    setText(this.low, low);
    setText(this.high, `${high} ${levels.unit}`);
    if (!fitCanvas(this.canvas) && this.canvas.painted) return;
    this.canvas.painted = true;
    const { width, height } = this.canvas;
    const map = viridis();
    const image = new ImageData(width, 1);
    const pixels = new Uint32Array(image.data.buffer);
    for (let x = 0; x < width; ++x) pixels[x] = map[((x * 255) / Math.max(1, width - 1)) | 0];
    const ctx = this.canvas.getContext('2d');
    for (let y = 0; y < height; ++y) ctx.putImageData(image, 0, y);
  }
}
