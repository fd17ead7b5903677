// SPDX-License-Identifier: MIT
// Pointer and wheel on a plot with a frequency (or time) axis: zoom at the cursor, pan, box, pinch, click,
// hover.
import { element } from './dom.mjs';

const CLICK_PIXELS = 4;
const WHEEL_FACTOR = 1.25;
export const GUTTER = 56; // left of every plot; levels or times stand there
export const MARGIN = 12; // right of it

export class Gestures {
  #pointers = new Map();
  #moved = false;
  #box = null;
  #start = null;

  /// `plot`: view() gives its AxisView; optional: onClick(position, y), onHover(position or null, y),
  /// onBox(top, bottom), onLevelWheel(y, factor), onLevelDrag(dy), onDragDown(dy).
  constructor(host, plot) {
    this.host = host;
    this.plot = plot;
    host.addEventListener('wheel', (event) => this.#wheel(event), { passive: false });
    host.addEventListener('pointerdown', (event) => this.#down(event));
    host.addEventListener('pointermove', (event) => this.#move(event));
    for (const name of ['pointerup', 'pointercancel'])
      host.addEventListener(name, (event) => this.#up(event));
    host.addEventListener('pointerleave', () => plot.onHover?.(null, 0));
    host.addEventListener('dblclick', () => plot.view().reset());
  }

  #place(event) {
    const box = this.host.getBoundingClientRect();
    return {
      x: event.clientX - box.left,
      y: event.clientY - box.top,
      width: box.width - GUTTER - MARGIN,
      height: box.height,
    };
  }

  #position(place) {
    const view = this.plot.view();
    return view.from + ((place.x - GUTTER) / place.width) * (view.to - view.from);
  }

  #wheel(event) {
    event.preventDefault();
    const place = this.#place(event);
    const view = this.plot.view();
    const factor = event.deltaY > 0 ? WHEEL_FACTOR : 1 / WHEEL_FACTOR;
    if (place.x < GUTTER) this.plot.onLevelWheel?.(place.y, factor);
    else if (Math.abs(event.deltaX) > Math.abs(event.deltaY))
      view.pan((event.deltaX / place.width) * (view.to - view.from));
    else view.zoomAt(this.#position(place), factor);
  }

  #down(event) {
    if (event.button !== 0) return;
    const place = this.#place(event);
    this.#pointers.set(event.pointerId, place);
    this.host.setPointerCapture(event.pointerId);
    this.#start = place;
    this.#moved = this.#pointers.size > 1;
    if (event.shiftKey) this.#box = this.host.appendChild(element('div', { class: 'box' }));
  }

  #move(event) {
    const place = this.#place(event);
    const last = this.#pointers.get(event.pointerId);
    if (!last) return this.plot.onHover?.(place.x >= GUTTER ? this.#position(place) : null, place.y);
    if (Math.hypot(place.x - this.#start.x, place.y - this.#start.y) > CLICK_PIXELS) this.#moved = true;
    if (this.#pointers.size === 2) this.#pinch(event.pointerId, last, place);
    else if (this.#box) this.#drawBox(place);
    else if (this.#moved) this.#drag(last, place);
    this.#pointers.set(event.pointerId, place);
  }

  #drag(last, place) {
    this.host.classList.add('panning');
    if (this.#start.x < GUTTER) return this.plot.onLevelDrag?.(place.y - last.y);
    const view = this.plot.view();
    view.pan(((last.x - place.x) / place.width) * (view.to - view.from));
    this.plot.onDragDown?.(place.y - last.y);
  }

  /// Keeps what is under both fingers under them.
  #pinch(id, last, place) {
    const other = [...this.#pointers].find(([key]) => key !== id)[1];
    const before = Math.max(10, Math.abs(last.x - other.x));
    const now = Math.max(10, Math.abs(place.x - other.x));
    const view = this.plot.view();
    const middle = (last.x + other.x) / 2;
    view.zoomAt(this.#position({ ...place, x: middle }), before / now);
    view.pan((-((place.x + other.x) / 2 - middle) / place.width) * (view.to - view.from));
  }

  #drawBox(place) {
    const { style } = this.#box;
    style.left = `${Math.min(this.#start.x, place.x)}px`;
    style.width = `${Math.abs(this.#start.x - place.x)}px`;
    style.top = `${Math.min(this.#start.y, place.y)}px`;
    style.height = `${Math.abs(this.#start.y - place.y)}px`;
  }

  #up(event) {
    if (!this.#pointers.delete(event.pointerId)) return;
    const place = this.#place(event);
    this.host.classList.remove('panning');
    if (this.#box) this.#endBox(place);
    else if (!this.#moved && event.type === 'pointerup' && place.x >= GUTTER)
      this.plot.onClick?.(this.#position(place), place.y);
    this.#box?.remove();
    this.#box = null;
  }

  #endBox(place) {
    if (Math.abs(place.x - this.#start.x) <= CLICK_PIXELS) return;
    const [from, to] = [this.#position(this.#start), this.#position(place)].sort((a, b) => a - b);
    const [top, bottom] = [this.#start.y, place.y].sort((a, b) => a - b);
    this.plot.view().show(from, to);
    this.plot.onBox?.(top, bottom);
  }
}
