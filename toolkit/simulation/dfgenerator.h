// SPDX-License-Identifier: MIT
#pragma once
// Direction-finding panorama scans: blocks of channels, job by job, sweep by sweep.
#include "toolkit/simulation/bandgenerator.h"
#include "toolkit/simulation/generator.h"

namespace simulation {

/// Channels of a scan range, its both ends included.
[[nodiscard]] int channelCount(const Job& job);

/// Bytes that one channel takes in a block.
[[nodiscard]] std::size_t bytesPerDfChannel(int superResolution);

class DfGenerator : public Generator {
public:
    DfGenerator(const Scene& scene, std::uint64_t seed);

    Made make(const Interval& interval) override;

private:
    /// Some channels of a job that are sent together.
    struct Block {
        std::size_t job;
        int first;
        int count;
        bool endsSweep;
    };
    /// What is measured on one channel.
    struct Channel {
        double noisePower;    // linear
        double signalPower;   // of all signals
        double strongest = 0; // of one
        double azimuthDeg = 0;
        double elevationDeg = 0;
    };
    /// A channel as the wire has it.
    struct Values {
        std::int16_t level;
        std::int16_t shortTimeLevel;
        std::int16_t fieldStrength;
        std::int16_t azimuth;
        std::int16_t quality;
        std::int16_t elevation;
    };
    struct Fields;

    [[nodiscard]] std::vector<Channel> receive(const Block& block, const Interval& interval,
                                               std::vector<Seen>& seen);
    [[nodiscard]] Values measured(const Channel& channel, double frequencyHz);
    [[nodiscard]] wire::Bytes header(const Block& block, std::int64_t stampNs);
    [[nodiscard]] std::optional<double> qualityAt(double frequencyHz, const Block& block,
                                                  const std::vector<Values>& values) const;
    [[nodiscard]] std::int32_t flags(const Block& block);
    [[nodiscard]] wire::Bytes superResolution(const std::vector<Values>& values);

    Scene m_scene;
    std::uint64_t m_seed;
    Random m_random;
    std::vector<Block> m_blocks;     // of a sweep
    std::vector<double> m_floorDbuv; // per job
    std::vector<NoiseFloor> m_noise; // per job
    std::size_t m_next = 0;
};

} // namespace simulation
