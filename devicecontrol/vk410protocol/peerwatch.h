// SPDX-License-Identifier: MIT
#pragma once
// Notices peers that died without a word: no FIN, no reset, just silence.
#include <QTcpSocket>

namespace peerwatch {

/// Has the system ask after the peer of a connected socket when it is silent, and give the connection up
/// after about 5 s without an answer; the socket then ends with an error. A socket without a connection:
/// nothing. There is no limit on how long a living peer may pause: the system's user time-out would count
/// that, too.
void watch(QTcpSocket& socket);

/// Whether the socket's descriptor is the connection to its peer: behind a proxy it is another one's.
[[nodiscard]] bool isDirect(const QTcpSocket& socket);

/// Whether bytes are under way to a peer that has not answered for 10 s, several repetitions included. A peer
/// that pauses answers, and is not dead.
[[nodiscard]] bool isDead(const QTcpSocket& socket);

} // namespace peerwatch
