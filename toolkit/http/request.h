// SPDX-License-Identifier: MIT
#pragma once
// The head of an HTTP request, read from bytes that anybody may have sent.
// Free of sockets, so that tests and fuzzers can feed it any bytes in any pieces.
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace http {

/// A longer head is refused, whatever is in it.
inline constexpr std::size_t longestHead = 8'192;
/// Browsers send about 15.
inline constexpr std::size_t mostHeaders = 64;

struct Request {
    std::string method; // "GET"
    std::string path;   // without the query, as it was sent: nothing is decoded
    std::string query;
    std::vector<std::pair<std::string, std::string>> headers; // names in lower case

    /// The value of the header `name` (in lower case); empty when there is none.
    [[nodiscard]] std::string_view header(std::string_view name) const;
};

struct Parsed {
    enum class State { Incomplete, Bad, Complete };
    State state = State::Incomplete;
    Request request{};    // when complete
    std::size_t size = 0; // bytes of the head, when complete
};

/// Reads the head at the beginning of `bytes`: request line, headers, empty line, each with CR and LF.
/// Shape:  any bytes; what lies behind the head is not looked at.
/// Result: bad also for a head that is too long, names no host or two, or is of another version than 1.x.
[[nodiscard]] Parsed parseRequest(std::string_view bytes);

} // namespace http
