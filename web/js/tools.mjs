// SPDX-License-Identifier: MIT
// The drawer below the displays: one tool open at a time.
import { byId, element } from './dom.mjs';

export class Tools {
  #buttons = new Map();

  /// `tools`: [[name, title, onOpen], ...]
  constructor(page, tools) {
    this.page = page;
    for (const [name, title, onOpen] of tools) {
      const button = element('button', { 'aria-expanded': false, 'aria-controls': `tool-${name}`, onclick: () => this.open(this.opened === name ? '' : name) }, title);
      this.#buttons.set(name, { button, onOpen });
      byId('tools').append(button);
    }
    this.open(page.url.values.tool);
  }

  get opened() { return this.page.url.values.tool; }

  open(wanted) {
    const name = this.#buttons.has(wanted) ? wanted : '';
    this.page.url.set('tool', name);
    byId('drawer').hidden = name === '';
    for (const [other, { button }] of this.#buttons) {
      button.setAttribute('aria-expanded', other === name);
      byId(`tool-${other}`).hidden = other !== name;
    }
    this.#buttons.get(name)?.onOpen?.();
  }

  setShown(name, isShown) {
    this.#buttons.get(name).button.hidden = !isShown;
    if (!isShown && this.opened === name) this.open('');
  }
}
