// SPDX-License-Identifier: MIT
// The page's state in its address, so that a link shows the same to somebody else.

/// What may stand in the address: how it is read and written, and its default (which is left out).
const FIELDS = {
  span: { read: pair, write: (v) => v.map((x) => +x.toFixed(3)).join('_'), initial: null },
  traces: { read: names, write: (v) => v.join('.'), initial: ['live', 'max'] },
  level: { read: pair, write: (v) => v.map((x) => +x.toFixed(2)).join('_'), initial: null },
  colours: { read: pair, write: (v) => v.map((x) => +x.toFixed(2)).join('_'), initial: null },
  auto: { read: flag, write: Number, initial: false },
  markers: { read: numbers, write: (v) => v.map((x) => +x.toFixed(3)).join('_'), initial: [] },
  delta: { read: flag, write: Number, initial: false },
  quality: { read: number, write: String, initial: 40 },
  selected: { read: number, write: (v) => String(+v.toFixed(3)), initial: null },
  row: { read: number, write: String, initial: 50 },
  unit: { read: String, write: String, initial: '' },
  theme: { read: String, write: String, initial: '' },
  tool: { read: String, write: String, initial: '' },
  filter: { read: String, write: String, initial: '' },
  cells: { read: String, write: String, initial: '' },
  source: { read: String, write: String, initial: '' },
  paused: { read: flag, write: Number, initial: false },
};

function numbers(text) {
  const list = text.split('_').map(Number);
  return list.every(Number.isFinite) ? list : undefined;
}
function pair(text) {
  const list = numbers(text);
  return list && list.length === 2 && list[0] < list[1] ? list : undefined;
}
function number(text) {
  const value = text === '' ? NaN : Number(text);
  return Number.isFinite(value) ? value : undefined;
}
function names(text) {
  return text.split('.').filter((name) => /^[a-z]+$/.test(name));
}
function flag(text) {
  return text === '1';
}

/// State of an address's query. What is not understood has its default: a bad link still shows a page.
export function parseState(query) {
  const given = new URLSearchParams(query);
  const state = {};
  for (const [name, field] of Object.entries(FIELDS)) {
    const value = given.has(name) ? field.read(given.get(name)) : undefined;
    state[name] = value === undefined ? field.initial : value;
  }
  return state;
}

export function formatState(state) {
  const query = new URLSearchParams();
  for (const [name, field] of Object.entries(FIELDS)) {
    const value = state[name];
    if (value === null || JSON.stringify(value) === JSON.stringify(field.initial)) continue;
    query.set(name, field.write(value));
  }
  return query.toString();
}

const WRITE_DELAY_MS = 200; // browsers refuse more than about 100 changes of the address in 30 s

/// The state in the address of this page.
export class UrlState {
  #timer = 0;
  values = parseState(location.search);

  set(name, value) {
    this.values[name] = value;
    this.#timer ||= setTimeout(() => this.#write(), WRITE_DELAY_MS);
  }

  #write() {
    this.#timer = 0;
    const query = formatState(this.values);
    history.replaceState(null, '', query ? `?${query}` : location.pathname);
  }
}
