// SPDX-License-Identifier: MIT
// Scenes as JSON: every mistake is answered with its place, what was expected there and what was found.
#include "toolkit/simulation/iqfile.h"
#include "toolkit/simulation/scene.h"
#include "toolkit/simulation/shallowjson.h"
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <initializer_list>
#include <sstream>

namespace simulation {

namespace {

using Json = nlohmann::json;

struct Limits {
    double lowest;
    double highest;
};

template <typename E>
struct Choice {
    const char* name;
    E value;
};

constexpr std::array<Choice<SceneKind>, 3> kinds{
    {{"band", SceneKind::Band}, {"zerospan", SceneKind::ZeroSpan}, {"df", SceneKind::Df}}};
constexpr std::array<Choice<Signal::Type>, 4> types{{{"carrier", Signal::Type::Carrier},
                                                     {"fm", Signal::Type::Fm},
                                                     {"burst", Signal::Type::Burst},
                                                     {"hopper", Signal::Type::Hopper}}};

constexpr Limits frequencies{0, 1e12};
constexpr Limits levels{-100, 200};
constexpr Limits milliseconds{0.001, 1e7};
constexpr Limits probabilities{0, 1};

// What was found, in a few words.
std::string shown(const Json& value)
{
    constexpr std::size_t mostShown = 40;
    const std::string text = value.dump();
    return text.size() <= mostShown ? text : text.substr(0, mostShown) + "...";
}

// One object of the text. It knows its place, and which of its members were asked for.
class Members {
public:
    Members(const Json& object, std::string where)
        : m_object(object)
        , m_where(std::move(where))
    {
        if (!object.is_object())
            fail(m_where, "an object", shown(object));
    }

    [[noreturn]] static void fail(const std::string& where, const std::string& expected,
                                  const std::string& found)
    {
        throw BadScene{fmt::format("{}: expected {}, found {}", where, expected, found)};
    }

    [[nodiscard]] std::string place(const char* name) const { return fmt::format("{}: {}", m_where, name); }

    const Json* find(const char* name)
    {
        if (std::ranges::find(m_known, name) == m_known.end())
            m_known.emplace_back(name);
        const auto member = m_object.find(name);
        return member == m_object.end() ? nullptr : &*member;
    }

    const Json& need(const char* name, const char* expected)
    {
        const Json* const member = find(name);
        if (!member)
            fail(place(name), expected, "nothing");
        return *member;
    }

    void number(const char* name, double& to, const Limits& limits)
    {
        const Json* const member = find(name);
        if (!member)
            return;
        const bool fits = member->is_number() && member->get<double>() >= limits.lowest &&
                          member->get<double>() <= limits.highest;
        if (!fits)
            fail(place(name), fmt::format("a number from {:g} to {:g}", limits.lowest, limits.highest),
                 shown(*member));
        to = member->get<double>();
    }

    void whole(const char* name, int& to, int lowest, int highest)
    {
        const Json* const member = find(name);
        if (!member)
            return;
        const bool fits = member->is_number_integer() && member->get<double>() >= lowest &&
                          member->get<double>() <= highest;
        if (!fits)
            fail(place(name), fmt::format("a whole number from {} to {}", lowest, highest), shown(*member));
        to = member->get<int>();
    }

    void text(const char* name, std::string& to)
    {
        const Json* const member = find(name);
        if (!member)
            return;
        if (!member->is_string())
            fail(place(name), "a text", shown(*member));
        to = member->get<std::string>();
    }

    void flag(const char* name, bool& to)
    {
        const Json* const member = find(name);
        if (!member)
            return;
        if (!member->is_boolean())
            fail(place(name), "true or false", shown(*member));
        to = member->get<bool>();
    }

    template <typename E, std::size_t N>
    E choice(const char* name, const std::array<Choice<E>, N>& choices)
    {
        std::string expected = "one of";
        for (const Choice<E>& choice : choices)
            expected += fmt::format(" \"{}\"", choice.name);
        const Json& member = need(name, expected.c_str());
        for (const Choice<E>& choice : choices) {
            if (member == choice.name)
                return choice.value;
        }
        fail(place(name), expected, shown(member));
    }

    void needFrequency(const char* name, double& to)
    {
        (void)need(name, "a frequency in Hz");
        number(name, to, frequencies);
    }

