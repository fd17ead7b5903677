// SPDX-License-Identifier: MIT
// The loss ledger: one cell a counter, with a word, a colour, and what it means and what helps.
import { byId, element, setText } from './dom.mjs';
import { bytes, count } from './format.mjs';

const ALWAYS = new Set([
  'wire_lost',
  'kernel_dropped',
  'invalid',
  'unrouted',
  'not_accepted',
  'map_writes',
  'viewer_skipped',
]); // metrics

/// 'good' nothing lost, 'bad' losing now, 'warn' lost before, '' a counter that says nothing about loss.
export function verdict({ isLoss, total, perSecond }) {
  if (!isLoss) return '';
  if (total === 0) return 'good';
  return perSecond > 0 ? 'bad' : 'warn';
}

const WORDS = { good: 'none', warn: 'earlier', bad: 'now', '': '' };
const rate = (perSecond) => `${perSecond >= 10 ? Math.round(perSecond) : perSecond.toFixed(1)}/s`;

function bufferLine({ askedBytes, grantedBytes }) {
  const isShort = grantedBytes < askedBytes;
  return {
    name: 'buffer',
    value: `${bytes(grantedBytes)} of ${bytes(askedBytes)}`,
    kind: isShort ? 'warn' : 'good',
    word: isShort ? 'short' : 'as asked',
    definition:
      'Socket buffer that the system granted, of what was asked for. A short one loses datagrams when the machine pauses: ' +
      `sudo sysctl net.core.rmem_max=${askedBytes}`,
  };
}

export class Ledger {
  #cells = new Map();
  #open = null;

  constructor(page) {
    this.page = page;
    this.root = byId('ledger');
    this.more = element(
      'button',
      { class: 'cell', onclick: () => this.#toggleAll() },
      element('small', {}, 'cells'),
      element('b'),
    );
    this.root.append(this.more);
    document.addEventListener('keydown', (event) => {
      if (event.key === 'Escape') this.#hideTip();
    });
    this.root.addEventListener('scroll', () => this.#hideTip());
  }

  get #all() {
    return this.page.url.values.cells === 'all';
  }

  #toggleAll() {
    this.page.url.set('cells', this.#all ? '' : 'all');
    if (this.status) this.follow(this.status);
  }

  follow(status) {
    this.status = status;
    const lines = status.ledger.map((line) => this.#lineOf(line, status));
    if (status.buffer) lines.push({ ...bufferLine(status.buffer), isShown: true });
    for (const line of lines) this.#write(line);
    setText(this.more.lastChild, this.#all ? 'fewer' : `all ${lines.length}`);
    if (this.#open) this.#showTip(this.#open);
  }

  #lineOf(line, status) {
    const own =
      line.metric === 'viewer_skipped' && status.viewer ? { ...line, total: status.viewer.skipped } : line;
    const kind = verdict(own);
    const definition =
      own === line
        ? line.definition
        : `Traces this page was too slow for (of all pages: ${count(line.total)}). ${line.definition}`;
    return {
      name: line.name,
      metric: line.metric,
      value: count(own.total),
      kind,
      definition,
      word: own.perSecond > 0 ? rate(own.perSecond) : WORDS[kind],
      isShown: ALWAYS.has(line.metric) || kind === 'bad' || kind === 'warn',
    };
  }

  #write(line) {
    let cell = this.#cells.get(line.name);
    if (!cell) {
      cell = element(
        'button',
        { 'aria-describedby': 'tip' },
        element('small', {}, line.name),
        element('b', {}, document.createTextNode(''), element('i')),
      );
      cell.dataset.metric = line.metric ?? line.name;
      cell.addEventListener('pointerenter', () => this.#showTip(line.name));
      cell.addEventListener('focus', () => this.#showTip(line.name));
      cell.addEventListener('click', () => this.#showTip(line.name));
      for (const name of ['pointerleave', 'blur']) cell.addEventListener(name, () => this.#hideTip());
      this.#cells.set(line.name, cell);
      this.root.insertBefore(cell, this.more);
    }
    cell.line = line;
    cell.className = `cell ${line.kind}`;
    cell.hidden = !line.isShown && !this.#all;
    const mark = { warn: '▲ ', bad: '▲ ' }[line.kind] ?? '';
    const value = cell.lastChild.firstChild;
    if (value.data !== mark + line.value) value.data = mark + line.value;
    setText(cell.lastChild.lastChild, line.word);
  }

  #showTip(name) {
    this.#open = name;
    const cell = this.#cells.get(name);
    const tip = byId('tip');
    tip.replaceChildren(element('b', {}, `${name}: ${cell.line.value}`), cell.line.definition);
    tip.hidden = false;
    const box = cell.getBoundingClientRect();
    tip.style.top = `${box.bottom + scrollY + 4}px`;
    tip.style.left = `${Math.max(6, Math.min(box.left, document.documentElement.clientWidth - tip.offsetWidth - 6))}px`;
  }

  #hideTip() {
    this.#open = null;
    byId('tip').hidden = true;
  }
}
