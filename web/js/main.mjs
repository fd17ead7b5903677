// SPDX-License-Identifier: MIT
// The page: builds its parts, and passes on what the stream and the operator say.
import { ColourBar } from './colourbar.mjs';
import { Connection } from './connection.mjs';
import { Directions } from './directions.mjs';
import { Painter, byId, element } from './dom.mjs';
import { Emitters } from './emitters.mjs';
import { saveCsv, savePng } from './export.mjs';
import { Faults } from './faults.mjs';
import { drawHueBar } from './huebar.mjs';
import { Keyboard } from './keyboard.mjs';
import { Ledger } from './ledger.mjs';
import { Levels } from './levels.mjs';
import { bearingWaterfall, levelWaterfall } from './pictures.mjs';
import { Ranges } from './ranges.mjs';
import { Session } from './session.mjs';
import { Spectrum } from './spectrum.mjs';
import { StatusLine } from './statusline.mjs';
import { StreamBox } from './streambox.mjs';
import { Theme } from './theme.mjs';
import { TimeBar } from './timebar.mjs';
import { Tools } from './tools.mjs';
import { Track } from './track.mjs';
import { UrlState } from './urlstate.mjs';
import { Values } from './values.mjs';
import { ZeroSpan } from './zerospan.mjs';

const ROW_TIMES_MS = [20, 50, 100, 200, 500, 1000];
const SLOW_MS = 200; // direction finding is drawn five times a second
const COMPLAINT_MS = 8000;
const AUTO_AFTER_FRAMES = 10;
const REASONS = ['', ': not usable', ': blanked'];

class Page {
  cursor = { hz: null, picture: null, y: 0 };
  convention = '';
  hasData = false;
  complaint = ''; // of the server, or about what it sent

  constructor() {
    this.url = new UrlState();
    this.theme = new Theme(this.url);
    this.painter = new Painter();
    this.levels = new Levels(this.url);
    this.session = new Session(this.url);
    this.selectedHz = this.url.values.selected;
    this.wantedSpan = this.url.values.span; // of a link; taken by the first grid
    this.emitters = new Emitters(this);
    this.ranges = new Ranges(this);
    this.spectrum = new Spectrum(this);
    this.waterfall = levelWaterfall(this);
    this.bearings = bearingWaterfall(this);
    this.zeroSpans = ['zerospan', 'zerospan2'].map((name) => new ZeroSpan(this, name));
    this.directions = new Directions(this);
    this.track = new Track(this);
    this.ledger = new Ledger(this);
    this.statusLine = new StatusLine(this);
    this.timeBar = new TimeBar(this);
    this.values = new Values(this);
    this.faults = new Faults(this);
    this.streamBox = new StreamBox();
    this.colourBar = new ColourBar(this);
    this.tools = new Tools(this, [
      ['values', 'Values'],
      ['ranges', 'Ranges'],
      ['faults', 'Inject faults'],
      ['stream', 'Use this stream', () => this.streamBox.show()],
    ]);
    this.tools.setOffered('faults', false);
    this.#wire();
    this.#buildControls();
    this.#buildKeyboard();
    this.connection = new Connection(
      `${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}/stream`,
      this.#handlers(),
    );
    this.connection.open();
  }

  send(command) {
    return this.connection.send(command);
  }

  subscribe() {
    const arrays = ['live', ...this.url.values.traces.filter((name) => name !== 'live')];
    this.send({ command: 'subscribe', streams: ['panorama', 'zerospan', 'df'], arrays, maxPerSecond: 60 });
  }

  resetHolds() {
    this.send({ command: 'resetHolds' });
  }

  /// Where the pointer is: on a frequency, and on a row of a picture.
  moveCursor(hz, picture, y) {
    this.cursor = { hz, picture, y };
    this.spectrum.plot.showCursor(hz);
    this.#drawAll();
  }

  /// The channel of the direction-finding displays.
  select(hz, isChosen = true) {
    this.selectedHz = hz;
    if (isChosen) this.url.set('selected', hz);
    for (const part of [this.directions, this.track, this.emitters]) this.painter.request(part);
  }

