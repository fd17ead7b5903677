// SPDX-License-Identifier: MIT
#include "toolkit/support/read_recording.h"

namespace support {

std::vector<wire::Bytes> Read::bytes() const
{
    std::vector<wire::Bytes> all;
    for (const recording::Datagram& datagram : datagrams)
        all.emplace_back(datagram.bytes.begin(), datagram.bytes.end());
    return all;
}

std::vector<std::uint64_t> Read::positions() const
{
    std::vector<std::uint64_t> all;
    for (const recording::Datagram& datagram : datagrams)
        all.push_back(datagram.position);
    return all;
}

std::vector<std::optional<std::int64_t>> Read::times() const
{
    std::vector<std::optional<std::int64_t>> all;
    for (const recording::Datagram& datagram : datagrams)
        all.push_back(datagram.receivedNs);
    return all;
}

std::vector<std::string> Read::origins() const
{
    std::vector<std::string> all;
    for (const recording::Datagram& datagram : datagrams)
        all.push_back(text(datagram.origin));
    return all;
}

recording::FilePtr fileOf(const wire::Bytes& bytes)
{
    // An empty buffer is no file for fmemopen; an empty temporary file is.
    if (bytes.empty())
        return recording::FilePtr{std::tmpfile()};
    return recording::FilePtr{::fmemopen(const_cast<unsigned char*>(bytes.data()), bytes.size(), "rb")};
}

Read readRecording(const wire::Bytes& file, const recording::Options& options)
{
    Read read;
    try {
        const std::unique_ptr<recording::DatagramSource> source =
            recording::openRecording(fileOf(file), "test", options);
        source->onProblem([&read](const recording::Problem& problem) {
            read.problems.push_back(recording::text(problem));
        });
        try {
            while (std::optional<recording::Datagram> datagram = source->next())
                read.datagrams.push_back(std::move(*datagram));
        } catch (...) {
            read.ignored = source->ignored();
            throw;
        }
        read.ignored = source->ignored();
    } catch (const recording::BadFile& bad) {
        read.problems.push_back(std::string{"END "} + bad.what());
    }
    return read;
}

} // namespace support
