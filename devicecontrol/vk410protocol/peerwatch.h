// SPDX-License-Identifier: MIT
#pragma once
// Notices peers that died without a word: no FIN, no reset, just silence.
#include <QTcpSocket>

namespace peerwatch {

/// Has the system ask after the peer of a connected socket when it is silent, and give the connection up
/// after about 5 s without an answer, or after `userTimeoutMilliseconds` in which sent bytes were not taken;
/// the socket then ends with an error. A socket without a connection: nothing.
void watch(QTcpSocket& socket, int userTimeoutMilliseconds);

} // namespace peerwatch
