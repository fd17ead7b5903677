// SPDX-License-Identifier: MIT
#include "nqbase/errorhandler.h"
#include <QDateTime>
#include <cstdio>
#include <mutex>

namespace {

void writeToStderr(const TraceRecord& record)
{
    const QString time = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
    const QString line =
        QStringLiteral("%1 %2%3 (%4:%5)\n")
            .arg(time,
                 record.kind == TraceRecord::Kind::Assertion ? QStringLiteral("assertion failed: ")
                                                             : QString(),
                 record.message.trimmed(), record.file, QString::number(record.line));
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stderr);
}

struct SinkHolder {
    std::recursive_mutex mutex; // recursive: a sink may itself trace
    ErrorHandler::Sink sink = writeToStderr;
};

SinkHolder& sinkHolder()
{
    static SinkHolder holder;
    return holder;
}

} // namespace

ErrorHandler* ErrorHandler::Instance()
{
    static ErrorHandler handler;
    return &handler;
}

void ErrorHandler::SetSink(Sink sink)
{
    SinkHolder& holder = sinkHolder();
    const std::lock_guard lock{holder.mutex};
    holder.sink = sink ? std::move(sink) : Sink{writeToStderr};
}

void ErrorHandler::Write(const TraceRecord& record)
{
    SinkHolder& holder = sinkHolder();
    const std::lock_guard lock{holder.mutex};
    // A copy: the sink may replace itself while it runs.
    const Sink sink = holder.sink;
    sink(record);
}

void _Q_Trace(const QString& message, const char* file, int line)
{
    ErrorHandler::Instance()->Write({TraceRecord::Kind::Trace, message, QString::fromUtf8(file), line});
}

void _Q_assert(bool holds, const char* expression, const char* file, int line)
{
    if (holds || !ErrorHandler::Instance()->AssertionsEnabled())
        return;
    try {
        ErrorHandler::Instance()->Write(
            {TraceRecord::Kind::Assertion, QString::fromUtf8(expression), QString::fromUtf8(file), line});
    } catch (...) {
        // An assertion never throws, whatever the application's sink does.
        std::fputs("assertion output failed\n", stderr);
    }
}
