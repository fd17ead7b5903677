// SPDX-License-Identifier: MIT
#include "toolkit/checking/repair.h"
#include "toolkit/checking/check.h"
#include "toolkit/recording/capturewriter.h"
#include "toolkit/recording/writefailure.h"
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
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
        throw CannotRepair{fmt::format("{}: could not be written to its end: {}", m_path,
                                       recording::writeFailureText(errno))};
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
    if (std::filesystem::exists(m_out, unknown))
        return; // a device or a pipe has its name for good
    m_temporary = m_out + ".part";
    if (std::filesystem::exists(m_temporary, unknown))
        throw CannotRepair{
            fmt::format("{}: expected no such file, which is what {} is called until it is whole; "
                        "remove what an earlier repair left there, or name another one",
                        m_temporary, m_out)};
}

Repair::~Repair()
{
    if (m_temporary.empty() || !m_isBegun)
        return;
    m_target.reset();
    std::error_code gone;
    std::filesystem::remove(m_temporary, gone);
}

void Repair::keep(const recording::Datagram& datagram)
{
    if (!m_target) {
        m_isBegun = true; // also where that fails half-way
        m_target = std::make_unique<Target>(written(), datagram.origin.transport);
    }
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
    readAgain();
    if (!m_temporary.empty())
        giveName();
    m_isBegun = false; // there is nothing to remove any more
}

void Repair::readAgain() const
{
    std::uint64_t hash = hashStart;
    const Findings again =
        check(written(), {}, [&hash](const recording::Datagram& datagram, bool /*isSound*/) {
            hash = hashed(hash, datagram.bytes);
        });
    if (!again.isSound() || again.datagrams != m_kept || hash != m_hash)
        throw CannotRepair{fmt::format("{}: expected the {} datagrams that were written, read {} of which {} "
                                       "are sound; nothing is kept, check the disk",
                                       m_out, m_kept, again.datagrams, again.soundDatagrams)};
}

// Somebody may have made a file of that name meanwhile.
void Repair::giveName()
{
    if (::renameat2(AT_FDCWD, m_temporary.c_str(), AT_FDCWD, m_out.c_str(), RENAME_NOREPLACE) == 0)
        return;
    const bool isUnknown = errno == EINVAL || errno == ENOSYS; // to this file system: it only renames
    if (!isUnknown || std::rename(m_temporary.c_str(), m_out.c_str()) != 0)
        throw CannotRepair{
            fmt::format("{}: expected that the repaired file can be called so, found: {}; name "
                        "another one",
                        m_out, std::strerror(errno))};
}

} // namespace checking
