// SPDX-License-Identifier: MIT
// Direction finding as a compass, a histogram and text, made from the last seconds of the bearings' history.
import { CircularMean, DirectionHistogram } from './circular.mjs';
import { azimuthCss } from './colours.mjs';
import { byId, fitCanvas, setText } from './dom.mjs';
import { degrees, frequency } from './format.mjs';
import { NO_VALUE } from './frame.mjs';

const FAN_MS = 5000;
const BINS = 72;
const NAMES = ['N', '30', '60', 'E', '120', '150', 'S', '210', '240', 'W', '300', '330'];

export class Directions {
  #histogram = new DirectionHistogram(BINS);
  #shown = [];

  constructor(page) {
    this.page = page;
    this.rose = byId('rose');
    this.bars = byId('histogram');
    const slider = byId('quality');
    slider.value = page.url.values.quality;
    slider.addEventListener('input', () => {
      page.url.set('quality', Number(slider.value));
      page.painter.request(this);
    });
    new ResizeObserver(() => page.painter.request(this)).observe(this.rose);
  }

  get #least() {
    return this.page.url.values.quality;
  }

  draw() {
    if (this.rose.clientWidth < 60) return;
    setText(byId('qualitytext'), `${this.#least} %`);
    const mean = this.#collect();
    this.#writeSelected(mean);
    this.#drawRose(mean);
    this.#drawHistogram();
  }

  /// One pass over the rows of the last seconds: the histogram of all channels, the fan and the mean of the
  /// selected one.
  #collect() {
    const { df } = this.page.session.streams;
    const { history, grid } = df;
    const mean = new CircularMean();
    this.#histogram.clear();
    this.#shown.length = 0;
    if (history.newest < 0) return mean;
    const [azimuths, qualities] = history.rows;
    const selected = Math.floor(grid.indexOf(this.page.selectedHz) / history.factor);
    const top = Math.min(history.newest, history.slotOf(this.page.session.shownMs));
    const count = Math.ceil(FAN_MS / history.rowMs);
    for (let slot = top; slot > top - count && slot >= history.oldest; --slot) {
      if (!history.has(slot)) continue;
      const base = history.baseOf(slot);
      for (let i = 0; i < history.columns; ++i) {
        const quality = qualities[base + i];
        if (quality === NO_VALUE || quality < this.#least) continue;
        this.#histogram.add(azimuths[base + i] / 10, quality);
        if (i !== selected) continue;
        mean.add(azimuths[base + i] / 10, quality);
        this.#shown.push([azimuths[base + i] / 10, quality, (top - slot) / count]);
      }
    }
    return mean;
  }

  #writeSelected(mean) {
    const { selectedHz, session } = this.page;
    const step = session.streams.df.grid.step;
    const text =
      selectedHz === null
        ? 'no channel selected'
        : `${frequency(selectedHz, step)}  ${mean.count > 0 ? `${degrees(mean.mean)} ± ${degrees(mean.deviation)}` : `no bearing${this.page.reasonAt(selectedHz)}`}`;
    setText(byId('selected'), text);
  }

  #drawRose() {
    fitCanvas(this.rose);
    const ctx = this.rose.getContext('2d');
    const ratio = devicePixelRatio;
    const [width, height] = [this.rose.width / ratio, this.rose.height / ratio];
    const radius = Math.min(width, height) / 2 - 15;
    ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
    ctx.clearRect(0, 0, width, height);
    ctx.translate(width / 2, height / 2);
    this.#drawScale(ctx, radius);
    this.#drawEmitters(ctx, radius);
    this.#drawFan(ctx, radius);
  }

  #drawScale(ctx, radius) {
    const { colours } = this.page.theme;
    const isNorth = !this.page.convention.includes('array');
    ctx.strokeStyle = colours.grid;
    ctx.lineWidth = 1;
    for (const share of [0.25, 0.5, 0.75, 1]) {
      ctx.beginPath();
      ctx.arc(0, 0, radius * share, 0, 2 * Math.PI);
      ctx.stroke();
    }
    const least = (radius * this.#least) / 100;
    ctx.setLineDash([2, 3]);
    ctx.strokeStyle = colours.muted;
    ctx.beginPath();
    ctx.arc(0, 0, least, 0, 2 * Math.PI);
    ctx.stroke();
    ctx.setLineDash([]);
    ctx.fillStyle = colours.muted;
    ctx.font = '10px system-ui, sans-serif';
    ctx.textAlign = 'center';
    ctx.textBaseline = 'middle';
    NAMES.forEach((name, i) => {
      const angle = (i * Math.PI) / 6;
      ctx.fillText(
        isNorth ? name : String(i * 30),
        Math.sin(angle) * (radius + 9),
        -Math.cos(angle) * (radius + 9),
      );
    });
  }

  #drawEmitters(ctx, radius) {
    for (const { azimuthDeg, quality } of this.page.emitters.list) {
      const angle = (azimuthDeg * Math.PI) / 180;
      const length = (radius * Math.min(100, quality)) / 100;
      ctx.globalAlpha = quality >= this.#least ? 1 : 0.3;
      ctx.fillStyle = azimuthCss(azimuthDeg);
      ctx.beginPath();
      ctx.arc(Math.sin(angle) * length, -Math.cos(angle) * length, 4, 0, 2 * Math.PI);
      ctx.fill();
    }
    ctx.globalAlpha = 1;
  }

  /// The fan of the last seconds, oldest first, and the last bearing as a needle.
  #drawFan(ctx, radius) {
    for (let k = this.#shown.length - 1; k >= 0; --k) {
      const [azimuth, quality, age] = this.#shown[k];
      const angle = (azimuth * Math.PI) / 180;
      const length = (radius * Math.min(100, quality)) / 100;
      ctx.globalAlpha = k === 0 ? 1 : 0.35 * (1 - age);
      ctx.strokeStyle = k === 0 ? this.page.theme.colours.text : azimuthCss(azimuth);
      ctx.lineWidth = k === 0 ? 2 : 1;
      ctx.beginPath();
      ctx.moveTo(0, 0);
      ctx.lineTo(Math.sin(angle) * length, -Math.cos(angle) * length);
      ctx.stroke();
    }
    ctx.globalAlpha = 1;
  }

  #drawHistogram() {
    fitCanvas(this.bars);
    const { colours } = this.page.theme;
    const ctx = this.bars.getContext('2d');
    const ratio = devicePixelRatio;
    const [width, height] = [this.bars.width / ratio, this.bars.height / ratio];
    const [top, bottom] = [50, height - 16];
    const { bins } = this.#histogram;
    const most = bins.reduce((a, b) => Math.max(a, b), 0);
    ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
    ctx.clearRect(0, 0, width, height);
    ctx.font = '10px system-ui, sans-serif';
    ctx.textBaseline = 'alphabetic';
    bins.forEach((weight, i) => {
      const bar = most > 0 ? (weight / most) * (bottom - top) : 0;
      ctx.fillStyle = azimuthCss((i + 0.5) * this.#histogram.width);
      ctx.fillRect((i * width) / BINS, bottom - bar, width / BINS - 0.5, bar);
    });
    ctx.fillStyle = colours.grid;
    ctx.fillRect(0, bottom, width, 1);
    ctx.fillStyle = colours.muted;
    [0, 90, 180, 270, 360].forEach((azimuth, i) => {
      ctx.textAlign = ['left', 'center', 'center', 'center', 'right'][i];
      ctx.fillText(`${azimuth}°`, (azimuth / 360) * width, height - 4);
    });
    this.#writePeaks(ctx, width);
  }

  #writePeaks(ctx, width) {
    const peaks = this.#histogram.peaks(3);
    ctx.textAlign = 'left';
    ctx.font = '11px system-ui, sans-serif';
    peaks.forEach(({ degrees: azimuth, deviation, share }, i) => {
      const y = 10 + i * 14;
      ctx.fillStyle = azimuthCss(azimuth);
      ctx.fillRect(0, y - 7, 7, 7);
      ctx.fillStyle = this.page.theme.colours.text;
      ctx.fillText(`${degrees(azimuth)} ± ${degrees(deviation)}  ${Math.round(share * 100)} %`, 12, y);
    });
    if (peaks.length > 0) return;
    ctx.fillStyle = this.page.theme.colours.muted;
    ctx.fillText('no bearing of that quality', 0, 10, width);
  }
}
