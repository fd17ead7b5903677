// SPDX-License-Identifier: MIT
// A client of a mirror: cuts the stream into datagrams, says what came, and keeps the bytes in a file.
#include "wire/framing.h"
#include <QCoreApplication>
#include <QFile>
#include <QTcpSocket>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (argc != 4) {
        std::fputs("usage: mirror_client ADDRESS PORT FILE\n", stderr);
        return 2;
    }
    QFile file(argv[3]);
    if (!file.open(QIODevice::WriteOnly)) {
        std::fprintf(stderr, "%s: %s\n", argv[3], qPrintable(file.errorString()));
        return 2;
    }

    // [framing]
    QTcpSocket socket;
    QByteArray waiting; // what has come of the next datagram
    int datagrams = 0;
    QObject::connect(&socket, &QTcpSocket::readyRead, [&] {
        waiting += socket.readAll();
        int begin = 0;
        try {
            for (;;) {
                const wire::View rest(waiting.constData() + begin,
                                      static_cast<std::size_t>(waiting.size() - begin));
                const auto size = wire::datagramSize(rest);
                if (!size || *size > rest.size())
                    break; // wait for the rest
                file.write(waiting.constData() + begin, *size);
                begin += static_cast<int>(*size);
                ++datagrams;
            }
        } catch (const wire::BadDatagramSize& error) {
            std::fprintf(stderr, "%s\n", error.what()); // the stream cannot be trusted any more
            socket.abort();
        }
        waiting.remove(0, begin);
    });
    // [framing]
    QObject::connect(&socket, &QTcpSocket::disconnected, &application, &QCoreApplication::quit);

    socket.connectToHost(argv[1], static_cast<quint16>(std::atoi(argv[2])));
    if (!socket.waitForConnected(3000))
        return std::fprintf(stderr, "%s, port %s: %s\n", argv[1], argv[2], qPrintable(socket.errorString())),
               2;
    std::fprintf(stderr, "connected\n");
    QCoreApplication::exec();
    std::printf("%d datagrams, %lld bytes, %d bytes of another one\n", datagrams,
                static_cast<long long>(file.pos()), waiting.size());
    return waiting.isEmpty() ? 0 : 1;
}
