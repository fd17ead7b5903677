// SPDX-License-Identifier: MIT
// The keyboard map: one table does the keys and their help.
import { byId, element } from './dom.mjs';

const POINTER = [
  ['wheel', 'zoom at the cursor; over the level axis: zoom levels'],
  ['drag', 'pan; over the level axis: move levels; up in a paused waterfall: back in time'],
  ['shift-drag', 'zoom into a box'],
  ['double click', 'full span'],
  ['click', 'marker; in bearings: select the channel'],
  ['pinch', 'zoom on touch'],
];

export class Keyboard {
  #actions = new Map();

  /// `map`: [[key, what it does, action], ...]; a key is a KeyboardEvent's `key`, letters in upper case.
  constructor(map) {
    const body = byId('keys').querySelector('tbody');
    const row = (key, text) =>
      element('tr', {}, element('td', {}, element('kbd', {}, key)), element('td', {}, text));
    for (const [key, text, action] of map) {
      this.#actions.set(key, action);
      body.append(row(key === ' ' ? 'space' : key, text));
    }
    body.append(...POINTER.map(([key, text]) => row(key, text)));
    document.addEventListener('keydown', (event) => this.#press(event));
  }

  #press(event) {
    if (
      event.ctrlKey ||
      event.metaKey ||
      event.altKey ||
      event.target.closest('input, select, textarea, dialog')
    )
      return;
    // A button that has the focus is pressed by the space bar, as everywhere.
    if (event.key === ' ' && event.target.closest('button')) return;
    const action = this.#actions.get(event.key.length === 1 ? event.key.toUpperCase() : event.key);
    if (!action) return;
    event.preventDefault();
    action();
  }
}
