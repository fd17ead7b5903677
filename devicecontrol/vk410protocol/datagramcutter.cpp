// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/datagramcutter.h"
#include "wire/framing.h"
#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr int headerSize = wire::datagram::headerSize;

// Two spare bytes behind each datagram, so that the reader of its attributes need not copy it.
constexpr int spareBytes = 2;

} // namespace

DatagramCutter::DatagramCutter(QIODevice& device)
    : m_device(device)
    , m_maxSize(wire::datagram::defaultMaxSize)
{}

bool DatagramCutter::canContinue() const
{
    return !m_brokenAt && m_device.bytesAvailable() >= (m_buffer ? qint64{1} : qint64{headerSize});
}

bool DatagramCutter::mayHaveWhole() const
{
    const qint64 needed = m_buffer ? qint64{m_total} - m_buffer->size() : qint64{headerSize};
    return !m_brokenAt && m_device.bytesAvailable() >= needed;
}

DatagramCutter::Bytes DatagramCutter::next()
{
    try {
        if (!m_buffer && !begin())
            return nullptr;
        takeBytes();
    } catch (const std::bad_alloc&) {
        // Where the next datagram begins is known only by taking this one.
        giveUp(m_total, QStringLiteral("no memory for a datagram of %1 bytes").arg(m_total));
        return nullptr;
    }
    if (static_cast<quint32>(m_buffer->size()) < m_total)
        return nullptr;
    m_total = 0;
    return std::exchange(m_buffer, nullptr);
}

// False when the header is not there yet, or cannot be true.
bool DatagramCutter::begin()
{
    if (m_brokenAt || m_device.bytesAvailable() < headerSize)
        return false;
    char header[headerSize];
    if (m_device.read(header, headerSize) != headerSize)
        return false;
    const wire::View view{header, sizeof header};
    try {
        m_total = *wire::datagramSize(view, m_maxSize);
    } catch (const wire::BadDatagramSize& bad) {
        giveUp(*view.get(wire::datagram::totalLength), QString::fromLatin1(bad.what()));
        return false;
    }
    auto buffer = std::make_unique<QByteArray>();
    // Room for what has arrived, never for what is promised.
    const qint64 arrived = std::min<qint64>(m_total, headerSize + m_device.bytesAvailable());
    buffer->reserve(static_cast<int>(arrived) + spareBytes);
    buffer->append(header, headerSize);
    m_buffer = std::move(buffer);
    return true;
}

void DatagramCutter::takeBytes()
{
    const qint64 missing = qint64{m_total} - m_buffer->size();
    const auto take = static_cast<int>(std::min(missing, m_device.bytesAvailable()));
    if (take <= 0)
        return;
    const int begin = m_buffer->size();
    if (m_buffer->capacity() < begin + take + spareBytes) {
        // Doubled, so that a datagram which arrives in small pieces is moved a few times only.
        const qint64 room =
            std::min<qint64>(std::max<qint64>(qint64{begin} * 2, qint64{begin} + take), m_total);
        m_buffer->reserve(static_cast<int>(room) + spareBytes);
    }
    m_buffer->resize(begin + take);
    const qint64 taken = m_device.read(m_buffer->data() + begin, take);
    m_buffer->resize(begin + static_cast<int>(std::max<qint64>(taken, 0)));
}

void DatagramCutter::giveUp(quint32 length, const QString& reason)
{
    m_brokenAt = length;
    m_reason = reason;
    m_buffer.reset();
    m_total = 0;
}
