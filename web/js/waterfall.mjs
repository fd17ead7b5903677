// SPDX-License-Identifier: MIT
// Rows of a history as a picture, newest at the top: levels, or bearings. Rows are painted once and then only
// moved.
import { fitCanvas } from './dom.mjs';
import { frequency, ticks, utc } from './format.mjs';
import { GUTTER, Gestures, MARGIN } from './gestures.mjs';
import { mapColumns } from './grid.mjs';
import { hatchOf } from './hatch.mjs';

const AXIS = 20; // below the rows, where the picture has an axis of its own
const EMPTY = '#10151a'; // the same in both themes: colour maps are made for a dark ground
const LABEL_DISTANCE = 70; // pixels, at least, between UTC lines
const TIME_STEPS = [0.5, 1, 2, 5, 10, 30, 60, 120, 300, 600];

export class Waterfall {
  #rows = document.createElement('canvas'); // ring of painted rows, one pixel high each
  #painted = { key: '', top: -1, height: 0 };
  #lo = new Int32Array(0);
  #hi = new Int32Array(0);
  #image = null;
  #pixels = null;

  /// `picture`: stream(), view(), hasAxis(), painter(history) -> paintRow(slot, lo, hi, pixels), key() which
  /// changes when painted rows are no longer right, read(hz, slot) -> text, readout (element).
  constructor(page, host, picture) {
    this.page = page;
    this.host = host;
    this.picture = picture;
    this.canvas = host.querySelector('canvas');
    this.ctx = this.canvas.getContext('2d', { alpha: false });
    this.ring = this.#rows.getContext('2d', { alpha: false });
    new ResizeObserver(() => page.painter.request(this)).observe(host);
    new Gestures(host, {
      view: () => picture.view(),
      onHover: (hz, y) => page.moveCursor(hz, hz === null ? null : this, y),
      onClick: (hz) => picture.onClick(hz),
      onDragDown: (dy) => page.session.scroll(dy * picture.stream().history.rowMs),
    });
  }

