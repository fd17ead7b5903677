// SPDX-License-Identifier: MIT
#pragma once
// What the page's thread knows about the session besides its traces: immutable copies, made a few times a
// second.
#include "toolkit/ledger/ledger.h"
#include "toolkit/receiver/recordingsource.h"
#include "toolkit/receiver/session.h"
#include "toolkit/simulation/faults.h"
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pageserver {

/// What is fixed for a session.
struct About {
    std::string program{}; // "vk410 0.1.0"
    bool isDemo = false;
};

/// A value of the tree, as texts.
struct ValueText {
    std::string path;
    std::string type;
    std::string value;
    std::string unit;
    bool operator==(const ValueText&) const = default;
};

/// A range that the operator configured.
struct RangeText {
    unsigned id = 0;
    std::string list; // of suppress ranges: "local" or "global"
    double fromHz = 0;
    double toHz = 0;
    std::string name;
    bool isBlanked = false; // of blanking ranges: whether the receiver reports it
    bool operator==(const RangeText&) const = default;
};

struct Ranges {
    std::vector<RangeText> suppress;
    std::vector<RangeText> blanking;
    bool operator==(const Ranges&) const = default;
};

/// Faults that a simulation makes, and has made.
struct InjectedFaults {
    simulation::Faults probabilities;
    simulation::FaultCounts counts;
};

/// A recorder that keeps what is received.
struct RecorderState {
    std::string file;
    quint64 skipped = 0;
};

/// What the status message says.
struct StatusState {
    receiver::Status status;
    receiver::Source::Facts source;
    std::string state; // "live", "silent", "waiting", "replay", "paused" or "ended"
    double stepHz = 0;
    qint64 deviceNs = 0;
    qint64 receivedNs = 0;
    double tracesPerSecond = 0;
    ledger::Counters counters;
    std::vector<double> perSecond; // of each line of the ledger
    double bytesPerSecond = 0;
    std::string advice; // what would help, or empty
    std::optional<receiver::PlaybackState> playback;
    std::optional<InjectedFaults> faults;
    std::optional<RecorderState> recorder;
};

/// Everything of one moment.
struct SessionState {
    std::shared_ptr<const StatusState> status; // another one each second
    std::vector<ValueText> values;
    std::shared_ptr<const Ranges> ranges;
};

} // namespace pageserver
