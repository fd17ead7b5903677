// SPDX-License-Identifier: MIT
#include "nqbase/errorhandler.h"
#include "support/trace_capture.h"
#include <gmock/gmock.h>
#include <stdexcept>

using support::TraceCapture;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(ErrorHandler, WantsNoTraceAndNoAssertionAtStart)
{
    EXPECT_EQ(ErrorHandler::Instance()->GetTraceMask(), 0U);
    EXPECT_FALSE(ErrorHandler::Instance()->AssertionsEnabled());
}

TEST(ErrorHandler, SendsTracesToTheSinkOfTheApplication)
{
    TraceCapture traces;
    _Q_Trace(QStringLiteral("it went wrong"), "some/file", 42);
    EXPECT_THAT(traces.take(), ElementsAre("it went wrong (some/file:42)"));
}

TEST(ErrorHandler, WritesOneLineWithTimeToStderrByDefault)
{
    testing::internal::CaptureStderr();
    _Q_Trace(QStringLiteral("lost\n"), "some/file", 7);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                ContainsRegex("^[0-9-]+T[0-9:.]+Z lost \\(some/file:7\\)\n$"));
}

TEST(ErrorHandler, ReportsAFailingAssertionOnlyWhenAssertionsAreEnabled)
{
    TraceCapture traces;
    _Q_assert(false, "x != NULL", "some/file", 1);
    EXPECT_THAT(traces.take(), ElementsAre("assert x != NULL (some/file:1)"));
    ErrorHandler::Instance()->EnableAssertions(false);
    _Q_assert(false, "x != NULL", "some/file", 1);
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(ErrorHandler, IsSilentAboutAnAssertionThatHolds)
{
    TraceCapture traces;
    _Q_assert(true, "x != NULL", "some/file", 1);
    EXPECT_THAT(traces.take(), IsEmpty());
}

TEST(ErrorHandler, AnAssertionNeverThrowsEvenIfTheSinkDoes)
{
    const TraceCapture traces;
    ErrorHandler::Instance()->SetSink([](const TraceRecord&) { throw std::runtime_error("no disk"); });
    EXPECT_NO_THROW(_Q_assert(false, "x", "f", 1));
}

TEST(ErrorHandler, ASinkMayReplaceItself)
{
    const TraceCapture traces;
    int calls = 0;
    ErrorHandler::Instance()->SetSink([&calls](const TraceRecord&) {
        ++calls;
        ErrorHandler::Instance()->SetSink([&calls](const TraceRecord&) { calls += 10; });
    });
    _Q_Trace(QStringLiteral("one"), "f", 1);
    _Q_Trace(QStringLiteral("two"), "f", 1);
    EXPECT_EQ(calls, 11);
}

} // namespace
