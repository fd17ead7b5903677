// SPDX-License-Identifier: MIT
#pragma once
// The super-resolution arrays that follow the fields of a direction-finding trace.
#include "devicecontrol/vk410protocol/dfoptheader.h"
#include "devicecontrol/vk410protocol/udpdatagram.h"

/// Where the arrays lie. Null: the trace does not carry the array, or not all of it.
/// Shape:  channel by channel; addresses need not be aligned to their type.
/// Owner:  all point into the datagram.
struct SuperResolutionArrays {
    float* eigenValues = nullptr;
    short* level = nullptr;
    short* azimuth = nullptr;
    short* quality = nullptr;
    short* fieldStrength = nullptr;
    short* elevation = nullptr;
    int count = 0;           // waves per channel, never negative
    int eigenValueCount = 0; // per channel, never negative

    /// Finds the arrays of a trace behind its last field and turns them to host order, in place.
    /// Errors: an array that does not end before the attribute does is left out, with all behind it.
    static SuperResolutionArrays find(const DataPointers& data, const DfOptHeader& header);
};
