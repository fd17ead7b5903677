// SPDX-License-Identifier: MIT
#pragma once
// The live page of a session, served from a thread of its own.
#include "toolkit/pageserver/sessionfeed.h"
#include "toolkit/pageserver/state.h"
#include <QHostAddress>
#include <QString>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <thread>

namespace pageserver {

class PageHost;

struct Options {
    About about;
    QHostAddress address{QHostAddress::LocalHost};
    std::uint16_t port = 0; // 0: a free one
    QString folder;         // of the page's files, while it is worked on; empty: those in the program
};

/// Serves from its construction to its destruction.
/// Owner:  the session is borrowed.
/// Thread: the session's; whatever waits for a viewer happens in the server's own.
class PageServer {
public:
    /// Errors: std::runtime_error when the place is taken.
    PageServer(receiver::Session& session, const Options& options, Surroundings surroundings);
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;
    ~PageServer();

    [[nodiscard]] std::uint16_t port() const { return m_port; }

    /// "http://127.0.0.1:4410"
    [[nodiscard]] std::string url() const;

private:
    void ask(quint64 viewer, const Command& command);
    void serve(const Options& options, std::promise<PageHost*>& started);

    QHostAddress m_address;
    std::uint16_t m_port = 0;
    Handover m_handover;
    std::unique_ptr<SessionFeed> m_feed;
    PageHost* m_host = nullptr; // lives and goes in the thread
    std::thread m_thread;       // of the standard library: thread checks see its beginning and end
};

} // namespace pageserver
