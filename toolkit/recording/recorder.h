// SPDX-License-Identifier: MIT
#pragma once
// Writes recordings from a thread of its own, so that a slow disk never holds up reception.
#include "toolkit/recording/capturewriter.h"
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace recording {

/// When a recording goes on in the next file; 0: never.
struct Rotation {
    std::uint64_t bytes = 0;
    std::int64_t seconds = 0;
};

/// Takes datagrams without waiting and writes them in order. Where the disk falls behind, what comes is
/// skipped and counted; what was taken is written. With rotation the files are called a.pcap, a-0001.pcap,
/// a-0002.pcap, ... Thread: `take` and the counters from any one thread; the file belongs to the recorder's.
/// Errors: CannotWrite from the constructor; later ones end the recording and are told by `failure`.
class Recorder {
public:
    Recorder(std::string path, const Rotation& rotation);
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    /// Writes what was taken, then closes.
    ~Recorder();

    void take(const unsigned char* bytes, std::size_t size, std::int64_t receivedNs, const Origin& origin);

    [[nodiscard]] std::uint64_t taken() const { return m_taken; }
    [[nodiscard]] std::uint64_t skipped() const { return m_skipped; }
    [[nodiscard]] std::uint64_t bytesTaken() const { return m_bytesTaken; }

    /// Why the recording ended early, if it did.
    [[nodiscard]] std::optional<std::string> failure() const;

    /// Files so far, in order.
    [[nodiscard]] std::vector<std::string> files() const;

private:
    struct Item {
        std::vector<unsigned char> bytes;
        std::int64_t receivedNs;
        Origin origin;
    };

    void run();
    void write(const Item& item);
    void openNext();
    [[nodiscard]] bool isDue(const Item& item) const;

    std::string m_path;
    Rotation m_rotation;
    std::unique_ptr<CaptureWriter> m_writer; // the thread's
    std::int64_t m_fileStartNs = 0;          // the thread's

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Item> m_queue;
    std::size_t m_queuedBytes = 0;
    bool m_stop = false;
    std::optional<std::string> m_failure;
    std::vector<std::string> m_files;

    std::uint64_t m_taken = 0; // these three: of who calls `take`
    std::uint64_t m_skipped = 0;
    std::uint64_t m_bytesTaken = 0;
    std::thread m_thread;
};

} // namespace recording
