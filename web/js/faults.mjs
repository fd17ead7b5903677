// SPDX-License-Identifier: MIT
// The demo's faults: inject them, and see what the ledger makes of them.
import { byId, element, setText } from './dom.mjs';
import { count } from './format.mjs';

/// What each fault does, and the counters that tell it.
const FAULTS = [
  // The number of a datagram without magic is not believed: it is lost on the wire, too.
  ['drop', 'not sent; with the invalid ones', ['wire lost', 'invalid'], [0.01, 0.1]],
  ['duplicate', 'sent twice', ['wire duplicates'], [0.01, 0.1]],
  ['reorder', 'sent behind the next one', ['wire reordered'], [0.01, 0.1]],
  [
    'corrupt',
    'no magic, an unknown field, or an unknown tag',
    ['invalid', 'selector errors', 'unknown tag'],
    [0.01, 0.1],
  ],
  ['truncate', 'cut inside its last field', ['truncated'], [0.01, 0.1]],
  ['stall', 'the receiver pauses for half a second', [], [0.001, 0.01]],
];

export class Faults {
  #cards = new Map();

  constructor(page) {
    this.page = page;
    byId('faults').append(...FAULTS.map((fault) => this.#card(...fault)));
  }

  #card(name, does, counters, probabilities) {
    const numbers = element('span', { class: 'note' });
    const button = (probability) => {
      const text = probability === 0 ? 'off' : `${probability * 100} %`;
      const title = `inject: ${name} ${text}`;
      return element(
        'button',
        {
          title,
          'aria-label': title,
          onclick: () => this.page.send({ command: 'faults', [name]: probability }),
        },
        text,
      );
    };
    const card = element(
      'div',
      { class: 'fault' },
      element('span', {}, element('b', {}, `inject: ${name}`), ` – ${does}`),
      element('div', {}, ...[0, ...probabilities].map(button)),
      numbers,
    );
    card.dataset.fault = name;
    this.#cards.set(name, { card, numbers, counters });
    return card;
  }

  follow({ faults, ledger }) {
    if (!faults) return;
    for (const [name, { card, numbers, counters }] of this.#cards) {
      card.classList.toggle('on', faults[name] > 0);
      const counted = ledger
        .filter((line) => counters.includes(line.name))
        .map((line) => `${line.name} ${count(line.total)}`);
      const now = faults[name] > 0 ? `${+(faults[name] * 100).toPrecision(3)} % now · ` : '';
      setText(
        numbers,
        `${now}injected ${count(faults.injected?.[name] ?? 0)}${counted.length > 0 ? ` → ${counted.join(', ')}` : ''}`,
      );
    }
  }
}
