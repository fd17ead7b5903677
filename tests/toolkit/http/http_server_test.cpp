// SPDX-License-Identifier: MIT
// The server over real sockets: what it answers, and what it does to clients that misbehave.
#include "support/tcp_receiver.h"
#include "toolkit/http/server.h"
#include <gmock/gmock.h>
#include <memory>

namespace {

using support::waitUntil;
using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

class HttpServer : public testing::Test {
protected:
    void listen(const http::Limits& limits = {})
    {
        m_server = std::make_unique<http::Server>(
            [](const http::Request& request) {
                return http::Response{.body = QByteArray::fromStdString("it is " + request.path)};
            },
            limits);
        ASSERT_TRUE(m_server->listen(QHostAddress(QHostAddress::LocalHost), 0));
    }
    std::unique_ptr<QTcpSocket> connected()
    {
        auto socket = std::make_unique<QTcpSocket>();
        socket->connectToHost(QHostAddress::LocalHost, m_server->port());
        EXPECT_TRUE(waitUntil([&] { return socket->state() == QAbstractSocket::ConnectedState; }));
        return socket;
    }
    static bool isClosed(const QTcpSocket& socket)
    {
        return socket.state() == QAbstractSocket::UnconnectedState;
    }
    // All that comes back until the server closes.
    std::string answerTo(const std::string& request)
    {
        const std::unique_ptr<QTcpSocket> socket = connected();
        socket->write(request.data(), static_cast<qint64>(request.size()));
        EXPECT_TRUE(waitUntil([&] { return isClosed(*socket); }));
        return socket->readAll().toStdString();
    }
    std::string headed(const std::string& line, const std::string& headers = "")
    {
        return line + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(m_server->port()) + "\r\n" + headers +
               "\r\n";
    }
    std::unique_ptr<http::Server> m_server;
};

TEST_F(HttpServer, AnswersAndCloses)
{
    listen();
    EXPECT_EQ(answerTo(headed("GET /here?there")),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: 11\r\n"
              "Connection: close\r\n\r\nit is /here");
}

TEST_F(HttpServer, AnswersHeadWithoutABody)
{
    listen();
    EXPECT_EQ(answerTo(headed("HEAD /here")),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: 11\r\n"
              "Connection: close\r\n\r\n");
}

TEST_F(HttpServer, RefusesOtherMethodsAndSaysWhichItTakes)
{
    listen();
    for (const char* const method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE"}) {
        const std::string answer = answerTo(headed(std::string(method) + " /"));
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n")) << method;
        EXPECT_THAT(answer, HasSubstr("\r\nAllow: GET, HEAD\r\n"));
    }
}

TEST_F(HttpServer, RefusesWhatIsNoRequestAndHeadsThatAreTooLong)
{
    listen();
    EXPECT_THAT(answerTo("HELO mail\r\n\r\n"), StartsWith("HTTP/1.1 400 Bad Request\r\n"));
    EXPECT_THAT(answerTo("GET / HTTP/1.1\r\nHost: a\r\nX: " + std::string(9'000, 'x')),
                StartsWith("HTTP/1.1 400 Bad Request\r\n"));
}

TEST_F(HttpServer, TakesARequestInSinglePieces)
{
    listen();
    const std::unique_ptr<QTcpSocket> socket = connected();
    for (const char c : headed("GET /slow")) {
        socket->write(&c, 1);
        socket->flush();
        QCoreApplication::processEvents();
    }
    EXPECT_TRUE(waitUntil([&] { return isClosed(*socket); }));
    EXPECT_THAT(socket->readAll().toStdString(), HasSubstr("it is /slow"));
}

TEST_F(HttpServer, CutsClientsThatDoNotEndTheirHeadInTime)
{
    listen({.headWithin = 50ms});
    const std::unique_ptr<QTcpSocket> socket = connected();
    socket->write("GET / HTTP/1.1\r\n");
    EXPECT_TRUE(waitUntil([&] { return isClosed(*socket); }));
    EXPECT_EQ(socket->readAll().toStdString(), "");
    EXPECT_TRUE(waitUntil([&] { return m_server->connections() == 0; }));
}

TEST_F(HttpServer, CutsClientsThatDoNotReadTheirAnswerInTime)
{
    m_server = std::make_unique<http::Server>(
        [](const http::Request&) { return http::Response{.body = QByteArray(64 << 20, 'x')}; },
        http::Limits{.allWithin = 100ms});
    ASSERT_TRUE(m_server->listen(QHostAddress(QHostAddress::LocalHost), 0));
    const std::unique_ptr<QTcpSocket> socket = connected();
    socket->setReadBufferSize(1'024);
    const std::string request = headed("GET /");
    socket->write(request.data(), static_cast<qint64>(request.size()));
    EXPECT_TRUE(waitUntil([&] { return m_server->connections() == 1; }));
    EXPECT_TRUE(waitUntil([&] { return m_server->connections() == 0; }));
}

TEST_F(HttpServer, LetsConnectionsAboveItsLimitWaitForTheirTurn)
{
    listen({.connections = 3, .headWithin = 200ms});
    std::vector<std::unique_ptr<QTcpSocket>> idle;
    for (int i = 0; i < 20; ++i)
        idle.push_back(connected());
    EXPECT_TRUE(waitUntil([&] { return m_server->connections() == 3; }));
    EXPECT_THAT(answerTo(headed("GET /late")), HasSubstr("it is /late"));
    EXPECT_LE(m_server->connections(), 3);
}

TEST_F(HttpServer, GivesAConnectionAwayWithItsRequestUnread)
{
    listen();
    QTcpSocket* taken = nullptr;
    m_server->setTakeover([&](const http::Request& request, QTcpSocket& socket) {
        taken = request.path == "/stream" ? &socket : nullptr;
        return taken != nullptr;
    });
    EXPECT_THAT(answerTo(headed("GET /other")), HasSubstr("it is /other"));
    const std::unique_ptr<QTcpSocket> socket = connected();
    const std::string request = headed("GET /stream");
    socket->write(request.data(), static_cast<qint64>(request.size()));
    ASSERT_TRUE(waitUntil([&] { return taken != nullptr; }));
    EXPECT_EQ(taken->readAll().toStdString(), request);
    EXPECT_EQ(m_server->connections(), 0);
    EXPECT_FALSE(isClosed(*socket));
}

struct OriginCase {
    const char* name;
    const char* host;
    const char* origin;
    bool isGood;
};
class HttpServerOrigin : public HttpServer, public testing::WithParamInterface<OriginCase> {};

TEST_P(HttpServerOrigin, HasToBeThisServer)
{
    listen();
    const std::string origin =
        *GetParam().origin == 0 ? "" : "Origin: " + std::string(GetParam().origin) + "\r\n";
    const std::string answer =
        answerTo("GET / HTTP/1.1\r\nHost: " + std::string(GetParam().host) + "\r\n" + origin + "\r\n");
    EXPECT_THAT(answer, StartsWith(GetParam().isGood ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 403 Forbidden\r\n"));
}
INSTANTIATE_TEST_SUITE_P(
    Each, HttpServerOrigin,
    testing::Values(OriginCase{"Address", "127.0.0.1:4410", "", true},
                    OriginCase{"AddressWithoutPort", "127.0.0.1", "", true},
                    OriginCase{"Localhost", "localhost:4410", "", true},
                    OriginCase{"OtherCase", "LOCALHOST", "", true},
                    OriginCase{"AnotherName", "rebound.example:4410", "", false},
                    OriginCase{"NameThatBeginsAlike", "127.0.0.1.example", "", false},
                    OriginCase{"AnotherAddress", "192.0.2.7:4410", "", false},
                    OriginCase{"OpenBracket", "[::1", "", false}, OriginCase{"EmptyHost", "", "", false},
                    OriginCase{"SameOrigin", "localhost:4410", "http://localhost:4410", true},
                    OriginCase{"OriginOfAnotherPort", "localhost:4410", "http://localhost:8000", false},
                    OriginCase{"OriginOfAnotherHost", "localhost:4410", "http://example.com", false},
                    OriginCase{"OriginOfAnotherScheme", "localhost:4410", "https://localhost:4410", false},
                    OriginCase{"OriginNull", "localhost:4410", "null", false}),
    [](const auto& each) { return each.param.name; });

TEST_F(HttpServer, OverIpv6KnowsItsOwnAddress)
{
    http::Server server{[](const http::Request&) { return http::Response{}; }};
    if (!server.listen(QHostAddress(QHostAddress::LocalHostIPv6), 0))
        GTEST_SKIP() << "no IPv6 here";
    http::Request request;
    request.headers = {{"host", "[::1]:4410"}};
    EXPECT_TRUE(http::isForThisServer(request, QHostAddress("::1")));
    EXPECT_FALSE(http::isForThisServer(request, QHostAddress("127.0.0.1")));
}

TEST_F(HttpServer, TakesTheAddressOfAMappedConnectionForTheOneItMeans)
{
    http::Request request;
    request.headers = {{"host", "127.0.0.1:4410"}};
    EXPECT_TRUE(http::isForThisServer(request, QHostAddress("::ffff:127.0.0.1")));
}

} // namespace
