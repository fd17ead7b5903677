// SPDX-License-Identifier: MIT
// The smallest host: the IF panoramas of the receiver at ADDRESS PORT into a level map.
#include "devicecontrol/vk410protocol/mdpifpan.h"
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include <QCoreApplication>
#include <QTcpSocket>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (argc != 3)
        return 2;
    const auto levels = values::Tree::Instance()->Create<values::LevelMap>("/RECEIVER", "IFPANMAPPING");
    MdpIfpan processor{nullptr, std::make_shared<FastLevelMapFiller>(levels.get(), nullptr)};
    processor.Init("/RECEIVER", "/RECEIVER/FOLLOW");
    VK410Processor dispatcher{true}; // all channels of the receiver go to this one processor
    dispatcher.RegisterTagProcessor(&processor, TAG_501, 0);
    QObject::connect(&processor, &MdpIfpan::signalTraceData, [&] {
        std::printf("trace %llu: %zu levels\n", levels->GetScanCount(), levels->GetValues().size());
    });

    TcpReader reader{argv[1], static_cast<unsigned short>(std::atoi(argv[2])), &dispatcher};
    const auto* const socket = reader.findChild<QTcpSocket*>();
    QObject::connect(socket, &QTcpSocket::disconnected, &application, &QCoreApplication::quit);
    return socket->state() == QAbstractSocket::ConnectedState ? QCoreApplication::exec() : 2;
}
