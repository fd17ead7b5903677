// SPDX-License-Identifier: MIT
#include "toolkit/inspection/optheadertext.h"
#include "wire/selectors.h"
#include <bit>
#include <fmt/format.h>

namespace inspection {
namespace {

template <typename T>
std::optional<std::string> integerText(const wire::NamedField& field, wire::View header,
                                       wire::ByteOrder order)
{
    const std::optional<T> number = header.get(wire::Field<T>{field.offset}, order);
    return number ? std::optional{std::to_string(*number)} : std::nullopt;
}

std::string flagsText(std::uint32_t flags)
{
    namespace flag = wire::dfscan::flag;
    const auto has = [flags](unsigned bit) { return (flags >> bit & 1U) != 0; };
    std::string text = has(flag::valid) ? ": valid" : ": not valid";
    if (has(flag::overflow))
        text += ", overflow";
    if (has(flag::blanking))
        text += ", blanking";
    if (has(flag::endOfSweep))
        text += ", end of sweep";
    if (has(flag::polarFrequency))
        text += ", polar frequency";
    return text + fmt::format(", method {}", flags >> flag::method & flag::methodMask);
}

} // namespace

wire::ByteOrder optHeaderOrder(std::uint32_t selectors)
{
    return (selectors & wire::selector::hostOrderFlag) != 0 ? wire::ByteOrder::Little : wire::ByteOrder::Big;
}

std::optional<std::string> numberText(const wire::NamedField& field, wire::View header, wire::ByteOrder order)
{
    switch (field.kind) {
    case wire::FieldKind::Signed8:
        return integerText<std::int8_t>(field, header, order);
    case wire::FieldKind::Signed16:
        return integerText<std::int16_t>(field, header, order);
    case wire::FieldKind::Signed32:
        return integerText<std::int32_t>(field, header, order);
    case wire::FieldKind::Signed64:
        return integerText<std::int64_t>(field, header, order);
    case wire::FieldKind::Float32:
        if (const auto bits = header.get(wire::Field<std::uint32_t>{field.offset}, order))
            return fmt::format("{}", std::bit_cast<float>(*bits));
        return std::nullopt;
    case wire::FieldKind::Bytes8:
        break;
    }
    return std::nullopt;
}

std::string meaningText(const wire::NamedField& field, wire::View header, wire::ByteOrder order)
{
    if (field.name != "dfFlags")
        return {};
    return flagsText(static_cast<std::uint32_t>(header.getOrZero(wire::dfscan::dfFlags, order)));
}

} // namespace inspection
