// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/messages.h"
#include <cmath>

namespace pageserver::messages {

namespace {

// Nanoseconds since 1970 do not fit into the numbers of a browser.
std::string big(qint64 number)
{
    return std::to_string(number);
}

Json playback(const receiver::PlaybackState& state)
{
    Json json{{"paused", state.isPaused},
              {"ended", state.hasEnded},
              {"speed", state.speed},
              {"positionSeconds", state.positionSeconds}};
    json["durationSeconds"] = state.index ? Json(state.index->durationSeconds) : Json();
    json["startNs"] = state.index ? Json(big(state.index->startNs)) : Json();
    Json& losses = json["losses"] = Json::array();
    if (state.index) {
        for (const receiver::RecordingLoss& loss : state.index->losses)
            losses.push_back({loss.seconds, loss.datagrams});
    }
    return json;
}

Json faults(const InjectedFaults& injected)
{
    const simulation::Faults& set = injected.probabilities;
    const simulation::FaultCounts& made = injected.counts;
    Json json{{"drop", set.drop},       {"duplicate", set.duplicate}, {"reorder", set.reorder},
              {"corrupt", set.corrupt}, {"truncate", set.truncate},   {"stall", set.stall}};
    json["injected"] = Json{
        {"drop", made.drop},         {"duplicate", made.duplicate},
        {"reorder", made.reorder},   {"corrupt", made.corruptMagic + made.corruptSelector + made.corruptTag},
        {"truncate", made.truncate}, {"stall", made.stall}};
    return json;
}

Json line(const ledger::Line& line, const ledger::Counters& counters)
{
    return {{"name", line.name},
            {"metric", line.metric},
            {"total", counters.*line.counter},
            {"isLoss", line.isLoss},
            {"definition", line.definition}};
}

double perSecond(const StatusState& status, std::size_t line)
{
    return line < status.perSecond.size() ? std::round(status.perSecond[line] * 100) / 100 : 0.0;
}

Json range(const RangeText& range)
{
    return {{"id", range.id}, {"fromHz", range.fromHz}, {"toHz", range.toHz}, {"name", range.name}};
}

} // namespace

QByteArray bytes(const Json& message)
{
    return QByteArray::fromStdString(message.dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json hello(const About& about, const StatusState& status)
{
    return {{"type", "hello"},
            {"version", 1},
            {"program", about.program},
            {"demo", about.isDemo},
            {"recording", status.playback.has_value()},
            {"convention", "degrees clockwise from north"},
            {"source", status.status.source}};
}

Json status(const StatusState& status, const Streams& streams)
{
    Json json{{"type", "status"},
              {"source", status.status.source},
              {"state", status.state},
              {"stateText", status.status.state},
              {"centreHz", status.status.centreHz},
              {"spanHz", status.status.spanHz},
              {"channels", status.status.channels},
              {"stepHz", status.stepHz},
              {"tracesPerSecond", status.tracesPerSecond},
              {"datagramsPerSecond", perSecond(status, 0)}, // the ledger's first line
              {"bytesPerSecond", status.bytesPerSecond},
              {"dataTimeNs", big(status.deviceNs)},
              {"receivedNs", big(status.receivedNs)}};
    const double age = status.status.ageSeconds;
    json["ageMs"] = age < 0 ? Json() : Json(std::round(age * 1e3));
    json["buffer"] =
        Json{{"askedBytes", status.source.bufferAsked}, {"grantedBytes", status.source.bufferGranted}};
    json["advice"] = status.advice;
    Json& lines = json["ledger"] = ledgerLines(status)["ledger"];
    for (std::size_t i = 0; i < lines.size(); ++i)
        lines[i]["perSecond"] = perSecond(status, i);
    json["playback"] = status.playback ? playback(*status.playback) : Json();
    json["faults"] = status.faults ? faults(*status.faults) : Json();
    json["recorder"] = status.recorder
                           ? Json{{"file", status.recorder->file}, {"skipped", status.recorder->skipped}}
                           : Json();
    for (const Stream each : pageserver::streams)
        json["streams"][std::string(factsOf(each).name)] = streams.newest(each).number;
    return json;
}

Json values(const std::vector<ValueText>& values)
{
    Json list = Json::array();
    for (const ValueText& value : values)
        list.push_back(
            {{"path", value.path}, {"type", value.type}, {"value", value.value}, {"unit", value.unit}});
    return {{"type", "values"}, {"values", std::move(list)}};
}

Json ranges(const Ranges& ranges)
{
    Json suppress = Json::array();
    for (const RangeText& each : ranges.suppress) {
        suppress.push_back(range(each));
        suppress.back()["list"] = each.list;
    }
    Json blanking = Json::array();
    for (const RangeText& each : ranges.blanking) {
        blanking.push_back(range(each));
        blanking.back()["blanked"] = each.isBlanked;
    }
    return {{"type", "ranges"}, {"suppress", std::move(suppress)}, {"blanking", std::move(blanking)}};
}

Json emitters(const std::vector<Emitter>& emitters)
{
    Json list = Json::array();
    for (const Emitter& each : emitters)
        list.push_back({{"frequencyHz", each.frequencyHz},
                        {"azimuthDeg", each.azimuthDeg},
                        {"spreadDeg", each.spreadDeg},
                        {"quality", each.quality},
                        {"levelDb", each.levelDb},
                        {"ageMs", each.ageMs},
                        {"trendDegPerSecond", each.trendDegPerSecond}});
    return {{"type", "emitters"}, {"emitters", std::move(list)}};
}

Json error(const std::string& command, const std::string& text)
{
    return {{"type", "error"}, {"command", command}, {"text", text}};
}

Json ledgerLines(const StatusState& status)
{
    Json lines = Json::array();
    for (const ledger::Line& each : ledger::lines())
        lines.push_back(line(each, status.counters));
    return {{"ledger", std::move(lines)}};
}

Json grids(const Streams& streams)
{
    Json list = Json::array();
    for (const Stream each : pageserver::streams) {
        const values::ChannelRangeDefinition& grid = streams.grid(each);
        if (grid.empty())
            continue;
        const StreamFacts& facts = factsOf(each);
        // Zero-span grids count nanoseconds.
        const double unit = facts.isTime ? 1e-9 : 1.0;
        Json ranges = Json::array();
        for (const values::ChannelRange& range : grid.GetRanges())
            ranges.push_back({{"first", range.firstChannel},
                              {"count", range.count},
                              {facts.isTime ? "startSeconds" : "startHz", range.start * unit},
                              {facts.isTime ? "stepSeconds" : "stepHz", range.step * unit},
                              {"name", range.name.toStdString()}});
        list.push_back({{"stream", facts.name},
                        {"unit", facts.unit},
                        {"scale", facts.scale},
                        {"ranges", std::move(ranges)}});
    }
    return {{"grids", std::move(list)}};
}

} // namespace pageserver::messages
