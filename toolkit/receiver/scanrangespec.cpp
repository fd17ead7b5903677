// SPDX-License-Identifier: MIT
#include "toolkit/receiver/scanrangespec.h"
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <set>
#include <string_view>

namespace receiver {

namespace {

constexpr std::string_view scanForm = "JOB:START-STOP/STEP, for example 1:145M-155M/12.5k";
constexpr std::string_view excludedForm = "suppress:START-STOP or blanking:START-STOP, for example "
                                          "suppress:147M-148M";
constexpr int highestJob = 32'767; // the wire has 16 bits with sign
constexpr double highestHz = 1e12;
constexpr double highestAzimuth = 359.9;
constexpr double mostChannels = 10e6; // 240 MB of samples

// Goes through a text from left to right.
class Reader {
public:
    Reader(const std::string& text, std::string_view form)
        : m_text(text)
        , m_form(form)
        , m_rest(text)
    {}

    [[noreturn]] void refuse(const std::string& why) const
    {
        throw BadRange{fmt::format("'{}': expected {}; {}", m_text, m_form, why)};
    }

    bool takeIf(std::string_view word)
    {
        if (!m_rest.starts_with(word))
            return false;
        m_rest.remove_prefix(word.size());
        return true;
    }

    void take(char separator, std::string_view before)
    {
        if (!takeIf({&separator, 1}))
            refuse(fmt::format("'{}' is missing before {}", separator, before));
    }

    int job()
    {
        const double number = this->number("the job");
        if (!(number >= 0 && number <= highestJob) || number != std::floor(number))
            refuse(fmt::format("the job is no whole number from 0 to {}", highestJob));
        return static_cast<int>(number);
    }

    double hertz(std::string_view what)
    {
        const double number = this->number(what);
        const double hertz = number * (takeIf("k") ? 1e3 : takeIf("M") ? 1e6 : takeIf("G") ? 1e9 : 1.0);
        if (!(hertz >= 0 && hertz <= highestHz))
            refuse(fmt::format("{} is not within 0 and {:.0f} GHz", what, highestHz / 1e9));
        return hertz;
    }

    double azimuthTenths()
    {
        const double degrees = number("an azimuth");
        if (!(degrees >= 0 && degrees <= highestAzimuth))
            refuse(fmt::format("an azimuth is not within 0 and {} degrees", highestAzimuth));
        return std::round(degrees * 10);
    }

    void end() const
    {
        if (!m_rest.empty())
            refuse(fmt::format("'{}' is too much", m_rest));
    }

private:
    double number(std::string_view what)
    {
        double number = 0;
        const auto [end, error] = std::from_chars(m_rest.data(), m_rest.data() + m_rest.size(), number);
        if (error != std::errc{})
            refuse(fmt::format("{} is missing or no number", what));
        m_rest.remove_prefix(static_cast<std::size_t>(end - m_rest.data()));
        return number;
    }

    const std::string& m_text;
    std::string_view m_form;
    std::string_view m_rest;
};

struct Extent {
    double startHz;
    double stopHz;
};

// "START-STOP", in whole hertz.
Extent extentIn(Reader& reader)
{
    const double start = std::round(reader.hertz("the start frequency"));
    reader.take('-', "the stop frequency");
    const double stop = std::round(reader.hertz("the stop frequency"));
    if (stop < start)
        reader.refuse("the stop frequency lies below the start frequency");
    return {start, stop};
}

double channelsOf(const ScanRange& range)
{
    return static_cast<double>(range.stopFrequency - range.startFrequency) / range.step + 1;
}

} // namespace

std::shared_ptr<ScanRange> parseScanRange(const std::string& text)
{
    Reader reader{text, scanForm};
    auto range = std::make_shared<ScanRange>();
    range->jobId = static_cast<quint32>(reader.job());
    reader.take(':', "the start frequency");
    const Extent extent = extentIn(reader);
    range->startFrequency = static_cast<quint64>(extent.startHz);
    range->stopFrequency = static_cast<quint64>(extent.stopHz);
    reader.take('/', "the step");
    range->step = reader.hertz("the step");
    if (range->step == 0 || channelsOf(*range) > mostChannels)
        reader.refuse(fmt::format("the step gives more than {:.0f} channels", mostChannels));
    for (bool more = reader.takeIf("@"); more; more = reader.takeIf(",")) {
        const double from = reader.azimuthTenths();
        reader.take('-', "the sector's end");
        range->azimuthSectors.emplace_back(from, reader.azimuthTenths());
    }
    reader.end();
    return range;
}

ScanRangeContainer parseScanRanges(const std::vector<std::string>& texts)
{
    ScanRangeContainer ranges;
    std::set<quint32> jobs;
    double channels = 0;
    for (const std::string& text : texts) {
        ranges.push_back(parseScanRange(text));
        const ScanRange& range = *ranges.back();
        if (!jobs.insert(range.jobId).second)
            throw BadRange{
                fmt::format("'{}': expected each job once, found job {} again; give it another number", text,
                            range.jobId)};
        channels += channelsOf(range);
        if (channels > mostChannels)
            throw BadRange{fmt::format(
                "'{}': expected at most {:.0f} channels in all scan ranges, found more; take a larger step",
                text, mostChannels)};
    }
    return ranges;
}

ExcludedRange parseExcludedRange(const std::string& text)
{
    using Kind = ExcludedRange::Kind;
    Reader reader{text, excludedForm};
    const bool suppresses = reader.takeIf("suppress:");
    if (!suppresses && !reader.takeIf("blanking:"))
        reader.refuse("it begins with neither");
    const Extent extent = extentIn(reader);
    reader.end();
    return {suppresses ? Kind::Suppress : Kind::Blanking, extent.startHz, extent.stopHz};
}

} // namespace receiver
