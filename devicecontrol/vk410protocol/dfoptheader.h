// SPDX-License-Identifier: MIT
#pragma once
// The optional header of a direction-finding scan, decoded once for all processors of such scans.
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include <QtGlobal>

/// What the processors read of the optional header, in host order.
struct DfOptHeader {
    qint64 startFrequencyHz = 0;
    qint32 firstChannel = 0; // of the trace, counted from the start frequency
    qint32 stepNumerator = 0;
    qint32 stepDenominator = 0;
    qint32 spanHz = 0;
    qint32 averagingTimeOffset = 0;
    quint32 dfFlags = 0;
    qint64 sweepTime = 0;
    quint64 deviceStamp = 0; // the bits as received: one processor takes them as signed, the other does not
    qint16 jobId = 0;
    qint16 superResolutionFields = 0;
    qint8 superResolutionCount = 0;
    qint8 eigenValueCount = 0;

    /// Decodes the optional header behind the header of an extended attribute.
    /// Shape:  any length; what is cut or missing reads as 0, what lies behind the known fields is ignored.
    static DfOptHeader read(const UdpDatagramExtAttribute& attribute, const unsigned char* optHeader);

    /// Whether bit `number` of the flags is set.
    [[nodiscard]] bool flag(unsigned number) const { return (dfFlags >> number & 1U) != 0; }

    /// Distance of the channels in Hz; infinite or not a number where the denominator is 0.
    [[nodiscard]] double stepHz() const;

    /// Frequency of the trace's first channel in Hz.
    [[nodiscard]] double firstFrequencyHz() const;
};
