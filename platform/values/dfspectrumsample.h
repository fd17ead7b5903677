// SPDX-License-Identifier: MIT
#pragma once
// One channel of a direction-finding spectrum map.
#include "values/levels.h"
#include <QtGlobal>
#include <atomic>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace values {

/// Several waves that were resolved in one channel. Setters and getters of an index that is not there do
/// nothing and give 0.
class Q_DECL_EXPORT SuperResolutionSample {
public:
    /// `count` waves, emptied as by `reset`.
    explicit SuperResolutionSample(int count) { reset(count); }

    /// Number of waves.
    [[nodiscard]] int getCount() const { return m_count; }

    /// Makes room for `count` waves (below 0 counts as 0), all of them without level, the rest 0; memory is
    /// reused.
    void reset(int count)
    {
        m_count = count < 0 ? 0 : count;
        m_waves.assign(static_cast<std::size_t>(m_count), Wave{});
    }

    /// Sets one property of wave `i`.
    /// Units: those of `DFSpectrumSample`.
    void setQuality(int i, qint16 value) { set(i, &Wave::quality, value); }
    void setLevel(int i, qint16 value) { set(i, &Wave::level, value); }
    void setFieldStrength(int i, qint16 value) { set(i, &Wave::fieldStrength, value); }
    void setAzimuth(int i, quint16 value) { set(i, &Wave::azimuth, value); }
    void setElevation(int i, qint16 value) { set(i, &Wave::elevation, value); }

    /// One property of wave `i`.
    /// Units: those of `DFSpectrumSample`.
    [[nodiscard]] qint16 getQuality(int i) const { return get(i, &Wave::quality); }
    [[nodiscard]] qint16 getLevel(int i) const { return get(i, &Wave::level); }
    [[nodiscard]] qint16 getFieldStrength(int i) const { return get(i, &Wave::fieldStrength); }
    [[nodiscard]] quint16 getAzimuth(int i) const { return get(i, &Wave::azimuth); }
    [[nodiscard]] qint16 getElevation(int i) const { return get(i, &Wave::elevation); }

    bool operator==(const SuperResolutionSample& other) const = default;

    /// Whether there is any in this process: as long as there is none, no sample can own one.
    [[nodiscard]] static bool anyAlive() { return Alive::count.load(std::memory_order_relaxed) != 0; }

private:
    struct Alive {
        Alive() { count.fetch_add(1, std::memory_order_relaxed); }
        Alive(const Alive& /*other*/)
            : Alive()
        {}
        Alive& operator=(const Alive&) = default;
        ~Alive() { count.fetch_sub(1, std::memory_order_relaxed); }
        bool operator==(const Alive&) const = default;
        // Relaxed is enough: whoever sees a sample that owns one sees its own share of the count.
        inline static std::atomic<std::size_t> count{0};
    };
    struct Wave {
        qint16 quality = 0;
        qint16 level = noLevel;
        qint16 fieldStrength = noLevel;
        quint16 azimuth = 0;
        qint16 elevation = 0;
        bool operator==(const Wave& other) const = default;
    };

    template <typename T>
    void set(int i, T Wave::*field, T value)
    {
        if (i >= 0 && i < m_count)
            m_waves[static_cast<std::size_t>(i)].*field = value;
    }
    template <typename T>
    [[nodiscard]] T get(int i, T Wave::*field) const
    {
        return i >= 0 && i < m_count ? m_waves[static_cast<std::size_t>(i)].*field : T{};
    }

    Alive m_alive;
    int m_count = 0;
    std::vector<Wave> m_waves;
};

/// Direction and level of one channel.
/// Units: levels, field strength and elevation ten times the raw ones (hundredths), azimuth hundredths of a
/// degree clockwise from north, quality 0 to 100.
class Q_DECL_EXPORT DFSpectrumSample {
public:
    /// How far to trust a sample.
    enum class Validity : quint16 {
        Unusable = 0, // overflow, or nothing measured
        Valid = 1,
        Blanked = 2
    };

