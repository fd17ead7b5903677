// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/commands.h"
#include "toolkit/pageserver/holds.h"
#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace pageserver {

namespace {

using Json = nlohmann::json;

constexpr std::size_t longestName = 200;
constexpr double highestFrequencyHz = 1e12;
constexpr double longestSeconds = 1e9;
constexpr std::array<std::string_view, 6> faultNames{"drop",    "duplicate", "reorder",
                                                     "corrupt", "truncate",  "stall"};

struct Limits {
    double lowest;
    double highest;
};

// What was found, in a few words.
std::string shown(const Json& value)
{
    // Not taken apart: lists within lists would take the stack.
    if (value.is_structured())
        return value.is_array() ? "a list" : "an object";
    constexpr std::size_t mostShown = 40;
    const std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
    return text.size() <= mostShown ? text : text.substr(0, mostShown) + "...";
}

// The object of one command, which knows the command's name for its errors.
class Members {
public:
    Members(const Json& object, std::string command)
        : m_object(object)
        , m_command(std::move(command))
    {}

    [[noreturn]] void fail(const char* name, const std::string& expected) const
    {
        const auto member = m_object.find(name);
        const std::string found = member == m_object.end() ? "nothing" : shown(*member);
        throw BadCommand{m_command, fmt::format("{}: expected {}, found {}", name, expected, found)};
    }

    [[nodiscard]] bool has(const char* name) const { return m_object.contains(name); }

    [[nodiscard]] double number(const char* name, const Limits& limits) const
    {
        const auto member = m_object.find(name);
        const bool fits = member != m_object.end() && member->is_number() &&
                          member->get<double>() >= limits.lowest && member->get<double>() <= limits.highest;
        if (!fits)
            fail(name, fmt::format("a number from {:g} to {:g}", limits.lowest, limits.highest));
        return member->get<double>();
    }

    [[nodiscard]] unsigned whole(const char* name, unsigned lowest, unsigned highest) const
    {
        const auto member = m_object.find(name);
        const bool fits = member != m_object.end() && member->is_number_integer() &&
                          member->get<double>() >= lowest && member->get<double>() <= highest;
        if (!fits)
            fail(name, fmt::format("a whole number from {} to {}", lowest, highest));
        return member->get<unsigned>();
    }

    [[nodiscard]] std::string text(const char* name) const
    {
        if (!has(name))
            return {};
        const Json& member = m_object.at(name);
        if (!member.is_string() || member.get_ref<const std::string&>().size() > longestName)
            fail(name, fmt::format("a text of at most {} bytes", longestName));
        return member.get<std::string>();
    }

    // Which of `choices` the text `name` is.
    template <std::size_t N>
    [[nodiscard]] std::size_t choice(const char* name, const std::array<std::string_view, N>& choices) const
    {
        const auto member = m_object.find(name);
        if (member == m_object.end())
            fail(name, oneOf(choices));
        return index(name, *member, choices);
    }

    // Which of `choices` are in the list `name`, one bit each.
    template <std::size_t N>
    [[nodiscard]] unsigned choices(const char* name, const std::array<std::string_view, N>& choices) const
    {
        const Json& list = m_object.at(name);
        if (!list.is_array())
            fail(name, "a list");
        unsigned bits = 0;
        for (const Json& entry : list)
            bits |= 1U << index(name, entry, choices);
        return bits;
    }

private:
    template <std::size_t N>
    static std::string oneOf(const std::array<std::string_view, N>& choices)
    {
        return fmt::format("one of {}", fmt::join(choices, ", "));
    }

    template <std::size_t N>
    [[nodiscard]] std::size_t index(const char* name, const Json& value,
                                    const std::array<std::string_view, N>& choices) const
    {
        const auto found =
            std::ranges::find_if(choices, [&](std::string_view each) { return value == each; });
        if (found == choices.end())
            fail(name, oneOf(choices));
        return static_cast<std::size_t>(found - choices.begin());
    }