  /// A marker selects a channel that the direction finder has a bearing of.
  selectIfHeard(hz) {
    const { shown, grid } = this.session.streams.df;
    if (shown?.azimuth?.[grid.indexOf(hz)] >= 0) this.select(hz);
  }

  autoLevel(keep = true) {
    const { history, levelRing } = this.session.main;
    if (history.newest < 0) return;
    if (this.levels.isSet) this.levels.auto(history, levelRing, keep);
    else this.levels.firstAuto(history, levelRing);
  }

  /// Why there is no bearing at a frequency.
  reasonAt(hz) {
    const { shown, grid } = this.session.streams.df;
    return REASONS[shown?.validity?.[grid.indexOf(hz)]] ?? '';
  }

  #handlers() {
    return {
      onState: () => this.statusLine.tick(),
      onOpen: () => {
        this.session.beginConnection();
        this.values.clear();
        this.subscribe();
      },
      onFrame: (frame) => this.session.receive(frame),
      onHello: (hello) => this.#hello(hello),
      onStatus: (status) => this.#status(status),
      onValues: ({ values }) => this.values.follow(values),
      onRanges: (ranges) => this.ranges.follow(ranges),
      onEmitters: ({ emitters }) => this.emitters.follow(emitters),
      onBroken: (text) => this.#complain(`stream: ${text}`),
      onError: ({ command, text }) => this.#complain(`${command}: ${text}`),
    };
  }

  #hello({ convention, demo }) {
    this.convention = convention;
    for (const place of document.querySelectorAll('.convention')) {
      place.textContent = convention;
      place.title = convention;
    }
    this.tools.setOffered('faults', demo);
  }

  #status(status) {
    document.title = `${status.source} – VK410`;
    this.statusLine.follow(status);
    this.ledger.follow(status);
    this.timeBar.follow(status.playback);
    this.faults.follow(status);
    if (this.url.values.auto && !this.session.paused) this.autoLevel(false);
  }

  #complain(text) {
    if (text === this.complaint) return;
    this.complaint = text;
    setTimeout(() => {
      if (this.complaint === text) this.complaint = '';
    }, COMPLAINT_MS);
    this.statusLine.tick();
  }

  #wire() {
    const { session, painter } = this;
    session.on('grid', (stream) => this.#showPanels(stream));
    session.on('frame', (stream) => this.#frame(stream));
    session.on('pause', () => {
      document.body.classList.toggle('paused', session.paused);
      this.#drawAll();
      this.#drawSlow();
    });
    this.levels.onChange(() => this.#drawAll());
    this.theme.onChange(() => {
      this.#drawAll();
      this.#drawSlow();
    });
    for (const { view } of Object.values(session.streams)) view.onChange(() => this.#viewChanged(view));
    setInterval(() => this.#drawSlow(), SLOW_MS);
    painter.request(this.colourBar);
  }

  #frame(stream) {
    const { session, painter } = this;
    if (stream === session.main) {
      if (!this.levels.isSet && session.framesReceived >= AUTO_AFTER_FRAMES) this.autoLevel(false);
      painter.request(this.spectrum);
      painter.request(this.waterfall);
    }
    if (stream.name === 'df') painter.request(this.bearings);
    for (const plot of this.zeroSpans) if (plot.stream === stream) painter.request(plot);
  }

  #viewChanged(view) {
    if (view === this.session.main.view) this.url.set('span', view.isFull ? null : [view.from, view.to]);
    this.#drawAll();
  }

  /// Panels without data do not stand there empty.
  #showPanels(stream) {
    const { session } = this;
    const { panorama, zerospan, zerospan2, df } = session.streams;
    this.hasData = true;
    byId('waiting').hidden = true;
    byId('left').hidden = false;
    byId('spectrum').hidden = byId('waterfall').hidden = !panorama.frame && !df.frame;
    byId('bearings').hidden = byId('right').hidden = !df.frame;
    byId('zerospan').hidden = !zerospan.frame;
    byId('zerospan2').hidden = !zerospan2.frame;
    byId('zerospans').hidden = !zerospan.frame && !zerospan2.frame;
    this.#showSources(Boolean(panorama.frame && df.frame));
    if (stream === session.main) this.#takeGrid(stream);
    if (this.url.values.paused && !this.pauseTaken) {
      this.pauseTaken = true;
      session.pause(true);
    }
    drawHueBar(byId('huebar'));
    this.#drawAll();
  }

  #takeGrid({ view }) {
    this.spectrum.gridChanged(this.wantedSpan === undefined);
    if (this.wantedSpan) view.show(...this.wantedSpan);
    this.wantedSpan = undefined;
  }

  #showSources(isShown) {
    const place = byId('sources');
    place.hidden = !isShown;
    if (!isShown) return;
    place.replaceChildren(
      ...[
        ['panorama', 'panorama'],
        ['df', 'DF'],
      ].map(([name, text]) =>
        element(
          'button',
          { 'aria-pressed': this.session.main.name === name, onclick: () => this.#setSource(name) },
          text,
        ),
      ),
    );
  }

  #setSource(name) {
    this.url.set('source', name === 'panorama' ? '' : name);
    this.#showSources(true);
    this.autoLevel();
    this.#drawAll();
  }

  #drawAll() {
    for (const part of [this.spectrum, this.waterfall, this.bearings, ...this.zeroSpans])
      this.painter.request(part);
  }

  #drawSlow() {
    if (byId('right').hidden) return;
    for (const part of [this.directions, this.track]) this.painter.request(part);
  }

  togglePause() {
    if (this.timeBar.isShown) return this.timeBar.toggle();
    this.setPaused(!this.session.paused);
  }

  backToLive() {
    if (this.timeBar.isPaused) this.timeBar.toggle();
    this.setPaused(false);
  }

  setPaused(paused) {
    this.session.pause(paused);
    this.url.set('paused', paused);
    this.statusLine.tick();
  }

  toggleAlways() {
    this.url.set('auto', !this.url.values.auto);
    byId('autoalways').setAttribute('aria-pressed', this.url.values.auto);
    if (this.url.values.auto) this.autoLevel(false);
  }

  #buildControls() {
    const row = byId('row');
    row.append(
      ...ROW_TIMES_MS.map((ms) =>
        element('option', { value: ms }, ms < 1000 ? `${ms} ms a row` : `${ms / 1000} s a row`),
      ),
    );
    if (!ROW_TIMES_MS.includes(this.url.values.row)) this.url.set('row', 50);
    row.value = String(this.url.values.row);
    row.addEventListener('change', () => {
      this.session.setRowMs(Number(row.value));
      this.#drawAll();
    });
    byId('autoalways').setAttribute('aria-pressed', this.url.values.auto);
    const clicks = {
      pause: () => this.togglePause(),
      live: () => this.backToLive(),
      theme: () => this.theme.toggle(),
      help: () => byId('keys').showModal(),
      autolevel: () => this.autoLevel(),
      autoalways: () => this.toggleAlways(),
    };
    for (const [id, action] of Object.entries(clicks)) byId(id).addEventListener('click', action);
  }

  #buildKeyboard() {
    new Keyboard([
      [' ', 'pause and resume; data keeps flowing into the history', () => this.togglePause()],
      ['L', 'back to live; a recording plays on', () => this.backToLive()],
      ['M', 'marker to the next peak', () => this.spectrum.nextPeak()],
      ['D', 'delta: a second marker, measured from the first', () => this.spectrum.toggleDelta()],
      ['Escape', 'no markers', () => this.spectrum.clearMarkers()],
      ['P', 'peak hold: highest level of the last 5 s', () => this.spectrum.toggle('hold')],
      ['R', 'reset max, min and hold, for everyone', () => this.resetHolds()],
      ['A', 'auto level once', () => this.autoLevel()],
      ['X', 'auto level always', () => this.toggleAlways()],
      ['Z', 'full span', () => this.session.main.view.reset()],
      ['U', 'dBµV or dBm', () => this.levels.toggleUnit()],
      ['S', 'save a picture (PNG)', () => savePng(this)],
      ['E', 'export the channels shown (CSV)', () => saveCsv(this)],
      [
        '.',
        'recording: one datagram on',
        () => {
          if (this.timeBar.isShown) this.timeBar.step();
        },
      ],
      ['?', 'this map', () => byId('keys').showModal()],
    ]);
  }
}

new Page();
