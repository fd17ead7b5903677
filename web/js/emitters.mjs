// SPDX-License-Identifier: MIT
// The table of emitters that the server finds, one row each; a click selects the channel.
import { azimuthCss } from './colours.mjs';
import { byId, element, setText } from './dom.mjs';
import { degrees, duration, frequency } from './format.mjs';

const MOST_ROWS = 200;

function trendText(perSecond) {
  if (Math.abs(perSecond) < 0.05) return 'steady';
  return `${perSecond > 0 ? '↻ +' : '↺ −'}${Math.abs(perSecond).toFixed(1)}°/s`;
}

export class Emitters {
  #body = byId('emitters').querySelector('tbody');
  list = [];

  constructor(page) {
    this.page = page;
  }

  follow(list) {
    this.list = [...list].sort((a, b) => a.frequencyHz - b.frequencyHz).slice(0, MOST_ROWS);
    if (this.page.selectedHz === null && list.length > 0)
      this.page.select(list.reduce((best, e) => (e.quality > best.quality ? e : best)).frequencyHz, false);
    this.page.painter.request(this);
  }

  draw() {
    while (this.#body.rows.length < this.list.length) this.#body.append(this.#row());
    while (this.#body.rows.length > this.list.length) this.#body.deleteRow(-1);
    const { session, levels, url, selectedHz } = this.page;
    const step = session.streams.df.grid.step;
    setText(byId('levelhead'), levels.unit);
    this.list.forEach((emitter, i) => {
      const row = this.#body.rows[i];
      row.hz = emitter.frequencyHz;
      row.setAttribute(
        'aria-selected',
        selectedHz !== null && Math.abs(emitter.frequencyHz - selectedHz) < step * 3,
      );
      row.style.opacity = emitter.quality < url.values.quality ? 0.5 : 1;
      row.cells[0].firstChild.style.background = azimuthCss(emitter.azimuthDeg);
      setText(row.cells[0].lastChild, frequency(emitter.frequencyHz, step));
      const texts = [
        degrees(emitter.azimuthDeg),
        degrees(emitter.spreadDeg),
        `${Math.round(emitter.quality)} %`,
        (emitter.levelDb + levels.offset).toFixed(1),
        duration(emitter.ageMs / 1000),
        trendText(emitter.trendDegPerSecond),
      ];
      texts.forEach((text, k) => setText(row.cells[k + 1], text));
    });
  }

  #row() {
    const row = element(
      'tr',
      { tabindex: 0 },
      element('td', {}, element('i', { class: 'dot' }), element('span')),
    );
    for (let i = 0; i < 6; ++i) row.append(element('td'));
    row.addEventListener('click', () => this.page.select(row.hz));
    row.addEventListener('keydown', (event) => {
      if (event.key === 'Enter') this.page.select(row.hz);
    });
    return row;
  }
}
