// SPDX-License-Identifier: MIT
// "Use this stream": clients to copy, fetched when somebody looks, so that they do not weigh on the first
// paint.
import { byId, element, setText } from './dom.mjs';

const CLIENTS = [
  ['JavaScript', 'clients/stream.js'],
  ['Python', 'clients/stream.py'],
];

export class StreamBox {
  #texts = new Map();

  constructor() {
    this.buttons = CLIENTS.map(([name, path]) => element('button', { onclick: () => this.show(path) }, name));
    byId('clients').append(...this.buttons);
    byId('copy').addEventListener('click', () => this.#copy());
  }

  async show(path = CLIENTS[0][1]) {
    this.buttons.forEach((button, i) => button.setAttribute('aria-pressed', CLIENTS[i][1] === path));
    if (!this.#texts.has(path)) {
      const response = await fetch(path);
      if (!response.ok) return setText(byId('client'), `${path}: ${response.status}`);
      this.#texts.set(path, await response.text());
    }
    setText(byId('client'), this.#texts.get(path));
  }

  async #copy() {
    const button = byId('copy');
    try {
      await navigator.clipboard.writeText(byId('client').textContent);
      setText(button, 'Copied');
    } catch {
      getSelection().selectAllChildren(byId('client')); // without a secure context the user copies the selection
      setText(button, 'Selected');
    }
    setTimeout(() => setText(button, 'Copy'), 2000);
  }
}
