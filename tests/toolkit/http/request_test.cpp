// SPDX-License-Identifier: MIT
// Heads of requests, good and bad, whole and in pieces.
#include "toolkit/http/request.h"
#include <gmock/gmock.h>
#include <string>

namespace {

using http::Parsed;
using http::parseRequest;
using State = http::Parsed::State;
using testing::ElementsAre;
using testing::Pair;

const std::string good = "GET /js/main.mjs?v=1 HTTP/1.1\r\nHost: localhost:4410\r\nX-Empty:\r\n"
                         "Accept-Encoding: \t gzip, br \r\n\r\n";

TEST(Request, IsReadWithItsHeadersInOrderAndTheirNamesInLowerCase)
{
    const Parsed parsed = parseRequest(good + "what follows");

    ASSERT_EQ(parsed.state, State::Complete);
    EXPECT_EQ(parsed.size, good.size());
    EXPECT_EQ(parsed.request.method, "GET");
    EXPECT_EQ(parsed.request.path, "/js/main.mjs");
    EXPECT_EQ(parsed.request.query, "v=1");
    EXPECT_THAT(parsed.request.headers, ElementsAre(Pair("host", "localhost:4410"), Pair("x-empty", ""),
                                                    Pair("accept-encoding", "gzip, br")));
    EXPECT_EQ(parsed.request.header("host"), "localhost:4410");
    EXPECT_EQ(parsed.request.header("origin"), "");
}

TEST(Request, IsIncompleteForEveryPrefixOfAGoodOne)
{
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_EQ(parseRequest(good.substr(0, size)).state, State::Incomplete) << size;
}

TEST(Request, IsNotDecoded)
{
    const Parsed parsed = parseRequest("GET /%2e%2e/etc/passwd HTTP/1.0\r\nHost: a\r\n\r\n");
    EXPECT_EQ(parsed.request.path, "/%2e%2e/etc/passwd");
}

TEST(Request, MayHaveAHeadOf8KiBAndNoMore)
{
    const std::string begin = "GET / HTTP/1.1\r\nHost: a\r\nX: ";
    const std::string end = "\r\n\r\n";
    const std::string fits = begin + std::string(8'192 - begin.size() - end.size(), 'x') + end;
    EXPECT_EQ(parseRequest(fits).state, State::Complete);
    EXPECT_EQ(parseRequest(begin + "x" + fits.substr(begin.size())).state, State::Bad);
    EXPECT_EQ(parseRequest(std::string(8'191, 'x')).state, State::Incomplete);
    EXPECT_EQ(parseRequest(std::string(8'192, 'x')).state, State::Bad);
}

TEST(Request, MayHave64HeadersAndNoMore)
{
    std::string head = "GET / HTTP/1.1\r\nHost: a\r\n";
    for (int i = 1; i < 64; ++i)
        head += "A: b\r\n";
    EXPECT_EQ(parseRequest(head + "\r\n").state, State::Complete);
    EXPECT_EQ(parseRequest(head + "A: b\r\n\r\n").state, State::Bad);
}

struct BadCase {
    const char* name;
    std::string head;
};
class BadRequest : public testing::TestWithParam<BadCase> {};

TEST_P(BadRequest, IsToldFromAGoodOne)
{
    EXPECT_EQ(parseRequest(GetParam().head).state, State::Bad);
}
INSTANTIATE_TEST_SUITE_P(
    Each, BadRequest,
    testing::Values(BadCase{"Empty", "\r\n\r\n"}, BadCase{"OnlyAMethod", "GET\r\nHost: a\r\n\r\n"},
                    BadCase{"NoVersion", "GET /\r\nHost: a\r\n\r\n"},
                    BadCase{"Version2", "GET / HTTP/2.0\r\nHost: a\r\n\r\n"},
                    BadCase{"RelativePath", "GET index.html HTTP/1.1\r\nHost: a\r\n\r\n"},
                    BadCase{"WholeUrl", "GET http://a/ HTTP/1.1\r\nHost: a\r\n\r\n"},
                    BadCase{"BlankInPath", "GET /a b HTTP/1.1\r\nHost: a\r\n\r\n"},
                    BadCase{"ControlInPath", std::string("GET /a\0b HTTP/1.1\r\nHost: a\r\n\r\n", 30)},
                    BadCase{"MethodWithoutSense", "G<T / HTTP/1.1\r\nHost: a\r\n\r\n"},
                    BadCase{"NoHost", "GET / HTTP/1.1\r\nAccept: a\r\n\r\n"},
                    BadCase{"TwoHosts", "GET / HTTP/1.1\r\nHost: a\r\nhost: a\r\n\r\n"},
                    BadCase{"TwoOrigins", "GET / HTTP/1.1\r\nHost: a\r\nOrigin: a\r\nOrigin: b\r\n\r\n"},
                    BadCase{"HeaderWithoutColon", "GET / HTTP/1.1\r\nHost: a\r\nAccept\r\n\r\n"},
                    BadCase{"BlankBeforeColon", "GET / HTTP/1.1\r\nHost : a\r\n\r\n"},
                    BadCase{"FoldedHeader", "GET / HTTP/1.1\r\nHost: a\r\n b\r\n\r\n"},
                    BadCase{"LineFeedInHeader", "GET / HTTP/1.1\r\nHost: a\nOrigin: b\r\n\r\n"},
                    BadCase{"TlsHandshake", std::string("\x16\x03\x01\x02\r\n\r\n", 8)}),
    [](const auto& each) { return each.param.name; });

} // namespace
