// SPDX-License-Identifier: MIT
// The smallest application with a processor of its own: prints every level trace of a datagram.
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include <QByteArray>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

class LevelPrinter : public IMassDataProcessor {
public:
    void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute,
                      bool /*optHeaderAvailable*/) override
    {
        for (int i = 0; i < attribute->Count(); ++i) {
            short level = 0;
            std::memcpy(&level, reinterpret_cast<const char*>(data->selBit0) + 2 * i, sizeof level);
            std::printf("%d\n", level);
        }
    }
};

} // namespace

int main()
{
    VK410Processor dispatcher{false};
    LevelPrinter printer;
    dispatcher.RegisterTagProcessor(&printer, TAG_101, 0);
    const QByteArray received = QByteArray::fromHex("000c5a10000000000000000000000020"
                                                    "0065000c000200000000000100070fff");
    dispatcher.ProcessDatagram(new UdpDatagram{std::make_unique<QByteArray>(received)});
    return 0;
}
