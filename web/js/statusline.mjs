// SPDX-License-Identifier: MIT
// The first line: is the data live, how old is it, what is it. It ticks without data too.
import { byId, setText } from './dom.mjs';
import { count, duration, msOfNs, shortFrequency, utc, utcDate } from './format.mjs';

const LATE_S = 3;

/// What the badge says: the page's own connection first, then the source's state.
/// Result: text and 'good', 'warn' or 'bad'.
export function stateOf(connection, status, ageSeconds, paused) {
  if (connection.state === 'closed') return ['page disconnected', 'bad'];
  if (connection.state === 'connecting' || !status) return ['connecting', 'warn'];
  switch (status.state) {
    case 'live':
      return ageSeconds > LATE_S
        ? [`no data for ${duration(ageSeconds)}`, 'warn']
        : [paused ? 'live, display paused' : 'live', paused ? 'warn' : 'good'];
    case 'silent':
      return [`no data for ${duration(ageSeconds)}`, 'warn'];
    case 'waiting':
      return ['connected, silent', 'warn'];
    case 'replay':
      return ['replay', 'good'];
    case 'paused':
      return ['replay paused', 'warn'];
    case 'ended':
      return ['replay ended', 'warn'];
    default:
      return [status.state, 'warn'];
  }
}

export class StatusLine {
  #statusAt = 0;
  status = null;

  constructor(page) {
    this.page = page;
    setInterval(() => this.tick(), 100);
  }

  follow(status) {
    this.status = status;
    this.#statusAt = performance.now();
    setText(byId('source'), status.source);
    byId('source').title = status.stateText;
    setText(byId('centre'), shortFrequency(status.centreHz || NaN));
    setText(byId('span'), shortFrequency(status.spanHz || NaN));
    setText(
      byId('channels'),
      status.channels ? `${count(status.channels)} × ${shortFrequency(status.stepHz)}` : '–',
    );
    setText(byId('traces'), status.tracesPerSecond.toFixed(1));
    this.tick();
  }

  /// Age of what is displayed as newest: of the last frame here, or what the server says if none came yet.
  get ageSeconds() {
    const { session } = this.page;
    const now = performance.now();
    if (session.lastFrameAt > 0 && !(this.status?.state === 'waiting'))
      return (now - session.lastFrameAt) / 1000;
    return this.status && this.status.ageMs >= 0 ? (this.status.ageMs + now - this.#statusAt) / 1000 : NaN;
  }

  tick() {
    const { page } = this;
    const [text, kind] = stateOf(page.connection, this.status, this.ageSeconds, page.session.paused);
    const badge = byId('state');
    setText(badge, text);
    badge.className = `state ${kind}`;
    setText(byId('age'), page.session.lastFrameAt > 0 ? duration(this.ageSeconds) : '–');
    const shown = page.session.main.shown;
    const ms = shown ? shown.timeMs || shown.receivedMs : msOfNs(this.status?.dataTimeNs);
    setText(byId('utc'), utc(page.session.paused ? page.session.shownMs : ms, true));
    byId('utc').title = utcDate(ms);
    this.#notice();
    this.#behind();
  }

  #notice() {
    const { connection } = this.page;
    const notice = byId('notice');
    const text =
      connection.state === 'closed'
        ? `This page has lost the program: what you see is old. Trying again in ${connection.secondsToRetry} s. Is "vk410" still running?`
        : this.page.complaint || (this.status?.advice ?? '');
    setText(notice, text);
    notice.hidden = text === '' || !(this.page.hasData || this.page.complaint);
    setText(byId('advice'), text || this.status?.stateText || 'Connecting to the program.');
  }

  #behind() {
    const { session } = this.page;
    const behind = byId('behind');
    const isBehind = session.paused && session.newestMs > 0;
    behind.hidden = !isBehind;
    byId('live').hidden = !session.paused;
    if (isBehind) setText(behind, `${duration((session.newestMs - session.shownMs) / 1000)} behind`);
    setText(byId('pause'), session.paused ? 'Resume' : 'Pause');
  }
}