    /// The plain part, 16 bytes in this order, for those who write whole records at once.
    struct Fields {
        /// In the units of the sample; a record that nobody filled has no levels.
        Validity validity = Validity::Unusable;
        qint16 quality = 0;
        quint16 azimuth = 0;
        qint16 level = noLevel;
        qint16 shortTimeLevel = noLevel;
        qint16 fieldStrength = noLevel;
        qint16 elevation = 0;
        qint16 reserved = 0;
        bool operator==(const Fields& other) const = default;
    };

    /// A record that nobody filled; copies have super-resolution data of their own.
    DFSpectrumSample() = default;
    DFSpectrumSample(const DFSpectrumSample& other)
        : m_superResolution(other.m_superResolution
                                ? std::make_unique<SuperResolutionSample>(*other.m_superResolution)
                                : nullptr)
        , m_fields(other.m_fields)
    {}
    DFSpectrumSample(DFSpectrumSample&& other) noexcept = default;
    DFSpectrumSample& operator=(const DFSpectrumSample& other)
    {
        m_fields = other.m_fields;
        if (!other.m_superResolution)
            m_superResolution.reset();
        else if (m_superResolution)
            *m_superResolution = *other.m_superResolution; // reuses its memory
        else
            m_superResolution = std::make_unique<SuperResolutionSample>(*other.m_superResolution);
        return *this;
    }
    DFSpectrumSample& operator=(DFSpectrumSample&& other) noexcept = default;
    ~DFSpectrumSample() = default;

    /// Sets one value of the plain part.
    void setValidity(Validity value) { m_fields.validity = value; }
    void setQuality(qint16 value) { m_fields.quality = value; }
    void setAzimuth(quint16 value) { m_fields.azimuth = value; }
    void setLevel(qint16 value) { m_fields.level = value; }
    void setShortTimeLevel(qint16 value) { m_fields.shortTimeLevel = value; }
    void setFieldStrength(qint16 value) { m_fields.fieldStrength = value; }
    void setElevation(qint16 value) { m_fields.elevation = value; }

    /// One value of the plain part.
    [[nodiscard]] Validity getValidity() const { return m_fields.validity; }
    [[nodiscard]] qint16 getQuality() const { return m_fields.quality; }
    [[nodiscard]] quint16 getAzimuth() const { return m_fields.azimuth; }
    [[nodiscard]] qint16 getLevel() const { return m_fields.level; }
    [[nodiscard]] qint16 getShortTimeLevel() const { return m_fields.shortTimeLevel; }
    [[nodiscard]] qint16 getFieldStrength() const { return m_fields.fieldStrength; }
    [[nodiscard]] qint16 getElevation() const { return m_fields.elevation; }

    /// The plain part as a whole.
    [[nodiscard]] Fields& fields() { return m_fields; }
    [[nodiscard]] const Fields& fields() const { return m_fields; }

    /// Super-resolution data for `count` waves, emptied; the memory of earlier data is reused.
    /// Owner: this sample; the reference holds until the data is discarded or the sample assigned or gone.
    SuperResolutionSample& createSuperResolutionSample(int count)
    {
        if (m_superResolution)
            m_superResolution->reset(count);
        else
            m_superResolution = std::make_unique<SuperResolutionSample>(count);
        return *m_superResolution;
    }

    /// Frees the super-resolution data, if there is any.
    void discardSuperResolutionSample()
    {
        if (m_superResolution)
            m_superResolution.reset();
    }

    /// The super-resolution data, or null.
    [[nodiscard]] SuperResolutionSample* getSuperResolutionSample() { return m_superResolution.get(); }
    [[nodiscard]] const SuperResolutionSample* getSuperResolutionSample() const
    {
        return m_superResolution.get();
    }

    /// Whether all values are the same, those of super-resolution included.
    bool operator==(const DFSpectrumSample& other) const
    {
        if (m_fields != other.m_fields || !m_superResolution != !other.m_superResolution)
            return false;
        return !m_superResolution || *m_superResolution == *other.m_superResolution;
    }

private:
    std::unique_ptr<SuperResolutionSample> m_superResolution;
    Fields m_fields;
};

// Records without super-resolution data are moved about as plain memory.
static_assert(sizeof(DFSpectrumSample::Fields) == 16);
static_assert(std::is_trivially_copyable_v<DFSpectrumSample::Fields>);
static_assert(sizeof(DFSpectrumSample) == 24);

} // namespace values
