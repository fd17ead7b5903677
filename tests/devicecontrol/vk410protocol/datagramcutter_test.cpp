// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/datagramcutter.h"
#include "support/chunked_device.h"
#include "wire/datagramwriter.h"
#include <gmock/gmock.h>
#include <sys/resource.h>

using support::ChunkedDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;

namespace {

Bytes datagram(unsigned number, std::size_t size)
{
    return wire::DatagramWriter{}.sequence(static_cast<std::uint16_t>(number)).cutTo(size).build();
}

std::vector<Bytes> cutAll(ChunkedDevice& device, DatagramCutter& cutter)
{
    std::vector<Bytes> cut;
    do {
        while (const DatagramCutter::Bytes bytes = cutter.next())
            cut.emplace_back(bytes->begin(), bytes->end());
    } while (device.arrive());
    return cut;
}

TEST(DatagramCutter, EveryPairOfCutsOfThreeDatagramsGivesTheSameDatagrams)
{
    const std::vector<Bytes> sent{datagram(1, 20), datagram(2, 16), datagram(3, 25)};
    Bytes stream;
    for (const Bytes& each : sent)
        stream.insert(stream.end(), each.begin(), each.end());
    for (std::size_t first = 0; first <= stream.size(); ++first) {
        for (std::size_t second = first; second <= stream.size(); ++second) {
            const auto at = [&](std::size_t i) { return stream.begin() + static_cast<long>(i); };
            ChunkedDevice device{
                {Bytes(at(0), at(first)), Bytes(at(first), at(second)), Bytes(at(second), stream.end())}};
            DatagramCutter cutter{device};
            ASSERT_EQ(cutAll(device, cutter), sent) << first << ", " << second;
            ASSERT_EQ(device.bytesAvailable(), 0);
        }
    }
}

TEST(DatagramCutter, LeavesAHeaderInTheDeviceUntilItIsWhole)
{
    const Bytes whole = datagram(1, 16);
    ChunkedDevice device{{Bytes(whole.begin(), whole.begin() + 15), Bytes(whole.begin() + 15, whole.end())}};
    DatagramCutter cutter{device};
    EXPECT_EQ(cutter.next(), nullptr);
    EXPECT_FALSE(cutter.canContinue());
    EXPECT_EQ(device.bytesAvailable(), 15);
    device.arrive();
    EXPECT_TRUE(cutter.canContinue());
    EXPECT_NE(cutter.next(), nullptr);
}

TEST(DatagramCutter, KnowsWhetherADatagramMayBeWhole)
{
    const Bytes whole = datagram(1, 40);
    ChunkedDevice device{{Bytes(whole.begin(), whole.begin() + 20),
                          Bytes(whole.begin() + 20, whole.begin() + 30),
                          Bytes(whole.begin() + 30, whole.end())}};
    DatagramCutter cutter{device};
    EXPECT_TRUE(cutter.mayHaveWhole()); // a header is there; what it promises is not known yet
    EXPECT_EQ(cutter.next(), nullptr);
    device.arrive();
    EXPECT_FALSE(cutter.mayHaveWhole());
    device.arrive();
    EXPECT_TRUE(cutter.mayHaveWhole());
}

TEST(DatagramCutter, ReservesTwoBytesBehindEachDatagram)
{
    const Bytes whole = datagram(1, 5'000);
    std::vector<Bytes> pieces;
    for (std::size_t i = 0; i < whole.size(); i += 100)
        pieces.emplace_back(whole.begin() + static_cast<long>(i), whole.begin() + static_cast<long>(i) + 100);
    ChunkedDevice device{pieces};
    DatagramCutter cutter{device};
    DatagramCutter::Bytes bytes;
    while (!(bytes = cutter.next()))
        ASSERT_TRUE(device.arrive());
    EXPECT_GE(bytes->capacity(), 5'002);
}

TEST(DatagramCutter, TakesNothingMoreFromABrokenStream)
{
    Bytes stream = wire::DatagramWriter{}.claimTotalLength(15).build();
    const Bytes sound = datagram(2, 40);
    stream.insert(stream.end(), sound.begin(), sound.end());
    ChunkedDevice device{{stream}};
    DatagramCutter cutter{device};
    EXPECT_THAT(cutAll(device, cutter), IsEmpty());
    EXPECT_EQ(cutter.brokenAt(), 15U);
    EXPECT_EQ(cutter.reason(), "datagram length at byte 12: expected 16 to 67108864, found 15");
    EXPECT_FALSE(cutter.canContinue());
    EXPECT_FALSE(cutter.mayHaveWhole());
    EXPECT_EQ(device.bytesAvailable(), 40);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
/// A device that always has more.
class Endless : public QIODevice {
public:
    explicit Endless(Bytes header)
        : m_header(std::move(header))
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    [[nodiscard]] bool isSequential() const override { return true; }
    [[nodiscard]] qint64 bytesAvailable() const override { return qint64{1} << 30; }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        std::copy_n(m_header.begin(), std::min<std::size_t>(m_header.size(), static_cast<std::size_t>(size)),
                    data);
        return size;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    Bytes m_header;
};

TEST(DatagramCutter, GivesTheStreamUpWhereThereIsNoMemoryForADatagram)
{
    constexpr quint32 length = 1U << 30U;
    Endless device{wire::DatagramWriter{}.claimTotalLength(length).build()};
    DatagramCutter cutter{device};
    cutter.setMaxSize(length);
    rlimit old{};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &old), 0);
    rlimit tight = old;
    tight.rlim_cur = rlim_t{1} << 30U; // less than the datagram and the program together
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &tight), 0);
    const DatagramCutter::Bytes bytes = cutter.next();
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &old), 0);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(cutter.brokenAt(), length);
    EXPECT_EQ(cutter.reason(), "no memory for a datagram of 1073741824 bytes");
}
#endif

} // namespace
