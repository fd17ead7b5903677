// SPDX-License-Identifier: MIT
#pragma once
// What a reader serves when nothing is to be done with its datagrams.
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include <QObject>
#include <memory>

namespace bench {

/// Counts datagrams and lets go of them.
class DatagramTaker : public QObject {
    Q_OBJECT
public:
    std::size_t datagrams = 0;
    std::size_t bytes = 0;

public slots:
    void ProcessDatagram(UdpDatagram* datagram)
    {
        const std::unique_ptr<UdpDatagram> owned{datagram};
        ++datagrams;
        bytes += owned->Size();
    }
};

} // namespace bench
