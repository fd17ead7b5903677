// SPDX-License-Identifier: MIT
// soak udp|tcp SECONDS: lets one session live through everything that can go wrong around it.
#include "peers.h"
#include "soak.h"
#include <QCoreApplication>
#include <QStringList>
#include <fmt/format.h>

namespace {

int usage()
{
    fmt::print(stderr, "soak: expected 'udp SECONDS' or 'tcp SECONDS', for example: soak tcp 600\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application{argc, argv};
    const QStringList arguments = QCoreApplication::arguments();
    const QString what = arguments.value(1);
    if (what == QLatin1String("peers") && arguments.size() == 4)
        return soak::runPeers({static_cast<std::uint16_t>(arguments[2].toUShort()),
                               static_cast<std::uint16_t>(arguments[3].toUShort())},
                              7);
    bool isNumber = false;
    const double seconds = arguments.value(2).toDouble(&isNumber);
    const bool isTcp = what == QLatin1String("tcp");
    if (!isNumber || seconds < 1 || (!isTcp && what != QLatin1String("udp")))
        return usage();
    return soak::run({isTcp, seconds, QCoreApplication::applicationFilePath().toStdString()});
}
