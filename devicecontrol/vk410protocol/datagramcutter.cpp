// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/datagramcutter.h"
#include "wire/framing.h"
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr int headerSize = wire::datagram::headerSize;

// Two spare bytes behind each datagram, so that the reader of its attributes need not copy it.
constexpr int spareBytes = 2;

// Read at once: little enough to stay in the processor's cache while it is cut, enough for few system calls.
constexpr qint64 chunkSize = qint64{256} << 10;

// Makes room for `more` bytes; at least doubled, so that a datagram which arrives in small pieces is moved a
// few times only, and never beyond its `total`.
void makeRoom(QByteArray& bytes, qint64 more, quint32 total)
{
    const qint64 needed = bytes.size() + more;
    if (bytes.capacity() >= needed + spareBytes)
        return;
    const qint64 room = std::min<qint64>(std::max<qint64>(needed, qint64{bytes.size()} * 2), total);
    bytes.reserve(static_cast<int>(room) + spareBytes);
}

} // namespace

DatagramCutter::DatagramCutter(Read read)
    : m_read(std::move(read))
    , m_maxSize(wire::datagram::defaultMaxSize)
    , m_chunk(std::make_unique_for_overwrite<char[]>(chunkSize))
{}

void DatagramCutter::restart()
{
    m_chunkBegin = m_chunkEnd = 0;
    m_buffer.reset();
    m_brokenAt.reset();
    m_reason.clear();
}

bool DatagramCutter::mayHaveWhole(qint64 unread) const
{
    return !m_brokenAt && held() + unread >= (m_buffer ? missing() : qint64{headerSize});
}

bool DatagramCutter::hasPartOfHeader() const
{
    return !m_buffer && !m_brokenAt && held() < headerSize;
}

QByteArray DatagramCutter::partOfHeader() const
{
    return hasPartOfHeader() ? QByteArray{m_chunk.get() + m_chunkBegin, static_cast<int>(held())}
                             : QByteArray{};
}

void DatagramCutter::forgetPartOfHeader()
{
    if (hasPartOfHeader())
        m_chunkBegin = m_chunkEnd;
}

DatagramCutter::Bytes DatagramCutter::next()
{
    try {
        while (!m_brokenAt) {
            if (m_buffer || begin())
                take();
            if (m_buffer && missing() == 0)
                return std::exchange(m_buffer, nullptr);
            if (m_brokenAt || !readMore())
                return nullptr;
        }
    } catch (const std::bad_alloc&) {
        // Where the next datagram begins is known only by taking this one. The text last: it needs memory,
        // too.
        giveUp(m_total, {});
        m_reason = QStringLiteral("no memory for a datagram of %1 bytes").arg(m_total);
    }
    return nullptr;
}

// False when the header is not there yet, or cannot be true.
bool DatagramCutter::begin()
{
    if (held() < headerSize)
        return false;
    const wire::View header{m_chunk.get() + m_chunkBegin, headerSize};
    try {
        m_total = *wire::datagramSize(header, m_maxSize);
    } catch (const wire::BadDatagramSize& bad) {
        giveUp(*header.get(wire::datagram::totalLength), QString::fromLatin1(bad.what()));
        return false;
    }
    m_buffer = std::make_unique<QByteArray>();
    return true;
}

// As much of the datagram as was read. Room for what has arrived, never for what is promised.
void DatagramCutter::take()
{
    const qint64 count = std::min(missing(), held());
    makeRoom(*m_buffer, count, m_total);
    m_buffer->append(m_chunk.get() + m_chunkBegin, static_cast<int>(count));
    m_chunkBegin += count;
}

bool DatagramCutter::readMore()
{
    return m_buffer && missing() >= chunkSize ? readIntoDatagram() : readIntoChunk();
}

bool DatagramCutter::readIntoChunk()
{
    // At most part of a header is left.
    const qint64 left = held();
    std::memmove(m_chunk.get(), m_chunk.get() + m_chunkBegin, static_cast<std::size_t>(left));
    m_chunkBegin = 0;
    m_chunkEnd = left;
    m_chunkEnd += std::max<qint64>(m_read(m_chunk.get() + left, chunkSize - left), 0);
    return m_chunkEnd > left;
}

bool DatagramCutter::readIntoDatagram()
{
    const int begin = m_buffer->size();
    makeRoom(*m_buffer, chunkSize, m_total);
    const auto room =
        static_cast<int>(std::min<qint64>(m_buffer->capacity() - spareBytes - begin, missing()));
    m_buffer->resize(begin + room);
    const auto taken = static_cast<int>(std::max<qint64>(m_read(m_buffer->data() + begin, room), 0));
    m_buffer->resize(begin + taken);
    return taken > 0;
}

void DatagramCutter::giveUp(quint32 length, const QString& reason)
{
    m_brokenAt = length;
    m_reason = reason;
    m_buffer.reset();
}
