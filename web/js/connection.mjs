// SPDX-License-Identifier: MIT
// The WebSocket to the server: comes back by itself, with a growing pause, also after the server began anew.
import { FrameDecoder } from './frame.mjs';

const SILENT_MS = 5000; // the server speaks once a second; one that does not is as good as gone
const LONGEST_PAUSE_MS = 8000;

/// Pause before a further try; a part of it by chance, so that 50 viewers do not knock at once.
export const pauseBefore = (attempt, chance) =>
  Math.min(500 * 2 ** attempt, LONGEST_PAUSE_MS) * (0.75 + chance / 4);

export class Connection {
  #socket = null;
  #attempt = 0;
  #heardAt = 0;
  #retryAt = 0;
  state = 'connecting'; // or 'open', 'closed'

  /// `handlers`: onFrame(frame), onState(), onOpen(), onBroken(text), and one on... per type of text message:
  /// onStatus(message), ...
  constructor(address, handlers) {
    this.address = address;
    this.handlers = handlers;
    setInterval(() => this.#watch(), 1000);
  }

  get secondsToRetry() {
    return Math.max(0, Math.ceil((this.#retryAt - performance.now()) / 1000));
  }

  /// Result: whether the command is on its way.
  send(command) {
    if (this.state !== 'open') return false;
    this.#socket.send(JSON.stringify(command));
    return true;
  }

  open() {
    this.#set('connecting');
    const decoder = new FrameDecoder();
    const socket = new WebSocket(this.address);
    this.#socket = socket;
    this.#heardAt = performance.now();
    socket.binaryType = 'arraybuffer';
    socket.onopen = () => {
      if (socket === this.#socket) {
        this.#set('open');
        this.handlers.onOpen();
      }
    };
    socket.onclose = () => {
      if (socket === this.#socket) this.#closed();
    };
    socket.onmessage = ({ data }) => {
      if (socket === this.#socket) this.#receive(decoder, data);
    };
  }

  #receive(decoder, data) {
    this.#heardAt = performance.now();
    this.#attempt = 0;
    try {
      if (typeof data !== 'string') return this.handlers.onFrame(decoder.decode(data));
      const message = JSON.parse(data);
      this.handlers[`on${message.type[0].toUpperCase()}${message.type.slice(1)}`]?.(message);
    } catch (error) {
      this.handlers.onBroken(error.message);
    }
  }

  #closed() {
    const pause = pauseBefore(this.#attempt++, Math.random());
    this.#socket = null;
    this.#retryAt = performance.now() + pause;
    setTimeout(() => this.open(), pause);
    this.#set('closed');
  }

  #watch() {
    if (!this.#socket || performance.now() - this.#heardAt < SILENT_MS) return;
    const socket = this.#socket;
    this.#closed();
    socket.close();
  }

  #set(state) {
    this.state = state;
    this.handlers.onState();
  }
}