  get #ratio() {
    return devicePixelRatio || 1;
  }
  get #axis() {
    return this.picture.hasAxis() ? AXIS : 0;
  }
  get #visibleRows() {
    return Math.max(1, Math.floor(this.host.clientHeight - this.#axis));
  }
  get #top() {
    const { history } = this.picture.stream();
    return Math.min(history.newest, history.slotOf(this.page.session.shownMs));
  }

  /// The row under a place of the picture.
  slotAt(y) {
    return this.#top - Math.floor(y);
  }

  draw() {
    const { history } = this.picture.stream();
    if (this.host.clientWidth < GUTTER + 40 || history.newest < 0) return;
    fitCanvas(this.canvas);
    this.#paintNewRows(history);
    this.#compose();
    this.#drawLoss(history);
    this.#drawTimes(history);
    if (this.#axis) this.#drawAxis();
    this.#drawCursor();
  }

  #paintNewRows(history) {
    const height = this.#visibleRows;
    const width = Math.max(
      1,
      Math.round((this.host.clientWidth - GUTTER - MARGIN) * Math.min(2, this.#ratio)),
    );
    const view = this.picture.view();
    const key = `${width} ${height} ${view.from} ${view.to} ${history.generation} ${history.rowMs} ${this.picture.key()}`;
    const top = this.#top;
    let first = this.#painted.top; // painted again, since it may have got more traces
    if (key !== this.#painted.key || top < first || top - first >= height) {
      this.#begin(width, height, view, history);
      first = top - height + 1;
    }
    const paint = this.picture.painter(history);
    for (let slot = first; slot <= top; ++slot) this.#paintRow(history, slot, height, paint);
    this.#painted = { key, top, height };
  }

  #begin(width, height, view, history) {
    if (this.#rows.width !== width || this.#rows.height !== height)
      Object.assign(this.#rows, { width, height });
    if (this.#lo.length !== width) {
      [this.#lo, this.#hi] = [new Int32Array(width), new Int32Array(width)];
      this.#image = new ImageData(width, 1);
      this.#pixels = new Uint32Array(this.#image.data.buffer);
    }
    mapColumns(this.picture.stream().grid, view.from, view.to, this.#lo, this.#hi);
    for (let c = 0; history.factor > 1 && c < width; ++c) {
      this.#lo[c] = Math.floor(this.#lo[c] / history.factor);
      this.#hi[c] = Math.ceil(this.#hi[c] / history.factor);
    }
  }

  #paintRow(history, slot, height, paint) {
    const y = ((slot % height) + height) % height;
    if (slot < history.oldest || !history.has(slot)) {
      this.ring.fillStyle = EMPTY;
      this.ring.fillRect(0, y, this.#rows.width, 1);
      return;
    }
    paint(history.baseOf(slot), this.#lo, this.#hi, this.#pixels);
    this.ring.putImageData(this.#image, 0, y);
  }

  /// The ring holds ascending rows; on the screen the newest is at the top, so each part is drawn upside
  /// down.
  #compose() {
    const { ctx } = this;
    const { top, height } = this.#painted;
    const split = top % height; // the newest row's place in the ring
    const ratio = this.#ratio;
    const width = (this.host.clientWidth - GUTTER - MARGIN) * ratio;
    ctx.setTransform(1, 0, 0, 1, 0, 0);
    ctx.fillStyle = this.page.theme.colours.panel;
    ctx.fillRect(0, 0, this.canvas.width, this.canvas.height);
    ctx.imageSmoothingEnabled = false;
    ctx.setTransform(1, 0, 0, -ratio, GUTTER * ratio, (split + 1) * ratio);
    ctx.drawImage(this.#rows, 0, 0, this.#rows.width, split + 1, 0, 0, width, split + 1);
    if (split + 1 < height) {
      ctx.setTransform(1, 0, 0, -ratio, GUTTER * ratio, height * ratio);
      ctx.drawImage(
        this.#rows,
        0,
        split + 1,
        this.#rows.width,
        height - split - 1,
        0,
        0,
        width,
        height - split - 1,
      );
    }
    ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
  }

  /// Rows without data because it was lost are hatched; rows that lost a part of their traces get a mark at
  /// the edge.
  #drawLoss(history) {
    const { top, height } = this.#painted;
    const width = this.host.clientWidth;
    const { bad } = this.page.theme.colours;
    for (let y = 0; y < height; ++y) {
      if (history.lostIn(top - y) === 0) continue;
      let rows = 1;
      const isHole = !history.has(top - y);
      while (
        y + rows < height &&
        history.lostIn(top - y - rows) > 0 &&
        !history.has(top - y - rows) === isHole
      )
        ++rows;
      this.ctx.fillStyle = bad;
      this.ctx.fillRect(width - MARGIN + 2, y, 5, rows);
      if (isHole) {
        this.ctx.save();
        this.ctx.setTransform(1, 0, 0, 1, 0, 0);
        this.ctx.fillStyle = hatchOf(this.ctx, 'lost', '#f0706c');
        this.ctx.fillRect(
          GUTTER * this.#ratio,
          y * this.#ratio,
          (width - GUTTER - MARGIN) * this.#ratio,
          rows * this.#ratio,
        );
        this.ctx.restore();
      }
      y += rows - 1;
    }
  }

  #drawTimes(history) {
    const { ctx } = this;
    const { top, height } = this.#painted;
    const stepMs =
      1000 * (TIME_STEPS.find((s) => (s * 1000) / history.rowMs >= LABEL_DISTANCE) ?? TIME_STEPS.at(-1));
    ctx.font = '11px system-ui, sans-serif';
    ctx.textAlign = 'right';
    ctx.textBaseline = 'middle';
    for (let ms = Math.floor(history.timeOf(top) / stepMs) * stepMs; ; ms -= stepMs) {
      const y = top - history.slotOf(ms) + 0.5;
      if (y > height) return;
      ctx.fillStyle = 'rgb(255 255 255 / .28)';
      ctx.fillRect(GUTTER, y - 0.5, this.host.clientWidth - GUTTER - MARGIN, 1);
      ctx.fillStyle = this.page.theme.colours.muted;
      if (y > 6 && y < height - 5) ctx.fillText(utc(ms), GUTTER - 5, y);
    }
  }

  #drawAxis() {
    const { ctx } = this;
    const view = this.picture.view();
    const width = this.host.clientWidth - GUTTER - MARGIN;
    const { at, step } = ticks(view.from, view.to, width / 120);
    ctx.fillStyle = this.page.theme.colours.muted;
    ctx.textAlign = 'center';
    for (const hz of at)
      ctx.fillText(
        frequency(hz, step),
        GUTTER + ((hz - view.from) / (view.to - view.from)) * width,
        this.host.clientHeight - AXIS / 2,
      );
  }

  #drawCursor() {
    const { hz, picture, y } = this.page.cursor;
    const view = this.picture.view();
    const share = (hz - view.from) / (view.to - view.from);
    const isHere = picture === this;
    this.picture.readout.textContent = isHere ? this.picture.read(hz, this.slotAt(y)) : '';
    if (hz === null || share < 0 || share > 1) return;
    this.ctx.fillStyle = 'rgb(255 255 255 / .55)';
    this.ctx.fillRect(GUTTER + share * (this.host.clientWidth - GUTTER - MARGIN), 0, 1, this.#visibleRows);
    if (isHere) this.ctx.fillRect(GUTTER, Math.floor(y), this.host.clientWidth - GUTTER - MARGIN, 1);
  }
}
