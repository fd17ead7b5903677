// SPDX-License-Identifier: MIT
#pragma once
// What a simulated receiver receives, and how it is set.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace simulation {

/// A scene that cannot be used; says where, what was expected and what was found.
struct BadScene : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Something on the air.
struct Signal {
    enum class Type : std::uint8_t {
        Carrier, // steady
        Fm,      // speech: its width follows the syllables, pauses leave the carrier
        Burst,   // on for `durationMs` once every `periodMs`, at another moment each time
        Hopper,  // `channels` channels from `frequencyHz` up, another one every `dwellMs`
    };
    Type type = Type::Carrier;
    std::string name;
    double frequencyHz = 0;
    double levelDbuv = 40; // of the whole signal
    double bandwidthHz = 0;
    double periodMs = 1000;
    double durationMs = 100;
    int channels = 16;
    double spacingHz = 100e3;
    double dwellMs = 20;
    // Direction finding.
    double azimuthDeg = 0;          // clockwise from north, at the start
    double azimuthDegPerSecond = 0; // a transmitter that moves
    double elevationDeg = 0;
};

/// One scan range of a direction finder's job.
struct Job {
    int id = 0;
    double startHz = 0;
    double stopHz = 0;
    double stepHz = 0;
    int method = 0; // 0 to 7; 1 is Watson-Watt
};

/// What the receiver sends.
enum class SceneKind : std::uint8_t { Band, ZeroSpan, Df, Demo };

/// Everything that a simulation is made from; with a seed it decides every byte that is sent.
struct Scene {
    std::string name;
    SceneKind kind = SceneKind::Band;
    double centreHz = 100e6;
    double spanHz = 10e6;
    int points = 1601;
    double rate = 60;                                 // traces a second; direction finding: blocks a second
    double noiseDbuvPerHz = -47;                      // noise floor, in a bandwidth of 1 Hz
    std::int64_t startNs = 1'735'689'600'000'000'000; // receiver's clock at the start: 2025-01-01
    std::vector<Signal> onAir;

    // Zero span.
    double windowMs = 20;      // length of the time axis
    double bandwidthHz = 15e3; // of the receiver

    // Direction finding.
    std::vector<Job> jobs;
    double qualityFloor = 10;       // percent; below it a channel has no bearing
    double bearingErrorDeg = 0.5;   // of a strong signal; grows as it sinks into the noise
    double blankingProbability = 0; // of a block
    double overflowProbability = 0;
    int superResolution = 0; // bearings per channel in the super-resolution arrays; 0: none

    // Recorded I/Q in place of `onAir`.
    std::string iq;      // path of a .sigmf-meta file, or empty
    bool iqLoop = false; // begins anew at the recording's end

    /// Hz from one channel of a panorama to the next.
    [[nodiscard]] double stepHz() const { return spanHz / (points - 1); }
};

/// "demo", "band", "zerospan" or "df".
/// Errors: BadScene for another name.
[[nodiscard]] Scene builtinScene(std::string_view name);

/// The scene in a JSON file.
/// Errors: BadScene.
[[nodiscard]] Scene loadScene(const std::string& path);

/// The scene in a JSON text; `where` is what errors call it. A path of I/Q in it counts from `folder`.
/// Errors: BadScene.
[[nodiscard]] Scene parseScene(const std::string& json, const std::string& where,
                               const std::string& folder = {});

/// A built-in scene by its name, else the scene in the file of that path.
/// Errors: BadScene.
[[nodiscard]] Scene sceneNamed(const std::string& nameOrPath);

/// Errors: BadScene when the settings do not fit each other, or what they ask for cannot be sent.
void checkScene(const Scene& scene);

} // namespace simulation
