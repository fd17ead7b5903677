// SPDX-License-Identifier: MIT
#include "toolkit/recording/recorder.h"
#include "toolkit/recording/numberedpath.h"
#include <chrono>

namespace recording {

namespace {

// What may wait for the disk: half a second of the fastest network.
constexpr std::size_t mostQueuedBytes = std::size_t{64} << 20;

// Written bytes reach the system at least this often, so that a killed process loses no more.
constexpr std::chrono::milliseconds flushInterval{200};

} // namespace

Recorder::Recorder(std::string path, const Rotation& rotation)
    : m_path(std::move(path))
    , m_rotation(rotation)
{
    openNext();
    m_thread = std::thread([this] { run(); });
}

Recorder::~Recorder()
{
    {
        const std::lock_guard lock{m_mutex};
        m_stop = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void Recorder::take(const unsigned char* bytes, std::size_t size, std::int64_t receivedNs,
                    const Origin& origin)
{
    {
        const std::lock_guard lock{m_mutex};
        if (m_failure || m_queuedBytes + size > mostQueuedBytes) {
            ++m_skipped;
            return;
        }
        m_queue.push_back({{bytes, bytes + size}, receivedNs, origin});
        m_queuedBytes += size;
    }
    ++m_taken;
    m_bytesTaken += size;
    m_wake.notify_one();
}

std::optional<std::string> Recorder::failure() const
{
    const std::lock_guard lock{m_mutex};
    return m_failure;
}

std::vector<std::string> Recorder::files() const
{
    const std::lock_guard lock{m_mutex};
    return m_files;
}

void Recorder::run()
{
    auto lastFlush = std::chrono::steady_clock::now();
    std::deque<Item> batch;
    for (;;) {
        {
            std::unique_lock lock{m_mutex};
            m_wake.wait_for(lock, flushInterval, [this] { return m_stop || !m_queue.empty(); });
            batch.swap(m_queue);
            m_queuedBytes = 0;
            if (batch.empty() && m_stop)
                return;
        }
        try {
            for (const Item& item : batch)
                write(item);
            const auto now = std::chrono::steady_clock::now();
            if (now - lastFlush >= flushInterval) {
                m_writer->flush();
                lastFlush = now;
            }
        } catch (const CannotWrite& failure) {
            const std::lock_guard lock{m_mutex};
            m_failure = failure.what();
            return;
        }
        batch.clear();
    }
}

void Recorder::write(const Item& item)
{
    if (isDue(item)) {
        m_writer.reset();
        openNext();
        m_fileStartNs = 0;
    }
    if (m_fileStartNs == 0)
        m_fileStartNs = item.receivedNs;
    m_writer->write(item.bytes, item.receivedNs, item.origin);
}

bool Recorder::isDue(const Item& item) const
{
    if (m_fileStartNs == 0)
        return false; // every file holds something
    const bool bySize = m_rotation.bytes != 0 && m_writer->size() + item.bytes.size() > m_rotation.bytes;
    const bool byTime =
        m_rotation.seconds != 0 && item.receivedNs - m_fileStartNs >= m_rotation.seconds * 1'000'000'000;
    return bySize || byTime;
}

void Recorder::openNext()
{
    const std::string path = numberedPath(m_path, files().size());
    m_writer = std::make_unique<CaptureWriter>(path);
    m_writer->flush();
    const std::lock_guard lock{m_mutex};
    m_files.push_back(path);
}

} // namespace recording
