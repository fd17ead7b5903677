// SPDX-License-Identifier: MIT
// The value tree, live: one row a value, filtered by path or text.
import { byId, element, setText } from './dom.mjs';

export class Values {
  #rows = new Map(); // path -> table row
  #body = byId('tool-values').querySelector('tbody');

  constructor(page) {
    this.page = page;
    this.filter = byId('filter');
    this.filter.value = page.url.values.filter;
    this.filter.addEventListener('input', () => {
      page.url.set('filter', this.filter.value);
      for (const row of this.#rows.values()) this.#hideUnlessWanted(row);
      this.#count();
    });
  }

  /// A new connection sends all values; those of the old one may be gone.
  clear() {
    this.#rows.clear();
    this.#body.replaceChildren();
  }

  follow(values) {
    for (const { path, value, unit, type } of values) {
      const row = this.#rows.get(path) ?? this.#add(path);
      setText(row.cells[1], value);
      setText(row.cells[2], unit ?? '');
      setText(row.cells[3], type);
      this.#hideUnlessWanted(row);
    }
    this.#count();
  }

  #add(path) {
    const row = element('tr', {}, element('td', {}, path), element('td'), element('td'), element('td'));
    this.#rows.set(path, row);
    const next = [...this.#body.rows].find((other) => other.cells[0].textContent > path);
    this.#body.insertBefore(row, next ?? null);
    return row;
  }

  #hideUnlessWanted(row) {
    const wanted = this.filter.value.toLowerCase();
    row.hidden =
      wanted !== '' &&
      !`${row.cells[0].textContent} ${row.cells[1].textContent}`.toLowerCase().includes(wanted);
  }

  #count() {
    const shown = [...this.#rows.values()].filter((row) => !row.hidden).length;
    setText(
      byId('valuecount'),
      shown === this.#rows.size ? `${shown} values` : `${shown} of ${this.#rows.size} values`,
    );
  }
}
