// SPDX-License-Identifier: MIT
#pragma once
// From the raw fields of a direction-finding trace to the samples of a direction-finding spectrum map: the
// loops over channels, of all processors.
#include "values/dfspectrumsample.h"
#include <QtGlobal>
#include <optional>
#include <span>
#include <utility>
#include <vector>

struct SuperResolutionArrays;

namespace dfsamples {

using Sample = values::DFSpectrumSample;

/// The raw 16-bit number that stands for "no value was measured".
inline constexpr qint16 noValue = 32766;

/// The fields of a trace, one item per channel, in host order. Null: the trace does not carry the field.
/// Addresses need not be aligned.
struct RawFields {
    const short* azimuth = nullptr; // tenths of a degree
    const short* quality = nullptr;
    const short* fieldStrength = nullptr;
    const short* level = nullptr;
    const short* shortTimeLevel = nullptr; // also the level where there is no other
    const short* elevation = nullptr;

    /// The fields from item `index` on.
    [[nodiscard]] RawFields from(std::size_t index) const noexcept;
};

/// Writes the plain part of all `samples`, which are as many as each field has items: quality a tenth of the
/// raw one, everything else ten times, in 16 bits that wrap round. Quality, azimuth and elevation of no value
/// are 0. Fields that the trace does not carry have their defaults. Super-resolution data is left alone.
void convert(const RawFields& raw, Sample::Validity validity, std::span<Sample> samples) noexcept;

/// As `convert`, with what every machine has; so that tests reach it on any machine.
void convertNarrow(const RawFields& raw, Sample::Validity validity, std::span<Sample> samples) noexcept;

/// Blanks the samples whose raw azimuth lies in one of the sectors (lower, upper), both included; a sector
/// whose bounds are equal is empty. A blanked sample has neither azimuth nor quality; its level stays.
void blankSectors(const short* azimuth, std::span<const std::pair<double, double>> sectors,
                  std::span<Sample> samples) noexcept;

/// Gives all samples the waves of `arrays`, in the units of `convert`. The first wave of a channel loses its
/// quality, also in `arrays`, where that is below `qualityThreshold`, which is a raw number.
void setSuperResolution(const SuperResolutionArrays& arrays, std::optional<int> qualityThreshold,
                        std::span<Sample> samples);

/// Takes the super-resolution data from all samples.
void discardSuperResolution(std::span<Sample> samples) noexcept;

/// Writes 0 over the items that stand for no value.
void replaceNoValues(short* items, std::size_t count) noexcept;

} // namespace dfsamples
