// SPDX-License-Identifier: MIT
#pragma once
// One channel of a bearing map.
#include "values/levels.h"
#include <QtGlobal>
#include <type_traits>

namespace values {

/// Level and direction of one channel.
/// Units: level and elevation ten times the raw ones (hundredths), azimuth hundredths of a degree clockwise
/// from north, quality 0 to 100.
struct Q_DECL_EXPORT Bearing {
    quint64 timeStamp = 0;  // of this channel, where it differs from its map's; 0: none
    qint16 level = noLevel; // without one the channel is cleared
    quint16 azimuth = 0;    // clockwise from north
    qint16 elevation = 0;   // above the horizon
    qint16 quality = 0;     // 0: no bearing
    bool operator==(const Bearing& other) const = default;
};

// Maps hold thousands of them, and whole traces are copied as plain memory.
static_assert(sizeof(Bearing) == 16 && std::is_trivially_copyable_v<Bearing>);

} // namespace values
