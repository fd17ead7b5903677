// The strongest channel of each trace. In a page of the program as it stands; in Node 22 or newer:
// node stream.mjs ws://127.0.0.1:4410/stream
const address = globalThis.location ? `ws://${location.host}/stream` : process.argv[2];
const socket = new WebSocket(address);
socket.binaryType = 'arraybuffer';
socket.onopen = () => socket.send(JSON.stringify({
  command: 'subscribe', streams: ['panorama'], arrays: ['live'], maxPerSecond: 10,
}));
socket.onmessage = ({ data }) => {
  if (typeof data === 'string') return; // hello, status, values, ...: JSON by "type"
  const view = new DataView(data);
  if (view.getUint8(5) !== 1) return; // what came before the subscription: other streams than the panorama
  const scale = view.getFloat64(56, true);
  const channels = view.getUint32(76, true);
  const ranges = view.getUint16(80, true);
  const [startHz, stepHz] = [view.getFloat64(96, true), view.getFloat64(104, true)]; // of the first range
  const levels = new Int16Array(data, 96 + 24 * ranges, channels);
  let best = -1;
  levels.forEach((level, i) => {
    if (level !== 32766 && (best < 0 || level > levels[best])) best = i; // 32766: no value
  });
  if (best < 0) return;
  console.log(`${((startHz + best * stepHz) / 1e6).toFixed(4)} MHz ${(levels[best] * scale).toFixed(1)}`);
};
