// SPDX-License-Identifier: MIT
#pragma once
// A live or recorded stream of datagrams.
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "devicecontrol/vk410protocol/scanrange.h"
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include "toolkit/receiver/sourcespec.h"
#include "toolkit/recording/origin.h"
#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace receiver {

/// A datagram on its way into the session.
struct Received {
    std::unique_ptr<UdpDatagram> datagram;
    std::int64_t receivedNs = 0; // since 1970, UTC
    recording::Origin origin;
};

/// Hands out datagrams while the event loop runs.
/// Thread: one, that of the event loop; nothing in it blocks.
class Source : public QObject {
    Q_OBJECT

public:
    using Sink = std::function<void(Received)>;

    /// What can be said about the way in.
    struct Facts {
        std::string name;          // "udp 0.0.0.0:5555"
        std::string state;         // "listening", "connected", "waiting 2 s for 192.0.2.7:5555", ...
        quint64 kernelDropped = 0; // UDP
        int bufferAsked = 0;       // UDP: bytes of the socket's buffer
        int bufferGranted = 0;
        quint64 fileBytes = 0; // recording: how long the file is
        quint64 fileBytesRead = 0;
        quint64 problems = 0;     // recording: what kept bytes of it from being handed out
        std::string firstProblem; // of those
        std::string advice;       // a command that helps, or empty
        std::string silence;      // what to look at when nothing arrives, with a command; empty: nothing
    };

    /// Begins; datagrams go to `sink` from the event loop.
    /// Errors: std::runtime_error with a text for people when the source cannot be used at all.
    virtual void start(Sink sink) = 0;

    [[nodiscard]] virtual Facts facts() const = 0;

    /// Whether what it reads is broken, so that not everything was handed out.
    [[nodiscard]] virtual bool failed() const { return false; }

    /// What a direction finder scans, where the source knows; the stream itself does not say. Else empty.
    [[nodiscard]] virtual ScanRangeContainer scanRanges() const { return {}; }

    /// Who is told about broken streams and cut mirror clients.
    virtual void setObserver(IMassDataObserver* /*observer*/) {}

    /// Whether `Received::origin` has to name who sent a datagram; true at first. Asking the system for it
    /// costs as much as a fifth of the reception of a small packet.
    virtual void setSendersWanted(bool /*areWanted*/) {}

    /// Mirrors the stream on `place`; TCP sources only.
    /// Errors: std::runtime_error.
    virtual void startMirror(const ListenSpec& place);

signals:
    /// Something changed that people want to know, in one line.
    void said(const QString& text);

    /// The stream began anew: the next sequence number follows none.
    void restarted();

    /// There is nothing more to come.
    void finished();
};

/// How a recording is played.
struct Playback {
    double rate = 1.0;        // times the speed of the recording; 0: as fast as possible
    bool loop = false;        // begins again at its end, for ever
    double fromSeconds = 0.0; // since the recording's first datagram: what comes before is skipped
    std::optional<double> untilSeconds = std::nullopt; // what comes from then on is left out
};

/// The source for `spec`.
/// Errors: BadSource for a kind that this build of the session does not know.
[[nodiscard]] std::unique_ptr<Source> makeSource(const SourceSpec& spec, const Playback& playback = {});

/// Nanoseconds since 1970, UTC.
[[nodiscard]] std::int64_t nowNs();

} // namespace receiver
