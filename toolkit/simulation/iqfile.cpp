// SPDX-License-Identifier: MIT
#include "toolkit/simulation/iqfile.h"
#include "toolkit/simulation/shallowjson.h"
#include "wire/view.h"
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <sstream>

namespace simulation {

namespace {

using Json = nlohmann::json;

constexpr double usablePart = 0.8; // of the sample rate: the rest lies in the slopes of the recorder's filter
constexpr int panoramaPoints = 801;
constexpr double mostSampleRate = 1e10;

[[noreturn]] void fail(const std::string& where, const std::string& expected, const std::string& found)
{
    throw BadScene{fmt::format("{}: expected {}, found {}", where, expected, found)};
}

std::string shown(const Json& json)
{
    return json.is_null() ? "nothing" : json.dump().substr(0, 40);
}

Json contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf()))
        throw BadScene{fmt::format("{}: expected a readable .sigmf-meta file, found: {}; check its name and "
                                   "permissions",
                                   path, std::strerror(errno))};
    Json json = Json::parse(text.str(), isShallow, false);
    if (!json.is_object() || !json.contains("global") || !json["global"].is_object())
        fail(path, "a JSON object with a \"global\" object in it", "something else");
    return json;
}

Json member(const Json& object, const char* name)
{
    const auto found = object.find(name);
    return found == object.end() ? Json{} : *found;
}

std::optional<double> frequencyIn(const Json& meta)
{
    const Json captures = member(meta, "captures");
    if (!captures.is_array() || captures.empty() || !captures[0].is_object())
        return std::nullopt;
    const Json frequency = member(captures[0], "core:frequency");
    return frequency.is_number() ? std::optional(frequency.get<double>()) : std::nullopt;
}

} // namespace

IqFile::IqFile(const std::string& path)
    : m_path(path)
{
    readMeta();
    openData();
}

void IqFile::readMeta()
{
    const Json meta = contentOf(m_path);
    const Json type = member(meta["global"], "core:datatype");
    if (type == "cu8")
        m_format = Format::Cu8;
    else if (type == "ci8")
        m_format = Format::Ci8;
    else if (type == "ci16_le")
        m_format = Format::Ci16;
    else if (type == "cf32_le")
        m_format = Format::Cf32;
    else
        fail(m_path + ": core:datatype", "cu8, ci8, ci16_le or cf32_le", shown(type));
    const Json rate = member(meta["global"], "core:sample_rate");
    if (!rate.is_number() || !(rate.get<double>() >= 1) || rate.get<double>() > mostSampleRate)
        fail(m_path + ": core:sample_rate", "a number of samples a second", shown(rate));
    m_sampleRate = rate.get<double>();
    m_centreHz = frequencyIn(meta);
}

void IqFile::openData()
{
    const std::filesystem::path data = std::filesystem::path(m_path).replace_extension(".sigmf-data");
    m_data.open(data, std::ios::binary);
    std::error_code unreadable;
    const std::uintmax_t size = std::filesystem::file_size(data, unreadable);
    if (!m_data || unreadable)
        throw BadScene{
            fmt::format("{}: cannot be read; the samples of a recording lie beside it", data.string())};
    m_samples = size / sampleSize();
}

std::size_t IqFile::sampleSize() const
{
    switch (m_format) {
    case Format::Cu8:
    case Format::Ci8:
        return 2;
    case Format::Ci16:
        return 4;
    case Format::Cf32:
        return 8;
    }
    return 2;
}

float IqFile::component(const unsigned char* at) const
{
    switch (m_format) {
    case Format::Cu8:
        return (static_cast<float>(*at) - 127.5F) / 127.5F;
    case Format::Ci8:
        return static_cast<float>(static_cast<signed char>(*at)) / 128.0F;
    case Format::Ci16:
        return static_cast<float>(wire::load<std::int16_t>(at, wire::ByteOrder::Little)) / 32768.0F;
    case Format::Cf32: {
        const float value = std::bit_cast<float>(wire::load<std::uint32_t>(at, wire::ByteOrder::Little));
        return std::isfinite(value) ? value : 0.0F;
    }
    }
    return 0;
}

const std::vector<Sample>& IqFile::read(std::uint64_t first, std::size_t count)
{
    const std::size_t size = sampleSize();
    const std::uint64_t there = first < m_samples ? m_samples - first : 0;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(there, count));
    m_bytes.resize(wanted * size);
    m_data.clear();
    m_data.seekg(static_cast<std::streamoff>(first * size));
    m_data.read(reinterpret_cast<char*>(m_bytes.data()), static_cast<std::streamsize>(m_bytes.size()));
    const std::size_t got = static_cast<std::size_t>(std::max<std::streamsize>(0, m_data.gcount())) / size;
    m_read.assign(count, Sample{});
    for (std::size_t i = 0; i < got; ++i) {
        const unsigned char* const at = m_bytes.data() + i * size;
        m_read[i] = {component(at), component(at + size / 2)};
    }
    return m_read;
}

void useRecording(Scene& scene, const std::string& path)
{
    const IqFile file{path};
    scene.iq = path;
    scene.onAir.clear();
    scene.centreHz = file.centreHz().value_or(scene.centreHz);
    if (scene.kind == SceneKind::Band) {
        scene.points = panoramaPoints;
        scene.spanHz = 2 * std::floor(file.sampleRate() * usablePart / 2);
    }
    if (scene.kind == SceneKind::ZeroSpan)
        scene.windowMs = 1000 / scene.rate; // one trace after another, without gaps
}

} // namespace simulation