    // A misspelt name would otherwise be a setting without effect.
    void nothingElse() const
    {
        for (const auto& member : m_object.items()) {
            if (std::ranges::find(m_known, member.key()) != m_known.end())
                continue;
            std::string expected = "one of";
            for (const std::string& name : m_known)
                expected += " " + name;
            fail(m_where, expected, fmt::format("\"{}\"", member.key()));
        }
    }

private:
    const Json& m_object;
    std::string m_where;
    std::vector<std::string> m_known;
};

Signal signalOf(const Json& json, const std::string& where)
{
    Members members{json, where};
    Signal signal;
    signal.type = members.choice("type", types);
    members.text("name", signal.name);
    members.needFrequency("frequencyHz", signal.frequencyHz);
    members.number("levelDbuv", signal.levelDbuv, levels);
    members.number("bandwidthHz", signal.bandwidthHz, {0, 1e9});
    members.number("azimuthDeg", signal.azimuthDeg, {0, 360});
    members.number("azimuthDegPerSecond", signal.azimuthDegPerSecond, {-360, 360});
    members.number("elevationDeg", signal.elevationDeg, {-90, 90});
    if (signal.type == Signal::Type::Burst) {
        members.number("periodMs", signal.periodMs, milliseconds);
        members.number("durationMs", signal.durationMs, milliseconds);
    }
    if (signal.type == Signal::Type::Hopper) {
        members.whole("channels", signal.channels, 1, 4096);
        members.number("spacingHz", signal.spacingHz, {1, 1e9});
        members.number("dwellMs", signal.dwellMs, milliseconds);
    }
    members.nothingElse();
    return signal;
}

Job jobOf(const Json& json, const std::string& where)
{
    Members members{json, where};
    Job job;
    members.whole("id", job.id, 0, 32'767);
    members.needFrequency("startHz", job.startHz);
    members.needFrequency("stopHz", job.stopHz);
    members.needFrequency("stepHz", job.stepHz);
    members.whole("method", job.method, 0, 7);
    members.nothingElse();
    return job;
}

template <typename T>
std::vector<T> listOf(Members& members, const char* name, const std::string& where,
                      T (*parse)(const Json&, const std::string&))
{
    std::vector<T> list;
    const Json* const json = members.find(name);
    if (!json)
        return list;
    if (!json->is_array())
        Members::fail(members.place(name), "a list", shown(*json));
    for (const Json& entry : *json)
        list.push_back(parse(entry, fmt::format("{}: {}[{}]", where, name, list.size())));
    return list;
}

Json parsed(const std::string& text, const std::string& where)
{
    try {
        return Json::parse(text, isShallow);
    } catch (const Json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 3, column 7: syntax error ..."
        // "[json.exception.out_of_range.406] number overflow parsing '1e999'"
        const std::string what = error.what();
        const std::size_t at = what.find("at line ");
        Members::fail(where, "JSON",
                      at == std::string::npos ? what.substr(what.find("] ") + 2)
                                              : "an error " + what.substr(at));
    }
}

// What a scene has where its text says nothing depends on its kind.
Scene defaultsOf(SceneKind kind)
{
    Scene scene = builtinScene(kind == SceneKind::Band ? "band" : kind == SceneKind::Df ? "df" : "zerospan");
    scene.onAir.clear();
    scene.jobs.clear();
    return scene;
}

// Comes first: what the scene says of centre, span and points goes before what the recording says.
void readIq(Members& members, Scene& scene, const std::string& folder)
{
    std::string path;
    members.text("iq", path);
    members.flag("iqLoop", scene.iqLoop);
    if (!path.empty())
        useRecording(scene, (std::filesystem::path(folder) / path).string());
}

} // namespace

Scene parseScene(const std::string& json, const std::string& where, const std::string& folder)
{
    const Json object = parsed(json, where);
    Members members{object, where};
    Scene scene = defaultsOf(members.choice("kind", kinds));
    scene.name = where;
    members.text("name", scene.name);
    readIq(members, scene, folder);
    members.number("centreHz", scene.centreHz, frequencies);
    members.number("spanHz", scene.spanHz, {2, 2e9});
    members.whole("points", scene.points, 2, 32'000);
    members.number("rate", scene.rate, {0.1, 1e6});
    members.number("noiseDbuvPerHz", scene.noiseDbuvPerHz, {-200, 100});
    members.number("windowMs", scene.windowMs, {0.001, 1e6});
    members.number("bandwidthHz", scene.bandwidthHz, {1, 1e9});
    members.number("qualityFloor", scene.qualityFloor, {0, 100});
    members.number("bearingErrorDeg", scene.bearingErrorDeg, {0, 180});
    members.number("blankingProbability", scene.blankingProbability, probabilities);
    members.number("overflowProbability", scene.overflowProbability, probabilities);
    members.whole("superResolution", scene.superResolution, 0, 8);
    scene.onAir = listOf<Signal>(members, "signals", where, signalOf);
    scene.jobs = listOf<Job>(members, "jobs", where, jobOf);
    members.nothingElse();
    checkScene(scene);
    return scene;
}

Scene loadScene(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf()))
        throw BadScene{
            fmt::format("{}: expected demo, band, zerospan, df or a scene file, found: {}; check its "
                        "name and permissions",
                        path, std::strerror(errno))};
    return parseScene(text.str(), path, std::filesystem::path(path).parent_path().string());
}

} // namespace simulation
