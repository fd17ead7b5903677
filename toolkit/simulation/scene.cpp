// SPDX-License-Identifier: MIT
#include "toolkit/simulation/scene.h"
#include "toolkit/simulation/demogenerator.h"
#include <cmath>
#include <fmt/format.h>

namespace simulation {

namespace {

using Type = Signal::Type;

// So that a trace fits into one UDP packet of at most 65,507 bytes.
constexpr int mostPoints = 32'000;
constexpr int mostTimePoints = 16'000;
constexpr int mostBlockChannels = 5'000;
constexpr std::size_t mostBlockBytes = 65'000;
constexpr double mostSpanHz = 2e9; // the wire has 31 bits for it

Signal carrier(std::string name, double frequencyHz, double levelDbuv)
{
    Signal signal;
    signal.name = std::move(name);
    signal.frequencyHz = frequencyHz;
    signal.levelDbuv = levelDbuv;
    return signal;
}

Signal fm(std::string name, double frequencyHz, double levelDbuv, double bandwidthHz)
{
    Signal signal = carrier(std::move(name), frequencyHz, levelDbuv);
    signal.type = Type::Fm;
    signal.bandwidthHz = bandwidthHz;
    return signal;
}

struct Keying {
    double periodMs;
    double durationMs;
};

Signal burst(std::string name, double frequencyHz, double levelDbuv, double bandwidthHz, Keying keying)
{
    Signal signal = fm(std::move(name), frequencyHz, levelDbuv, bandwidthHz);
    signal.type = Type::Burst;
    signal.periodMs = keying.periodMs;
    signal.durationMs = keying.durationMs;
    return signal;
}

Signal hopper(std::string name, double frequencyHz, double levelDbuv)
{
    Signal signal = fm(std::move(name), frequencyHz, levelDbuv, 25e3);
    signal.type = Type::Hopper;
    signal.channels = 24;
    signal.spacingHz = 75e3;
    signal.dwellMs = 50;
    return signal;
}

Signal heardFrom(Signal signal, double azimuthDeg, double elevationDeg = 0, double degPerSecond = 0)
{
    signal.azimuthDeg = azimuthDeg;
    signal.elevationDeg = elevationDeg;
    signal.azimuthDegPerSecond = degPerSecond;
    return signal;
}

Scene band()
{
    Scene scene;
    scene.name = "band";
    scene.onAir = {carrier("carrier 1", 96.1e6, 42),
                   carrier("carrier 2", 103.975e6, 28),
                   fm("voice 1", 97.6e6, 36, 12.5e3),
                   fm("voice 2", 98.4e6, 24, 12.5e3),
                   fm("broadcast", 101.3e6, 58, 150e3),
                   burst("telemetry", 99.5e6, 34, 40e3, {400, 60}),
                   burst("pager", 104.4e6, 45, 15e3, {2'000, 350}),
                   hopper("hopper", 101.9e6, 38)};
    return scene;
}

Scene zeroSpan()
{
    Scene scene;
    scene.name = "zerospan";
    scene.kind = SceneKind::ZeroSpan;
    scene.centreHz = 433.92e6;
    scene.points = 1001;
    scene.rate = 20;
    scene.onAir = {burst("remote control", 433.92e6, 45, 8e3, {6, 2.4}),
                   burst("sensor", 433.92e6, 25, 4e3, {50, 9})};
    return scene;
}

Scene directionFinding()
{
    Scene scene;
    scene.name = "df";
    scene.kind = SceneKind::Df;
    scene.centreHz = 150e6;
    scene.points = 401;
    scene.rate = 40;
    scene.jobs = {{1, 145e6, 155e6, 12.5e3, 1}, {2, 430e6, 440e6, 25e3, 2}};
    // Two that move and cross.
    scene.onAir = {heardFrom(fm("repeater", 145.6e6, 48, 12.5e3), 62.5, 4),
                   heardFrom(fm("mobile 1", 147.25e6, 40, 12.5e3), 180, 0, 3),
                   heardFrom(fm("mobile 2", 152.5e6, 36, 12.5e3), 300, 0, -3),
                   heardFrom(carrier("beacon", 154.0e6, 30), 351.2, 12.5),
                   heardFrom(burst("remote control", 433.92e6, 42, 50e3, {700, 250}), 118.4),
                   heardFrom(carrier("link", 438.2e6, 55), 241, -1.5)};
    return scene;
}

// One of everything that a visitor should see, panorama and direction finder on the same frequencies.
Scene everything()
{
    Scene scene;
    scene.name = "demo";
    scene.kind = SceneKind::Demo;
    scene.rate = 120; // 60 panoramas, 40 blocks of direction finding, 20 zero spans
    scene.jobs = {{1, 95e6, 105e6, 12.5e3, 1}};
    scene.bandwidthHz = 50e3;
    scene.onAir = {heardFrom(burst("data link", 98.9e6, 44, 30e3, {6, 2.4}), 118.4),
                   heardFrom(carrier("beacon", 96.1e6, 42), 62.5, 12.5),
                   heardFrom(fm("mobile 1", 97.6e6, 40, 12.5e3), 180, 0, 3),
                   heardFrom(fm("mobile 2", 103.3e6, 38, 12.5e3), 300, 0, -3),
                   heardFrom(fm("broadcast", 101.3e6, 58, 150e3), 241, 2),
                   heardFrom(burst("telemetry", 99.5e6, 34, 40e3, {400, 60}), 15),
                   heardFrom(burst("pager", 104.4e6, 45, 15e3, {2'000, 350}), 351.2),
                   heardFrom(hopper("hopper", 101.6e6, 38), 205)};
    return scene;
}

// What can be told of two numbers that must agree.
void expect(bool holds, const Scene& scene, const char* field, const std::string& expected, double found)
{
    if (!holds)
        throw BadScene{fmt::format("{}: {}: expected {}, found {:g}", scene.name, field, expected, found)};
}

void checkPanorama(const Scene& scene)
{
    expect(scene.points <= mostPoints, scene, "points", fmt::format("2 to {}", mostPoints), scene.points);
    expect(scene.spanHz >= 2 && scene.spanHz <= mostSpanHz, scene, "spanHz", "2 to 2e9", scene.spanHz);
    // The receiver's span is whole, and half of it too: an odd hertz would move the grid with every trace.
    expect(std::fmod(scene.spanHz, 2) == 0, scene, "spanHz", "an even number of hertz", scene.spanHz);
    expect(scene.centreHz >= scene.spanHz / 2, scene, "centreHz", "at least half of the span",
           scene.centreHz);
}

void checkJob(const Scene& scene, const Job& job)
{
    expect(job.stepHz > 0, scene, "jobs.stepHz", "more than 0", job.stepHz);
    // Step and span of a block have 31 bits on the wire, the step in thousandths of a hertz.
    expect(job.stepHz <= 2e6, scene, "jobs.stepHz", "at most 2e6", job.stepHz);
    expect(job.stepHz * scene.points <= mostSpanHz, scene, "points",
           fmt::format("at most {:.0f} with this step", mostSpanHz / job.stepHz), scene.points);
    expect(job.stopHz > job.startHz, scene, "jobs.stopHz", "more than startHz", job.stopHz);
    expect((job.stopHz - job.startHz) / job.stepHz <= 1e6, scene, "jobs.stepHz", "at most a million channels",
           job.stepHz);
}

void checkDirectionFinding(const Scene& scene)
{
    if (!scene.iq.empty())
        throw BadScene{
            fmt::format("{}: iq: expected in a scene of kind band or zerospan, found in df", scene.name)};
    expect(!scene.jobs.empty(), scene, "jobs", "at least one job", 0);
    expect(scene.points <= mostBlockChannels, scene, "points", fmt::format("2 to {}", mostBlockChannels),
           scene.points);
    // So that a block fits into one UDP packet.
    const auto most = static_cast<int>(mostBlockBytes / bytesPerDfChannel(scene.superResolution));
    expect(scene.points <= most, scene, "points",
           fmt::format("at most {} with {} bearings a channel", most, scene.superResolution), scene.points);
    for (const Job& job : scene.jobs)
        checkJob(scene, job);
}

} // namespace

Scene builtinScene(std::string_view name)
{
    if (name == "demo")
        return everything();
    if (name == "band")
        return band();
    if (name == "zerospan")
        return zeroSpan();
    if (name == "df")
        return directionFinding();
    throw BadScene{fmt::format("expected demo, band, zerospan or df, found '{}'", name)};
}

Scene sceneNamed(const std::string& nameOrPath)
{
    if (nameOrPath == "demo" || nameOrPath == "band" || nameOrPath == "zerospan" || nameOrPath == "df")
        return builtinScene(nameOrPath);
    return loadScene(nameOrPath);
}

void checkScene(const Scene& scene)
{
    expect(scene.points >= 2, scene, "points", "at least 2", scene.points);
    expect(scene.rate >= 0.1 && scene.rate <= 1e6, scene, "rate", "0.1 to 1000000", scene.rate);
    expect(scene.centreHz >= 0 && scene.centreHz <= 1e12, scene, "centreHz", "0 to 1e12", scene.centreHz);
    switch (scene.kind) {
    case SceneKind::Band:
        return checkPanorama(scene);
    case SceneKind::ZeroSpan:
        expect(scene.points <= mostTimePoints, scene, "points", fmt::format("2 to {}", mostTimePoints),
               scene.points);
        return expect(scene.windowMs >= 0.001 && scene.windowMs <= 1e6, scene, "windowMs", "0.001 to 1e6",
                      scene.windowMs);
    case SceneKind::Df:
        return checkDirectionFinding(scene);
    case SceneKind::Demo:
        for (const SceneKind part : {SceneKind::Band, SceneKind::Df, SceneKind::ZeroSpan})
            checkScene(partOf(scene, part));
    }
}

} // namespace simulation
