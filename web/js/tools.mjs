// SPDX-License-Identifier: MIT
// The drawer below the displays: one tool open at a time.
import { byId, element } from './dom.mjs';

export class Tools {
  #buttons = new Map();

  /// `tools`: [[name, title, onOpen], ...]
  constructor(page, tools) {
    this.page = page;
    for (const [name, title, onOpen] of tools) {
      const button = element(
        'button',
        {
          'aria-expanded': false,
          'aria-controls': `tool-${name}`,
          onclick: () => this.open(this.opened === name ? '' : name),
        },
        title,
      );
      this.#buttons.set(name, { button, onOpen });
      byId('tools').append(button);
    }
    this.#show(page.url.values.tool);
  }

  get opened() {
    return this.page.url.values.tool;
  }

  open(name) {
    this.page.url.set('tool', name);
    this.#show(name);
  }

  /// A tool that this program does not offer is not shown, but a link keeps it.
  setOffered(name, isOffered) {
    this.#buttons.get(name).button.hidden = !isOffered;
    this.#show(this.opened);
  }

  #show(wanted) {
    const tool = this.#buttons.get(wanted);
    const name = tool && !tool.button.hidden ? wanted : '';
    byId('drawer').hidden = name === '';
    for (const [other, { button }] of this.#buttons) {
      button.setAttribute('aria-expanded', other === name);
      byId(`tool-${other}`).hidden = other !== name;
    }
    if (name) tool.onOpen?.();
  }
}
