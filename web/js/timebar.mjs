// SPDX-License-Identifier: MIT
// A recording's time: pause, seek, step, speed, and in red where the recording itself lost something.
import { byId, element, fitCanvas, setText } from './dom.mjs';
import { msOfNs, position, utc } from './format.mjs';

const SPEEDS = [
  [0.1, '× 0.1'],
  [0.5, '× 0.5'],
  [1, '× 1'],
  [2, '× 2'],
  [4, '× 4'],
  [10, '× 10'],
  [100, '× 100'],
  [0, 'fastest'],
];
const KEY_SECONDS = { ArrowLeft: -1, ArrowRight: 1, PageDown: -10, PageUp: 10 };

export class TimeBar {
  #playback = null;
  #at = 0; // when the playback was told
  #isDragging = false;

  constructor(page) {
    this.page = page;
    this.canvas = byId('times');
    byId('speed').append(...SPEEDS.map(([speed, text]) => element('option', { value: speed }, text)));
    byId('speed').addEventListener('change', (event) =>
      this.#send({ action: 'speed', speed: Number(event.target.value) }),
    );
    byId('play').addEventListener('click', () => this.toggle());
    byId('step').addEventListener('click', () => this.step());
    this.canvas.addEventListener('pointerdown', (event) => {
      this.#isDragging = true;
      this.canvas.setPointerCapture(event.pointerId);
      this.#seekTo(event);
    });
    this.canvas.addEventListener('pointermove', (event) => {
      if (this.#isDragging) this.#showAt(event);
    });
    this.canvas.addEventListener('pointerup', (event) => {
      if (this.#isDragging) this.#seekTo(event);
      this.#isDragging = false;
    });
    this.canvas.addEventListener('keydown', (event) => {
      if (KEY_SECONDS[event.key]) this.#seek(this.#seconds + KEY_SECONDS[event.key]);
    });
    page.theme.onChange(() => page.painter.request(this));
    setInterval(() => {
      if (this.isShown && !this.#isDragging) page.painter.request(this);
    }, 100);
  }

  get isShown() {
    return this.#playback !== null;
  }
  get isPaused() {
    return this.#playback?.paused ?? false;
  }
  get #duration() {
    return this.#playback.durationSeconds ?? 0;
  } // not known until the file was read once

  follow(playback) {
    this.#playback = playback;
    this.#at = performance.now();
    byId('timebar').hidden = !playback;
    if (!playback) return;
    setText(byId('play'), playback.paused || playback.ended ? 'Play' : 'Pause');
    if (document.activeElement !== byId('speed')) byId('speed').value = String(playback.speed);
    this.page.painter.request(this);
  }

  toggle() {
    this.#send({ action: this.#playback.paused || this.#playback.ended ? 'play' : 'pause' });
  }
  step() {
    this.#send({ action: 'step' });
  }
  #send(action) {
    this.page.send({ command: 'playback', ...action });
  }

  /// The server tells the position once a second; between, it runs on.
  get #seconds() {
    const { paused, ended, speed, positionSeconds } = this.#playback;
    const passed = paused || ended ? 0 : ((performance.now() - this.#at) / 1000) * speed;
    return Math.min(this.#duration || Infinity, positionSeconds + Math.min(passed, 2 * speed));
  }

  #secondsAt(event) {
    const share = Math.min(1, Math.max(0, event.offsetX / this.canvas.clientWidth));
    return share * this.#duration;
  }

  #seekTo(event) {
    this.#seek(this.#secondsAt(event));
  }

  #seek(seconds) {
    if (this.#duration === 0) return;
    const wanted = Math.min(this.#duration, Math.max(0, seconds));
    this.#send({ action: 'seek', seconds: wanted });
    Object.assign(this.#playback, { positionSeconds: wanted });
    this.#at = performance.now();
    this.page.painter.request(this);
  }

  #showAt(event) {
    this.#paint(this.#secondsAt(event));
  }

  draw() {
    if (this.isShown) this.#paint(this.#seconds);
  }

  #paint(seconds) {
    const { startNs, losses } = this.#playback;
    const durationSeconds = this.#duration;
    fitCanvas(this.canvas);
    const { colours } = this.page.theme;
    const ctx = this.canvas.getContext('2d');
    const { width, height } = this.canvas;
    const x = (s) => Math.round((s / Math.max(durationSeconds, 1e-9)) * (width - 2));
    const middle = height / 2;
    const thick = 4 * devicePixelRatio;
    ctx.clearRect(0, 0, width, height);
    ctx.fillStyle = colours.grid;
    ctx.fillRect(0, middle - thick / 2, width, thick);
    ctx.fillStyle = colours.accent;
    ctx.fillRect(0, middle - thick / 2, x(seconds), thick);
    ctx.fillStyle = colours.bad;
    for (const [at] of losses) ctx.fillRect(x(at), middle - 2 * thick, 2, 4 * thick);
    ctx.fillStyle = colours.text;
    ctx.beginPath();
    ctx.arc(
      Math.max(thick * 1.5, Math.min(width - thick * 1.5, x(seconds))),
      middle,
      thick * 1.5,
      0,
      2 * Math.PI,
    );
    ctx.fill();
    this.canvas.setAttribute('aria-valuenow', seconds.toFixed(1));
    this.canvas.setAttribute('aria-valuemax', durationSeconds.toFixed(1));
    setText(
      byId('position'),
      `${position(seconds)} / ${durationSeconds > 0 ? position(durationSeconds) : '–'}  ${startNs ? utc(msOfNs(startNs) + seconds * 1000) : ''}`,
    );
  }
}
