// SPDX-License-Identifier: MIT
#include "toolkit/http/request.h"
#include <algorithm>
#include <optional>

namespace http {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view headEnd = "\r\n\r\n";

bool isPrintable(char c)
{
    return c > ' ' && c < 0x7F;
}

// What names of methods and headers consist of.
bool isTokenCharacter(char c)
{
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           marks.find(c) != std::string_view::npos;
}

bool isToken(std::string_view text)
{
    return !text.empty() && std::ranges::all_of(text, isTokenCharacter);
}

// Header values may hold blanks, tabs and bytes above ASCII, and no control characters.
bool isHeaderValue(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte == '\t' || (byte >= ' ' && byte != 0x7F);
    });
}

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string lowered(std::string_view text)
{
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return lower;
}

// "GET /path?query HTTP/1.1"
bool readRequestLine(std::string_view line, Request& request)
{
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last)
        return false;
    const std::string_view method = line.substr(0, first);
    const std::string_view target = line.substr(first + 1, last - first - 1);
    const std::string_view version = line.substr(last + 1);
    const bool isGood = isToken(method) && target.starts_with('/') &&
                        std::ranges::all_of(target, isPrintable) &&
                        (version == "HTTP/1.1" || version == "HTTP/1.0");
    if (!isGood)
        return false;
    const std::size_t mark = target.find('?');
    request.method = method;
    request.path = target.substr(0, mark);
    request.query = mark == std::string_view::npos ? std::string_view{} : target.substr(mark + 1);
    return true;
}

bool readHeader(std::string_view line, Request& request)
{
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || request.headers.size() == mostHeaders)
        return false;
    const std::string_view name = line.substr(0, colon);
    const std::string_view value = trimmed(line.substr(colon + 1));
    if (!isToken(name) || !isHeaderValue(value))
        return false;
    request.headers.emplace_back(lowered(name), value);
    return true;
}

// Two hosts or origins would leave open which one was checked.
bool namesOneHost(const Request& request)
{
    const auto count = [&request](std::string_view name) {
        return std::ranges::count(request.headers, name, [](const auto& header) { return header.first; });
    };
    return count("host") == 1 && count("origin") <= 1;
}

std::optional<Request> readHead(std::string_view head)
{
    Request request;
    bool isFirst = true;
    while (!head.empty()) {
        const std::size_t end = head.find(lineEnd);
        const std::string_view line = head.substr(0, end);
        const bool isGood = isFirst ? readRequestLine(line, request) : readHeader(line, request);
        if (!isGood)
            return std::nullopt;
        isFirst = false;
        head.remove_prefix(line.size() + lineEnd.size());
    }
    if (isFirst || !namesOneHost(request))
        return std::nullopt;
    return request;
}

} // namespace

std::string_view Request::header(std::string_view name) const
{
    const auto found = std::ranges::find(headers, name, [](const auto& header) { return header.first; });
    return found == headers.end() ? std::string_view{} : std::string_view{found->second};
}

Parsed parseRequest(std::string_view bytes)
{
    const std::size_t end = bytes.substr(0, longestHead).find(headEnd);
    if (end == std::string_view::npos)
        return {bytes.size() < longestHead ? Parsed::State::Incomplete : Parsed::State::Bad};
    // With the end of its last line, so that every line has one.
    std::optional<Request> request = readHead(bytes.substr(0, end + lineEnd.size()));
    if (!request)
        return {Parsed::State::Bad};
    return {Parsed::State::Complete, std::move(*request), end + headEnd.size()};
}

} // namespace http
