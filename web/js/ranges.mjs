// SPDX-License-Identifier: MIT
// Suppress and blanking ranges: listed, added and taken away; the spectrum draws them.
import { byId, element } from './dom.mjs';
import { shortFrequency } from './format.mjs';

const HZ = 1e6; // the form speaks MHz

export class Ranges {
  lists = { suppress: [], blanking: [] };
  #body = byId('tool-ranges').querySelector('tbody');
  #form = byId('addrange');

  constructor(page) {
    this.page = page;
    this.#form.addEventListener('submit', (event) => {
      event.preventDefault();
      this.#add();
    });
    this.#form.elements.take.addEventListener('click', () => this.#takeFromDisplay());
  }

  follow({ suppress, blanking }) {
    this.lists = { suppress, blanking };
    const rows = Object.entries(this.lists).flatMap(([kind, list]) =>
      list.map((range) => this.#row(kind, range)),
    );
    this.#body.replaceChildren(...rows);
    this.page.painter.request(this.page.spectrum);
  }

  #row(kind, range) {
    const state =
      range.blanked === undefined
        ? ''
        : range.blanked
          ? ', blanked by the receiver'
          : ', not blanked by the receiver';
    const remove = () => this.page.send({ command: 'removeRange', kind, id: range.id });
    return element(
      'tr',
      {},
      ...[
        `${kind}${range.list ? `, ${range.list}` : ''}${state}`,
        shortFrequency(range.fromHz),
        shortFrequency(range.toHz),
        range.name ?? '',
      ].map((text) => element('td', {}, text)),
      element(
        'td',
        {},
        range.list === 'global' ? 'not ours' : element('button', { onclick: remove }, 'Remove'),
      ),
    );
  }

  #add() {
    const { kind, from, to, name } = this.#form.elements;
    const [fromHz, toHz] = [from, to]
      .map((field) => Math.round(field.valueAsNumber * HZ * 1000) / 1000)
      .sort((a, b) => a - b);
    if (this.page.send({ command: 'addRange', kind: kind.value, fromHz, toHz, name: name.value }))
      name.value = '';
  }

  #takeFromDisplay() {
    const { markers } = this.page.url.values;
    const { view } = this.page.session.main;
    const [from, to] = markers.length === 2 ? markers : [view.from, view.to];
    this.#form.elements.from.value = +(Math.min(from, to) / HZ).toFixed(6);
    this.#form.elements.to.value = +(Math.max(from, to) / HZ).toFixed(6);
  }
}
