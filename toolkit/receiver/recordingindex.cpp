// SPDX-License-Identifier: MIT
#include "toolkit/receiver/recordingindex.h"
#include "toolkit/ledger/sequencetracker.h"
#include "toolkit/recording/recording.h"
#include "wire/layout.h"
#include "wire/view.h"
#include <exception>
#include <memory>
#include <optional>

namespace receiver {

namespace {

// The number of a datagram that is one.
std::optional<std::uint16_t> sequenceOf(const QByteArray& bytes)
{
    const wire::View view{
        {reinterpret_cast<const unsigned char*>(bytes.constData()), static_cast<std::size_t>(bytes.size())}};
    const auto magic = view.get(wire::datagram::magic, wire::ByteOrder::Little);
    if (!magic || !wire::datagram::isMagic(*magic))
        return std::nullopt;
    return view.get(wire::datagram::sequence, wire::ByteOrder::Big);
}

void halve(std::vector<RecordingLoss>& losses)
{
    for (std::size_t i = 0; i < losses.size(); i += 2) {
        const quint64 next = i + 1 < losses.size() ? losses[i + 1].datagrams : 0;
        losses[i / 2] = {losses[i].seconds, losses[i].datagrams + next};
    }
    losses.resize((losses.size() + 1) / 2);
}

class Indexer {
public:
    void take(const recording::Datagram& datagram)
    {
        const std::int64_t receivedNs = datagram.receivedNs.value_or(0);
        if (!m_isStarted)
            index.startNs = receivedNs;
        m_isStarted = true;
        const double seconds = static_cast<double>(receivedNs - index.startNs) / 1e9;
        index.durationSeconds = seconds;
        const std::optional<std::uint16_t> sequence = sequenceOf(datagram.bytes);
        if (!sequence)
            return;
        const quint64 before = m_tracker->lost();
        m_tracker->take(*sequence);
        follow(before, m_tracker->lost(), seconds);
    }

    RecordingIndex index;

private:
    void follow(quint64 before, quint64 now, double seconds)
    {
        if (now > before)
            index.losses.push_back({seconds, now - before});
        // A late datagram is not lost after all.
        for (quint64 late = now < before ? before - now : 0; late > 0 && !index.losses.empty(); --late) {
            if (--index.losses.back().datagrams == 0)
                index.losses.pop_back();
        }
        if (index.losses.size() > RecordingIndex::mostLosses)
            halve(index.losses);
    }

    std::unique_ptr<ledger::SequenceTracker> m_tracker = std::make_unique<ledger::SequenceTracker>();
    bool m_isStarted = false;
};

} // namespace

RecordingIndex indexRecording(const std::string& path, const std::atomic<bool>& stop)
{
    Indexer indexer;
    try {
        const std::unique_ptr<recording::DatagramSource> source = recording::openRecording(path, {});
        while (!stop) {
            const std::optional<recording::Datagram> datagram = source->next();
            if (!datagram)
                break;
            indexer.take(*datagram);
        }
    } catch (const std::exception&) {
        // Whoever plays the recording meets the same, and says so.
    }
    return std::move(indexer.index);
}

} // namespace receiver
