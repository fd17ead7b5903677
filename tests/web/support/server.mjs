// SPDX-License-Identifier: MIT
// A stand-in for the page's server: a known scene, faults and restarts on demand. What only the real one can
// show (ledger counts, holds, recordings) is tested against the program.
import { createReadStream, existsSync } from 'node:fs';
import { createServer } from 'node:http';
import { extname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { WebSocketServer } from 'ws';
import { encodeFrame } from './encode.mjs';
import { Scene } from './scene.mjs';

const web = fileURLToPath(new URL('../../../web/', import.meta.url));
const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.css': 'text/css',
  '.mjs': 'text/javascript',
  '.js': 'text/javascript',
  '.svg': 'image/svg+xml',
  '.py': 'text/plain; charset=utf-8',
};
const ARRAYS = ['live', 'max', 'min', 'average', 'hold'];

function fileOf(url) {
  const path = url === '/' ? 'index.html' : url.slice(1);
  return join(web, path.startsWith('uplot/') ? `node_modules/uplot/dist/${path.slice(6)}` : path);
}

function serveFile(request, response) {
  const path = fileOf(new URL(request.url, 'http://x').pathname);
  if (!path.startsWith(web) || !existsSync(path)) return response.writeHead(404).end();
  response.writeHead(200, {
    'Content-Type': TYPES[extname(path)] ?? 'application/octet-stream',
    'Cache-Control': 'no-cache',
    'Content-Security-Policy': "default-src 'self'; img-src 'self' blob: data:",
  });
  createReadStream(path).pipe(response);
}

export class StandIn {
  commands = [];
  ranges = { suppress: [], blanking: [] };
  sending = true;
  lose = 0; // traces of the panorama that get lost next
  broken = false; // frames are none
  state = 'live';
  #sequence = 0;
  #viewers = new Set();

  constructor(options = {}) {
    this.options = { rate: 60, ...options };
    this.scene = new Scene(options);
    this.values = [
      { path: '/VK410/FREQUENCY', type: 'number', value: '100000000', unit: 'Hz' },
      { path: '/VK410/<b>NAME</b>', type: 'text', value: '<img src=x>', unit: '' },
    ];
  }

  async start(port = 0) {
    this.http = createServer(serveFile);
    this.sockets = new WebSocketServer({ server: this.http, path: '/stream' });
    this.sockets.on('connection', (socket) => this.#welcome(socket));
    await new Promise((resolve) => this.http.listen(port, '127.0.0.1', resolve));
    this.port = this.http.address().port;
    this.timers = [
      setInterval(() => this.#tick(), 1000 / this.options.rate),
      setInterval(() => this.sendAll(this.status()), 1000),
    ];
    return this;
  }

  get address() {
    return `http://127.0.0.1:${this.port}/`;
  }

  async stop() {
    if (!this.http.listening) return;
    this.timers.forEach(clearInterval);
    for (const viewer of this.#viewers) viewer.socket.terminate();
    this.http.closeAllConnections();
    await new Promise((resolve) => this.http.close(resolve));
  }

  sendAll(message) {
    for (const { socket } of this.#viewers) socket.send(JSON.stringify(message));
  }

  status() {
    const playback = this.options.playback ?? null;
    return {
      type: 'status',
      source: 'udp 127.0.0.1:5555',
      state: this.state,
      stateText: 'listening',
      centreHz: 1e8,
      spanHz: 1e7,
      channels: this.scene.points,
      stepHz: this.scene.range.step,
      tracesPerSecond: this.options.rate,
      datagramsPerSecond: 60,
      bytesPerSecond: 201000,
      dataTimeNs: `${Date.now()}000000`,
      receivedNs: `${Date.now()}000000`,
      ageMs: 12,
      buffer: { askedBytes: 8388608, grantedBytes: 4194304 },
      advice: this.state === 'waiting' ? 'start the device' : '',
      viewers: 1,
      viewer: { skipped: 0 },
      playback,
      faults: null,
      recorder: null,
      ledger: [
        {
          name: 'wire lost',
          metric: 'wire_lost',
          total: this.lostTotal ?? 0,
          perSecond: 0,
          isLoss: true,
          definition: 'datagrams that the sequence numbers miss; vk410 doctor tells where',
        },
        {
          name: 'map writes',
          metric: 'map_writes',
          total: this.scene.traces,
          perSecond: 60,
          isLoss: false,
          definition: 'traces written into maps',
        },
      ],
    };
  }

  #welcome(socket) {
    const viewer = { socket, arrays: [0] };
    this.#viewers.add(viewer);
    socket.on('close', () => this.#viewers.delete(viewer));
    socket.on('message', (data) => this.#command(viewer, JSON.parse(data)));
    const send = (message) => socket.send(JSON.stringify(message));
    send({
      type: 'hello',
      version: 1,
      program: 'vk410 stand-in',
      demo: false,
      recording: !!this.options.playback,
      convention: 'degrees clockwise from north',
      source: 'udp 127.0.0.1:5555',
    });
    send(this.status());
    send({ type: 'values', values: this.values });
    send({ type: 'ranges', ...this.ranges });
  }

  #command(viewer, command) {
    this.commands.push(command);
    if (command.command === 'subscribe') viewer.arrays = command.arrays.map((name) => ARRAYS.indexOf(name));
  }

  #tick() {
    if (!this.sending || this.#viewers.size === 0) return;
    const panorama = this.scene.panorama();
    if (this.lose > 0) {
      --this.lose;
      this.lostSince = (this.lostSince ?? 0) + 1;
      return;
    }
    this.#send({ ...panorama, lost: this.lostSince ?? 0 });
    this.lostSince = 0;
    const every = (share) => this.scene.traces % Math.max(1, Math.round(this.options.rate * share)) === 0;
    if (this.scene.bearings && every(0.1)) this.#send(this.scene.directions());
    if (this.scene.zeroSpan && every(0.05)) this.#send(this.scene.overTime());
    if (this.scene.bearings && every(1)) this.#sendEmitters();
  }

  #sendEmitters() {
    this.sendAll({
      type: 'emitters',
      emitters: [
        {
          frequencyHz: 98.5e6,
          azimuthDeg: 123.4,
          spreadDeg: 1.2,
          quality: 92,
          levelDb: 40,
          ageMs: 120,
          trendDegPerSecond: 0.4,
        },
        {
          frequencyHz: 102e6,
          azimuthDeg: 275,
          spreadDeg: 2.2,
          quality: 71,
          levelDb: 40,
          ageMs: 120,
          trendDegPerSecond: 0,
        },
      ],
    });
  }

  #send(frame) {
    const timed = {
      ...frame,
      timeMs: Date.now(),
      holdSinceMs: Date.now() - 5000,
      sequence: this.#sequence++,
    };
    for (const { socket, arrays } of this.#viewers) {
      const kept = frame.stream === 4 ? frame.arrays : frame.arrays.filter(([bit]) => arrays.includes(bit));
      socket.send(this.broken ? Buffer.alloc(200) : encodeFrame({ ...timed, arrays: kept }));
    }
  }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const server = await new StandIn(JSON.parse(process.argv[3] ?? '{}')).start(Number(process.argv[2] ?? 0));
  console.log(server.address);
}
