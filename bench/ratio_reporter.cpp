// SPDX-License-Identifier: MIT
#include "bench/ratio_reporter.h"
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

namespace {

struct Samples {
    std::vector<double> nanoseconds; // of the thread that works
    std::vector<double> wall;        // until it was done
    double bytes = 0;
};

double quantile(std::vector<double> values, double q)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1) + 0.5)];
}

/// Half the distance of the quartiles, as a part of the median.
double spreadOf(const Samples& samples)
{
    const double median = quantile(samples.nanoseconds, 0.5);
    return (quantile(samples.nanoseconds, 0.75) - quantile(samples.nanoseconds, 0.25)) / 2 / median;
}

class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            // The repetition is part of the full name, not of what is measured.
            const std::string name =
                run.run_name.function_name + (run.run_name.args.empty() ? "" : "/") + run.run_name.args;
            Samples& samples = m_samples[name];
            samples.nanoseconds.push_back(run.GetAdjustedCPUTime());
            samples.wall.push_back(run.GetAdjustedRealTime());
            const auto rate = run.counters.find("bytes_per_second");
            if (rate != run.counters.end())
                samples.bytes = rate->second.value * run.GetAdjustedCPUTime() * 1e-9;
        }
    }

    void write(const std::string& path, const std::string& program,
               const std::function<std::string(const std::string&)>& peerOf) const
    {
        std::ofstream file{path, std::ios::app};
        for (const auto& [name, samples] : m_samples)
            file << "{\"program\":\"" << program << "\",\"name\":\"" << name
                 << "\",\"ns\":" << quantile(samples.nanoseconds, 0.5)
                 << ",\"wall_ns\":" << quantile(samples.wall, 0.5) << ",\"spread\":" << spreadOf(samples)
                 << ",\"bytes\":" << samples.bytes << ",\"peer\":\"" << peerOf(name) << "\"}\n";
        require(file.flush().good(), "results that can be written");
    }

    void print(const std::function<std::string(const std::string&)>& peerOf) const
    {
        std::printf("%-44s %12s %8s %9s %8s %8s  %s\n", "benchmark", "median ns", "spread", "GB/s", "ratio",
                    "by clock", "to");
        for (const auto& [name, samples] : m_samples)
            printLine(name, samples, peerOf(name));
    }

private:
    void printLine(const std::string& name, const Samples& samples, const std::string& peer) const
    {
        const double median = quantile(samples.nanoseconds, 0.5);
        std::printf("%-44s %12.1f %7.1f%%", name.c_str(), median, 100 * spreadOf(samples));
        if (samples.bytes > 0)
            std::printf(" %9.2f", samples.bytes / median);
        else
            std::printf(" %9s", "");
        const auto other = m_samples.find(peer);
        if (other != m_samples.end())
            std::printf(" %7.2fx %7.2fx  %s", median / quantile(other->second.nanoseconds, 0.5),
                        quantile(samples.wall, 0.5) / quantile(other->second.wall, 0.5), peer.c_str());
        std::printf("\n");
    }

    std::map<std::string, Samples> m_samples;
};

} // namespace

int runWithRatios(int argc, char** argv, const std::function<std::string(const std::string&)>& peerOf)
{
    std::vector<std::string> words(argv, argv + argc);
    std::string results;
    std::erase_if(words, [&results](const std::string& word) {
        constexpr std::string_view option = "--results=";
        if (!word.starts_with(option))
            return false;
        results = word.substr(option.size());
        return true;
    });
    // Short and often, in random order, so that what else the machine does meets all of them alike.
    words.insert(words.begin() + 1, {"--benchmark_repetitions=9", "--benchmark_min_time=0.05",
                                     "--benchmark_enable_random_interleaving=true"});
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    collector.print(peerOf);
    if (!results.empty())
        collector.write(results, words.front().substr(words.front().rfind('/') + 1), peerOf);
    return 0;
}

void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "wrong result: %s\n", what);
    std::exit(1);
}

} // namespace bench
