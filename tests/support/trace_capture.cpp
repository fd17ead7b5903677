// SPDX-License-Identifier: MIT
#include "support/trace_capture.h"
#include <utility>

namespace support {

TraceCapture::TraceCapture(unsigned int mask, EffectLog* log)
    : m_oldMask(ErrorHandler::Instance()->GetTraceMask())
    , m_oldAssertions(ErrorHandler::Instance()->AssertionsEnabled())
{
    ErrorHandler::Instance()->SetTraceMask(mask);
    ErrorHandler::Instance()->EnableAssertions(true);
    ErrorHandler::Instance()->SetSink([this, log](const TraceRecord& record) {
        m_records.push_back(record);
        if (log)
            log->add("trace " + text(record));
    });
}

TraceCapture::~TraceCapture()
{
    ErrorHandler::Instance()->SetSink({});
    ErrorHandler::Instance()->EnableAssertions(m_oldAssertions);
    ErrorHandler::Instance()->SetTraceMask(m_oldMask);
}

std::vector<std::string> TraceCapture::take()
{
    std::vector<std::string> texts;
    for (const TraceRecord& record : std::exchange(m_records, {}))
        texts.push_back(text(record));
    return texts;
}

std::string text(const TraceRecord& record)
{
    const QString kind = record.kind == TraceRecord::Kind::Assertion ? QStringLiteral("assert ") : QString();
    return QStringLiteral("%1%2 (%3:%4)")
        .arg(kind, record.message, record.file)
        .arg(record.line)
        .toStdString();
}

} // namespace support
