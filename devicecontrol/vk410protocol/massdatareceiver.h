// SPDX-License-Identifier: MIT
#pragma once
// The application's receiver of decoded direction-finding arrays.
#include "devicecontrol/vk410protocol/scanrange.h"
#include <QtGlobal>

/// Implemented by the application, called by the DF scan processor: once per accepted block.
/// Shape:  every array of the plain form holds `channelCount` values, in channel order; absent ones are null.
/// Units:  frequencies in Hz; `startFrequency` is that of the block's first channel; `timeStamp` is the
///         device stamp divided by 1000 and rounded; the arrays hold the receiver's raw values.
/// Owner:  arrays and scan range belong to the caller and live for the call only.
/// Thread: that of the dispatcher.
class Q_DECL_EXPORT IMassDataReceiver {
public:
    IMassDataReceiver() = default;
    IMassDataReceiver(const IMassDataReceiver&) = default;
    IMassDataReceiver& operator=(const IMassDataReceiver&) = default;
    virtual ~IMassDataReceiver();

    /// A block without super-resolution data. `reserved` is null.
    virtual void ReceiveDfScanData(double startFrequency, double step, double span, quint64 timeStamp,
                                   int channelCount, short* azimuth, short* quality, short* fieldStrength,
                                   short* level, short* shortTimeLevel, short* elevation, short* reserved,
                                   const ScanRange* scanRange) = 0;

    /// A block with super-resolution data.
    /// Shape: as above; besides, `eigenValues` holds `eigenValueCount` values per channel, and each `sr`
    ///        array `superResolutionCount`.
    virtual void ReceiveDfScanDataSuperResolution(
        double startFrequency, double step, double span, quint64 timeStamp, int channelCount, short* azimuth,
        short* quality, short* fieldStrength, short* level, short* shortTimeLevel, short* elevation,
        float* eigenValues, short* srLevel, short* srAzimuth, short* srQuality, short* srFieldStrength,
        short* srElevation, int superResolutionCount, int eigenValueCount, const ScanRange* scanRange) = 0;
};