    const Json& m_object;
    std::string m_command;
};

RangeKind kindOf(const Members& members)
{
    static constexpr std::array<std::string_view, 2> kinds{"suppress", "blanking"};
    return members.choice("kind", kinds) == 0 ? RangeKind::Suppress : RangeKind::Blanking;
}

Command subscribe(const Members& members)
{
    static constexpr std::array<std::string_view, 3> streamNames{"panorama", "zerospan", "df"};
    static constexpr std::array<std::string_view, 5> arrayNames{"live", "max", "min", "average", "hold"};
    Subscribe wish;
    if (members.has("streams")) {
        const unsigned bits = members.choices("streams", streamNames);
        const auto wants = [bits](unsigned bit) { return (bits >> bit & 1U) != 0; };
        wish.streams = {false, wants(0), wants(1), wants(1), wants(2)};
    }
    if (members.has("arrays"))
        wish.arrays = static_cast<std::uint16_t>(members.choices("arrays", arrayNames));
    if (members.has("maxPerSecond"))
        wish.maxPerSecond = members.number("maxPerSecond", {0.1, 200});
    return wish;
}

Command resetHolds(const Members& /*members*/)
{
    return ResetHolds{};
}

Command average(const Members& members)
{
    return SetAverage{members.whole("count", 1, Holds::mostAveraged)};
}

Command addRange(const Members& members)
{
    AddRange range{kindOf(members), members.number("fromHz", {0, highestFrequencyHz}),
                   members.number("toHz", {0, highestFrequencyHz}), members.text("name")};
    if (range.toHz < range.fromHz)
        members.fail("toHz", "at least fromHz");
    return range;
}

Command removeRange(const Members& members)
{
    return RemoveRange{kindOf(members), members.whole("id", 0, 0x7FFFFFFF)};
}

Command playback(const Members& members)
{
    using Action = ControlPlayback::Action;
    static constexpr std::array<std::string_view, 5> actions{"pause", "play", "step", "seek", "speed"};
    ControlPlayback control{static_cast<Action>(members.choice("action", actions))};
    if (control.action == Action::Seek)
        control.number = members.number("seconds", {0, longestSeconds});
    if (control.action == Action::Speed && members.number("speed", {0, 100}) != 0)
        control.number = members.number("speed", {0.1, 100});
    return control;
}

Command faults(const Members& members)
{
    SetFaults wish;
    for (const std::string_view name : faultNames) {
        if (members.has(name.data()))
            wish.probabilities.emplace_back(name, members.number(name.data(), {0, 1}));
    }
    if (wish.probabilities.empty())
        members.fail("drop", fmt::format("a probability for one of {}", fmt::join(faultNames, ", ")));
    return wish;
}

// The names of all commands, in the order of `Command`, and who reads each.
struct Kind {
    std::string_view name;
    Command (*read)(const Members&);
};
constexpr std::array<Kind, 7> kinds{{{"subscribe", subscribe},
                                     {"resetHolds", resetHolds},
                                     {"average", average},
                                     {"addRange", addRange},
                                     {"removeRange", removeRange},
                                     {"playback", playback},
                                     {"faults", faults}}};
static_assert(kinds.size() == std::variant_size_v<Command>);

} // namespace

std::string_view nameOf(const Command& command)
{
    return kinds[command.index()].name;
}

Command parseCommand(std::string_view text)
{
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object())
        throw BadCommand{"", R"(expected a JSON object like {"command":"resetHolds"})"};
    const auto member = json.find("command");
    const std::string name =
        member != json.end() && member->is_string() ? member->get<std::string>() : std::string{};
    const auto kind = std::ranges::find(kinds, name, &Kind::name);
    if (kind == kinds.end()) {
        std::array<std::string_view, kinds.size()> names;
        std::ranges::transform(kinds, names.begin(), &Kind::name);
        throw BadCommand{name.substr(0, longestName),
                         fmt::format("command: expected one of {}, found {}", fmt::join(names, ", "),
                                     member == json.end() ? "nothing" : shown(*member))};
    }
    return kind->read(Members{json, name});
}

} // namespace pageserver
