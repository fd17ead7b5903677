# The strongest channel of each trace, with the standard library only: python3 stream.py [host:port] [traces]
import base64, os, socket, struct, sys
address = sys.argv[1] if len(sys.argv) > 1 else "127.0.0.1:4410"
count = int(sys.argv[2]) if len(sys.argv) > 2 else -1
host, port = address.rsplit(":", 1)
stream = socket.create_connection((host, int(port))).makefile("rwb")
stream.write(f"GET /stream HTTP/1.1\r\nHost: {host}:{port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
             f"Sec-WebSocket-Key: {base64.b64encode(os.urandom(16)).decode()}\r\nSec-WebSocket-Version: 13\r\n\r\n".encode())
command = b'{"command":"subscribe","streams":["panorama"],"arrays":["live"],"maxPerSecond":10}'
stream.write(bytes([0x81, 0x80 | len(command), 0, 0, 0, 0]) + command)  # a text message, masked with zeros
stream.flush()
while stream.readline().strip(): pass  # the answer's header

def message():
    kind, data, final = 0, b"", False
    while not final:
        first, length = stream.read(2)
        if length > 125: length = int.from_bytes(stream.read(2 if length == 126 else 8), "big")
        kind, data, final = kind or first & 15, data + stream.read(length), first & 128
    return kind, data

while count:
    kind, frame = message()
    if kind != 2 or frame[5] != 1:  # kind 1 is text, JSON by "type"; stream 1 is the panorama
        continue
    scale, channels, ranges, start, step = struct.unpack_from("<d12xIH14xdd", frame, 56)
    levels = struct.unpack_from(f"<{channels}h", frame, 96 + 24 * ranges)
    best = max((i for i in range(channels) if levels[i] != 32766), key=levels.__getitem__)  # 32766: no value
    print(f"{(start + best * step) / 1e6:.4f} MHz {levels[best] * scale:.1f}", flush=True)
    count -= 1
