// SPDX-License-Identifier: MIT
#include "toolkit/checking/repair.h"
#include "toolkit/checking/check.h"
#include "toolkit/recording/capturewriter.h"
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <utility>

namespace checking {

namespace {

constexpr std::uint64_t hashStart = 0xCBF29CE484222325ULL;

// FNV-1a over sizes and bytes.
std::uint64_t hashed(std::uint64_t hash, const QByteArray& bytes)
{
    hash = (hash ^ static_cast<std::uint64_t>(bytes.size())) * 0x100000001B3ULL;
    for (const char byte : bytes)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3ULL;
    return hash;
}

} // namespace

// Where datagrams are kept: a capture, or a raw stream.
class Repair::Target {
public:
    Target(const std::string& path, recording::Transport transport)
        : m_path(path)
    {
        if (transport != recording::Transport::File)
            m_capture = std::make_unique<recording::CaptureWriter>(path);
        else if (m_stream.reset(std::fopen(path.c_str(), "wb")); !m_stream)
            throw CannotRepair{fmt::format("{}: expected a file that can be written, found: {}; choose a "
                                           "folder that exists and that you may write to",
                                           path, std::strerror(errno))};
    }

    void write(const recording::Datagram& datagram)
    {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(datagram.bytes.constData());
        const auto size = static_cast<std::size_t>(datagram.bytes.size());
        if (m_capture)
            m_capture->write({bytes, size}, datagram.receivedNs.value_or(0), datagram.origin);
        else if (std::fwrite(bytes, 1, size, m_stream.get()) != size)
            fail();
    }

    void flush()
    {
        if (m_capture)
            m_capture->flush();
        else if (std::fflush(m_stream.get()) != 0)
            fail();
    }

private:
    [[noreturn]] void fail() const
    {
        throw CannotRepair{fmt::format("{}: could not be written to its end: {}; is the disk full?", m_path,
                                       std::strerror(errno))};
    }

    std::string m_path;
    std::unique_ptr<recording::CaptureWriter> m_capture;
    recording::FilePtr m_stream;
};

Repair::Repair(const std::string& in, std::string out)
    : m_out(std::move(out))
    , m_hash(hashStart)
{
    std::error_code unknown;
    if (std::filesystem::equivalent(in, m_out, unknown))
        throw CannotRepair{
            fmt::format("{}: expected another file than the one that is checked; name a new one", m_out)};
    if (std::filesystem::is_regular_file(m_out, unknown))
        throw CannotRepair{fmt::format(
            "{}: expected a new file, found one that is there; name another one, or remove it", m_out)};
}

Repair::~Repair() = default;

void Repair::keep(const recording::Datagram& datagram)
{
    if (!m_target)
        m_target = std::make_unique<Target>(m_out, datagram.origin.transport);
    m_target->write(datagram);
    m_hash = hashed(m_hash, datagram.bytes);
    ++m_kept;
}

void Repair::finish()
{
    if (!m_target)
        throw CannotRepair{fmt::format(
            "{}: expected at least one sound datagram to keep, found none; nothing was written", m_out)};
    m_target->flush();
    m_target.reset();
    std::uint64_t hash = hashStart;
    const Findings again = check(m_out, {}, [&hash](const recording::Datagram& datagram, bool /*isSound*/) {
        hash = hashed(hash, datagram.bytes);
    });
    if (!again.isSound() || again.datagrams != m_kept || hash != m_hash)
        throw CannotRepair{fmt::format("{}: expected the {} datagrams that were written, read {} of which {} "
                                       "are sound; do not use it, check the disk",
                                       m_out, m_kept, again.datagrams, again.soundDatagrams)};
}

} // namespace checking
