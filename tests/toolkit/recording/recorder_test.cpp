// SPDX-License-Identifier: MIT
#include "toolkit/recording/recorder.h"
#include "toolkit/recording/recording.h"
#include "wire/datagramwriter.h"
#include <QTemporaryDir>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

using recording::CaptureWriter;
using recording::Datagram;
using recording::Origin;
using recording::Recorder;
using recording::Transport;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

wire::Bytes numbered(unsigned number, std::size_t size)
{
    wire::Bytes bytes =
        wire::DatagramWriter{}.sequence(static_cast<std::uint16_t>(number)).cutTo(size).build();
    for (std::size_t i = 16; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(number + i);
    return bytes;
}

Origin origin(Transport transport, bool isV6 = false)
{
    Origin result{transport, {}, {}};
    result.from.address = {192, 0, 2, 7};
    result.to.address = {192, 0, 2, 9};
    result.from.port = 5555;
    result.to.port = 40000;
    result.from.isV6 = result.to.isV6 = isV6;
    return result;
}

std::vector<Datagram> read(const std::string& path)
{
    std::vector<Datagram> datagrams;
    const auto source = recording::openRecording(path, {});
    while (auto datagram = source->next())
        datagrams.push_back(std::move(*datagram));
    return datagrams;
}

wire::Bytes bytesOf(const Datagram& datagram)
{
    return {datagram.bytes.begin(), datagram.bytes.end()};
}

class Recordings : public testing::Test {
protected:
    std::string path(const char* name = "a.pcap") const { return folder.filePath(name).toStdString(); }
    QTemporaryDir folder;
};

TEST_F(Recordings, KeepBytesTimesToTheNanosecondAndOrigins)
{
    for (const Transport transport : {Transport::Udp, Transport::Tcp}) {
        for (const bool isV6 : {false, true}) {
            {
                CaptureWriter writer{path()};
                writer.write(numbered(1, 40), 1'700'000'000'123'456'789, origin(transport, isV6));
                writer.write(numbered(2, 1'400), 1'700'000'000'123'456'790, origin(transport, isV6));
            }
            const auto datagrams = read(path());
            ASSERT_THAT(datagrams, SizeIs(2));
            EXPECT_EQ(bytesOf(datagrams[0]), numbered(1, 40));
            EXPECT_EQ(bytesOf(datagrams[1]), numbered(2, 1'400));
            EXPECT_EQ(datagrams[0].receivedNs, 1'700'000'000'123'456'789);
            EXPECT_EQ(datagrams[0].origin, origin(transport, isV6));
        }
    }
}

TEST_F(Recordings, KeepDatagramsOfAnyLength)
{
    {
        CaptureWriter writer{path()};
        writer.write(numbered(1, 60'001), 1, origin(Transport::Udp));
        writer.write(numbered(2, 300'000), 2, origin(Transport::Tcp));
        writer.write(numbered(3, 16), 3, origin(Transport::Tcp));
    }
    const auto datagrams = read(path());
    ASSERT_THAT(datagrams, SizeIs(3));
    EXPECT_EQ(bytesOf(datagrams[1]), numbered(2, 300'000));
    EXPECT_EQ(bytesOf(datagrams[2]), numbered(3, 16));
}

TEST_F(Recordings, GiveDatagramsOfARawStreamAnAddress)
{
    {
        CaptureWriter writer{path()};
        writer.write(numbered(1, 40), 1, {});
    }
    const auto datagrams = read(path());
    ASSERT_THAT(datagrams, SizeIs(1));
    EXPECT_EQ(text(datagrams[0].origin), "tcp 192.0.2.1:5555 > 192.0.2.2:40000");
}

TEST_F(Recordings, CannotBeWrittenWhereThereIsNoFolder)
{
    try {
        const CaptureWriter writer{path("no/such/folder.pcap")};
        FAIL();
    } catch (const recording::CannotWrite& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("No such file or directory"));
        EXPECT_THAT(error.what(), testing::HasSubstr("choose a folder that exists"));
    }
}

TEST_F(Recordings, AreWrittenInOrderByTheRecorder)
{
    {
        Recorder recorder{path(), {}};
        for (unsigned i = 0; i < 1'000; ++i)
            recorder.take(numbered(i, 100).data(), 100, i, origin(Transport::Udp));
        EXPECT_EQ(recorder.taken(), 1'000U);
    }
    const auto datagrams = read(path());
    ASSERT_THAT(datagrams, SizeIs(1'000));
    EXPECT_EQ(bytesOf(datagrams[999]), numbered(999, 100));
}

TEST_F(Recordings, RotateBySizeAndLoseNothing)
{
    std::vector<std::string> files;
    {
        Recorder recorder{path(), {.bytes = 1'000, .seconds = 0}};
        for (unsigned i = 0; i < 20; ++i)
            recorder.take(numbered(i, 300).data(), 300, i + 1, origin(Transport::Udp));
        while (recorder.files().size() < 10)
            usleep(1'000);
        files = recorder.files();
    }
    EXPECT_EQ(files[0], path());
    EXPECT_EQ(files[1], path("a-0001.pcap"));
    std::size_t count = 0;
    for (const std::string& file : files)
        count += read(file).size();
    EXPECT_EQ(count, 20U);
}

TEST_F(Recordings, RotateByTime)
{
    {
        Recorder recorder{path(), {.bytes = 0, .seconds = 10}};
        for (const std::int64_t second : {1, 5, 10, 11, 20, 21})
            recorder.take(numbered(1, 40).data(), 40, second * 1'000'000'000, origin(Transport::Udp));
    }
    EXPECT_THAT(read(path()), SizeIs(3));
    EXPECT_THAT(read(path("a-0001.pcap")), SizeIs(2));
    EXPECT_THAT(read(path("a-0002.pcap")), SizeIs(1));
}

TEST_F(Recordings, OfAKilledProcessAreReadUpToTheLastWholeRecord)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Recorder recorder{path(), {}};
        for (unsigned i = 0;; ++i) {
            recorder.take(numbered(i, 500).data(), 500, i, origin(Transport::Udp));
            usleep(500);
        }
    }
    usleep(800'000);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::size_t count = 0;
    try {
        const auto source = recording::openRecording(path(), {});
        while (auto datagram = source->next()) {
            EXPECT_EQ(bytesOf(*datagram), numbered(static_cast<unsigned>(count), 500));
            ++count;
        }
    } catch (const recording::BadFile&) {
        // The last record may be cut; what came before it was delivered.
    }
    EXPECT_GT(count, 100U);
}

} // namespace
