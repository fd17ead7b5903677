// SPDX-License-Identifier: MIT
// Any bytes as the head of an HTTP request: reading them ends, in bounds; every prefix of a good head is
// incomplete; and a head written from what was read is read as the same.
#include "toolkit/http/request.h"
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using State = http::Parsed::State;

void require(bool holds)
{
    if (!holds)
        std::abort();
}

std::string written(const http::Request& request)
{
    std::string head = request.method + " " + request.path;
    if (!request.query.empty())
        head += "?" + request.query;
    head += " HTTP/1.1\r\n";
    for (const auto& [name, value] : request.headers)
        head += name + ":" + value + "\r\n";
    return head + "\r\n";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const http::Parsed parsed = http::parseRequest(bytes);
    if (parsed.state != State::Complete)
        return 0;
    require(parsed.size <= size && parsed.size <= http::longestHead);
    require(parsed.request.headers.size() <= http::mostHeaders);
    for (std::size_t cut = 0; cut < parsed.size; cut += 1 + parsed.size / 64)
        require(http::parseRequest(std::string_view{bytes}.substr(0, cut)).state == State::Incomplete);
    const std::string again = written(parsed.request);
    const http::Parsed same = http::parseRequest(again);
    require(same.state == State::Complete && same.size == again.size());
    require(same.request.method == parsed.request.method && same.request.path == parsed.request.path);
    require(same.request.query == parsed.request.query && same.request.headers == parsed.request.headers);
    return 0;
}
