// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/pageserver.h"
#include "toolkit/pageserver/pagehost.h"
#include <QEventLoop>
#include <exception>
#include <fmt/format.h>

namespace pageserver {

PageServer::PageServer(receiver::Session& session, const Options& options, Surroundings surroundings)
    : m_address(options.address)
    , m_feed(std::make_unique<SessionFeed>(session, m_handover, std::move(surroundings), [this] {
        QMetaObject::invokeMethod(m_host, &PageHost::takeSoon, Qt::QueuedConnection);
    }))
{
    std::promise<PageHost*> started;
    m_thread = std::thread([this, &options, &started] { serve(options, started); });
    try {
        m_host = started.get_future().get();
    } catch (...) {
        m_thread.join();
        throw;
    }
    m_port = m_host->port();
}

PageServer::~PageServer()
{
    QMetaObject::invokeMethod(m_host, &PageHost::stop, Qt::QueuedConnection);
    m_thread.join();
}

// The page's thread: what lives in it is made and goes in it.
void PageServer::serve(const Options& options, std::promise<PageHost*>& started)
{
    QEventLoop loop;
    std::unique_ptr<PageHost> host;
    try {
        host = std::make_unique<PageHost>(
            options.about, m_handover, options.folder.isEmpty() ? PageFiles{} : PageFiles{options.folder},
            [this](quint64 viewer, const Command& command) { ask(viewer, command); });
        host->listen(options.address, options.port);
    } catch (...) {
        return started.set_exception(std::current_exception());
    }
    QObject::connect(host.get(), &PageHost::stopped, &loop, &QEventLoop::quit);
    started.set_value(host.get()); // from here on, `started` and `options` may be gone
    loop.exec();
}

void PageServer::ask(quint64 viewer, const Command& command)
{
    const auto execute = [this, viewer, command] {
        const std::optional<std::string> problem = m_feed->execute(command);
        const auto tell = [this, viewer, name = std::string(nameOf(command)), problem] {
            m_host->answer(viewer, name, problem);
        };
        QMetaObject::invokeMethod(m_host, tell, Qt::QueuedConnection);
    };
    QMetaObject::invokeMethod(m_feed.get(), execute, Qt::QueuedConnection);
}

std::string PageServer::url() const
{
    const bool isAny = m_address == QHostAddress::Any || m_address == QHostAddress::AnyIPv4 ||
                       m_address == QHostAddress::AnyIPv6;
    const QString text = isAny ? QStringLiteral("127.0.0.1") : m_address.toString();
    const bool isV6 = text.contains(QLatin1Char(':'));
    return fmt::format("http://{}{}{}:{}", isV6 ? "[" : "", text.toStdString(), isV6 ? "]" : "", m_port);
}

} // namespace pageserver
