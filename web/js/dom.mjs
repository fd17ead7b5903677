// SPDX-License-Identifier: MIT
// The few things that every panel does with the document. Text from data only ever becomes text, never
// markup.

export const byId = (id) => document.getElementById(id);

/// An element with properties (`class`, `title`, `onclick`, ...) and children: elements or text.
export function element(name, properties = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(properties))
    if (key.startsWith('on')) made.addEventListener(key.slice(2), value);
    else made.setAttribute(key, value);
  made.append(...children);
  return made;
}

/// Writes text only where it changed: the page ticks several times a second.
export function setText(target, text) {
  if (target.textContent !== text) target.textContent = text;
}

/// Gives a canvas the size of its box in device pixels. Result: whether it changed.
export function fitCanvas(canvas) {
  const ratio = devicePixelRatio || 1;
  const width = Math.max(1, Math.round(canvas.clientWidth * ratio));
  const height = Math.max(1, Math.round(canvas.clientHeight * ratio));
  if (canvas.width === width && canvas.height === height) return false;
  canvas.width = width;
  canvas.height = height;
  return true;
}

/// Hands text or bytes to the user as a file.
export function download(name, blob) {
  const url = URL.createObjectURL(blob);
  element('a', { href: url, download: name }).click();
  setTimeout(() => URL.revokeObjectURL(url), 10000);
}

/// Draws panels that asked for it, once per frame of the screen.
export class Painter {
  #waiting = new Set();
  #scheduled = false;

  request(panel) {
    this.#waiting.add(panel);
    if (this.#scheduled) return;
    this.#scheduled = true;
    requestAnimationFrame(() => this.#paint());
  }

  #paint() {
    this.#scheduled = false;
    const panels = [...this.#waiting];
    this.#waiting.clear();
    for (const panel of panels) panel.draw();
  }
}
