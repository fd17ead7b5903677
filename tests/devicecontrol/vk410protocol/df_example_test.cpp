// SPDX-License-Identifier: MIT
// The example of docs/direction-finding.md; a test of the documents compares both.
#include "support/dfscan_receiver.h"
#include <gmock/gmock.h>

namespace {

TEST(DirectionFindingExample, BringsBlocksIntoTheMapAndBlanksThem)
{
    support::EffectLog log;
    support::DfReceiver rx{log};
    support::RecordingDfReceiver& receiver = rx.receiver;
    VK410Processor dispatcher{false};
    bool frequencyBlanked = false;

    // clang-format off
    // [example]
    MdpDFPScan processor{&receiver};                            // who gets the raw arrays; may be null
    processor.Init("/RX");                                      // path of the receiver in the value tree
    dispatcher.RegisterTagProcessor(&processor, TAG_5301, 0);

    auto range = std::make_shared<ScanRange>();
    range->startFrequency = 100'000'000;                        // Hz
    range->stopFrequency = 100'075'000;
    range->step = 25'000.0;
    range->jobId = 7;
    range->azimuthSectors = {{3000.0, 300.0}};                  // tenths of a degree, across north
    processor.SlotNewOrModifiedScanRanges({range});             // the map's grid: four channels from 100 MHz on

    QObject::connect(&processor, &MdpDFPScan::SignalFrequencyBlanking, [&] { frequencyBlanked = true; });
    FreqStore::Instance()->GetLocalSuppressRange()->AddRange(100e6, 100e6);
    // [example]
    // clang-format on

    rx.blankingRanges->AddRange(100'075'000, 100'075'000);
    support::DfTrace trace;
    trace.azimuth = {900, 1800, 3100, 2700};
    trace.flags = support::dfflag::valid | support::dfflag::blanking;
    dispatcher.ProcessDatagram(new UdpDatagram{support::received(trace.bytes())});
    EXPECT_EQ(rx.validities(), "2122");
    EXPECT_TRUE(frequencyBlanked);
    EXPECT_EQ(receiver.range.azimuthSectors.size(), 2U);
}

} // namespace
