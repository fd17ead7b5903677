// SPDX-License-Identifier: MIT
// Dark or light: the system's wish, or the user's. Canvases read their colours here, the rest from page.css.

const NAMES = [
  'text',
  'muted',
  'grid',
  'panel',
  'live',
  'max',
  'min',
  'average',
  'hold',
  'accent',
  'bad',
  'warn',
  'band',
];

export class Theme {
  #listeners = new Set();
  #system = matchMedia('(prefers-color-scheme: light)');
  colours = {};

  constructor(url) {
    this.url = url;
    this.#system.addEventListener('change', () => this.#apply());
    this.#apply();
  }

  onChange(listener) {
    this.#listeners.add(listener);
  }

  get name() {
    return this.url.values.theme || (this.#system.matches ? 'light' : 'dark');
  }

  toggle() {
    this.url.set('theme', this.name === 'dark' ? 'light' : 'dark');
    this.#apply();
  }

  #apply() {
    document.documentElement.dataset.theme = this.name;
    const style = getComputedStyle(document.documentElement);
    for (const name of NAMES) this.colours[name] = style.getPropertyValue(`--${name}`).trim();
    for (const listener of this.#listeners) listener();
  }
}
