// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/pageserver.h"
#include "toolkit/pageserver/pagehost.h"
#include <exception>
#include <fmt/format.h>

namespace pageserver {

PageServer::PageServer(receiver::Session& session, const Options& options, Surroundings surroundings)
    : m_address(options.address)
    , m_feed(std::make_unique<SessionFeed>(session, m_handover, std::move(surroundings), [this] {
        QMetaObject::invokeMethod(m_host, &PageHost::takeSoon, Qt::QueuedConnection);
    }))
{
    m_thread.setObjectName(QStringLiteral("page"));
    start(options);
}

PageServer::~PageServer()
{
    stop();
}

// Makes the host where it is to live, and waits for it to listen.
void PageServer::start(const Options& options)
{
    auto* const starter = new QObject;
    starter->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, starter, &QObject::deleteLater);
    m_thread.start();
    std::exception_ptr failure;
    const auto begin = [&] {
        try {
            PageFiles files = options.folder.isEmpty() ? PageFiles{} : PageFiles{options.folder};
            auto host = std::make_unique<PageHost>(
                options.about, m_handover, std::move(files),
                [this](quint64 viewer, const Command& command) { ask(viewer, command); });
            host->listen(options.address, options.port);
            m_port = host->port();
            QObject::connect(&m_thread, &QThread::finished, host.get(), &QObject::deleteLater);
            m_host = host.release();
        } catch (...) {
            failure = std::current_exception();
        }
    };
    QMetaObject::invokeMethod(starter, begin, Qt::BlockingQueuedConnection);
    if (!failure)
        return;
    stop();
    std::rethrow_exception(failure);
}

void PageServer::stop()
{
    m_thread.quit();
    m_thread.wait();
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
