// SPDX-License-Identifier: MIT
#pragma once
// Trace and assertion output of the application suite: what is written, and where to.
#include <QString>
#include <QtGlobal>
#include <atomic>
#include <functional>

/// One line for the trace output.
struct TraceRecord {
    /// Whether it was traced, or an assertion failed.
    enum class Kind { Trace, Assertion };
    Kind kind;

    /// What happened, and the source unit and line that say so.
    QString message;
    QString file;
    int line;
};

/// Bits of the trace mask.
namespace tracemask {
inline constexpr unsigned int error = 0x20;        // errors
inline constexpr unsigned int datagramLoss = 0x40; // the report about lost datagrams
} // namespace tracemask

/// Holds which traces are wanted, whether assertions speak, and where both go.
/// Thread: any.
class Q_DECL_EXPORT ErrorHandler {
public:
    /// Where records go.
    using Sink = std::function<void(const TraceRecord&)>;

    /// The one of this process; never null.
    static ErrorHandler* Instance();

    /// The kinds of trace that are wanted, one bit each; 0 at start.
    [[nodiscard]] unsigned int GetTraceMask() const { return m_traceMask.load(std::memory_order_relaxed); }
    void SetTraceMask(unsigned int mask) { m_traceMask.store(mask, std::memory_order_relaxed); }

    /// Whether failing assertions are reported; off at start.
    [[nodiscard]] bool AssertionsEnabled() const { return m_assertions.load(std::memory_order_relaxed); }
    void EnableAssertions(bool enable) { m_assertions.store(enable, std::memory_order_relaxed); }

    /// Sends all further records to `sink`; an empty one brings back the default, a line with time on stderr.
    /// Thread: the sink is called in the thread that traces, one call at a time.
    void SetSink(Sink sink);

    /// Hands `record` to the sink, whatever the mask says.
    void Write(const TraceRecord& record);

private:
    ErrorHandler() = default;

    std::atomic<unsigned int> m_traceMask{0};
    std::atomic<bool> m_assertions{false};
};

/// Writes one trace. The caller asks the mask of `ErrorHandler` first, so that unwanted texts are never
/// composed.
Q_DECL_EXPORT void _Q_Trace(const QString& message, const char* file, int line);

/// Reports that `expression` does not hold, when assertions are enabled; never throws, never aborts.
Q_DECL_EXPORT void _Q_assert(bool holds, const char* expression, const char* file, int line);
