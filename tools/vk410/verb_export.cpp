// SPDX-License-Identifier: MIT
// vk410 export: traces and samples as tables for other programs.
#include "toolkit/exporting/collector.h"
#include "tools/vk410/dfoptions.h"
#include "tools/vk410/eventloop.h"
#include "tools/vk410/progress.h"
#include "tools/vk410/sources.h"
#include "tools/vk410/tagoptions.h"
#include "tools/vk410/validators.h"
#include "tools/vk410/verbs.h"
#include <QCoreApplication>
#include <fmt/format.h>
#include <map>

namespace verbs {
namespace {

using exporting::Format;
using exporting::What;

const std::map<std::string, What>& kinds()
{
    static const std::map<std::string, What> names{{"levels", What::Levels},
                                                   {"zerospan", What::ZeroSpan},
                                                   {"zerospan2", What::SecondZeroSpan},
                                                   {"df", What::Df}};
    return names;
}

const std::map<std::string, Format>& formats()
{
    static const std::map<std::string, Format> names{
        {"csv", Format::Csv}, {"ndjson", Format::Ndjson}, {"npy", Format::Npy}};
    return names;
}

struct Arguments {
    std::string source;
    std::string what = "levels";
    std::string format;
    std::string output;
    double seconds = 0;
    TagOptions tags;
    DfOptions df;
};

Format formatOf(const Arguments& arguments)
{
    if (!arguments.format.empty())
        return formats().at(arguments.format);
    if (arguments.output.empty())
        return Format::Csv;
    if (const std::optional<Format> format = exporting::formatOf(arguments.output))
        return *format;
    throw exporting::CannotExport{
        fmt::format("{}: expected a file that ends in .csv, .ndjson, .jsonl or .npy, or --format csv, ndjson "
                    "or npy; its form cannot be told from its name",
                    arguments.output)};
}

class Export {
public:
    explicit Export(const Arguments& arguments)
        : m_arguments(arguments)
        , m_what(kinds().at(arguments.what))
        , m_session(optionsOf(arguments))
        , m_format(formatOf(arguments))
    {
        QObject::connect(&m_session, &receiver::Session::said, [this](const QString& text) {
            m_progress.end();
            fmt::print(stderr, "{}\n", text.toStdString());
        });
        QObject::connect(&m_session, &receiver::Session::finished, [this] {
            m_isAtEnd = true;
            QCoreApplication::quit();
        });
    }

    int run()
    {
        requireOtherFile(m_arguments.source, m_arguments.output);
        // As fast as the file can be read; a simulated receiver sends at its own pace.
        const bool isSimulated = m_arguments.source.starts_with("sim:");
        m_session.run(openSource(m_arguments.source, {.rate = isSimulated ? 1.0 : 0.0}));
        // The output may be an earlier result: it is begun when there is something to read, and before the
        // loop brings any of it.
        m_writer = exporting::makeWriter(m_what, m_format, m_arguments.output);
        m_collector = std::make_unique<exporting::Collector>(m_session, m_what, *m_writer);
        QObject::connect(m_collector.get(), &exporting::Collector::failed, [] { QCoreApplication::quit(); });
        if (!m_collector->failure())
            m_loop.run(m_arguments.seconds, [this] {
                m_collector->update();
                m_progress.show(progressText());
            });
        m_progress.end();
        if (!m_collector->failure())
            m_writer->finish();
        return report();
    }

private:
    static receiver::SessionOptions optionsOf(const Arguments& arguments)
    {
        receiver::SessionOptions options;
        arguments.df.apply(options);
        arguments.tags.apply(options);
        return options;
    }

    [[nodiscard]] std::string progressText()
    {
        const receiver::Source::Facts facts = m_session.source()->facts();
        const double seconds = m_progress.seconds();
        std::string text = rowsText();
        if (facts.fileBytes == 0)
            return text + ", " + rateText(m_session.status().bytes, seconds) +
                   (m_arguments.seconds > 0 ? ", " + shareText({seconds, m_arguments.seconds}, seconds)
                                            : std::string{});
        return text + ", " + rateText(facts.fileBytesRead, seconds) + ", " +
               shareText({static_cast<double>(facts.fileBytesRead), static_cast<double>(facts.fileBytes)},
                         seconds);
    }

    [[nodiscard]] std::string rowsText() const
    {
        return fmt::format("{} {}", m_collector->rows(), m_what == What::Df ? "blocks" : "traces");
    }

    // On stderr: stdout may be the table.
    int report()
    {
        std::fflush(stdout);
        if (m_collector->failure()) {
            fmt::print(stderr, "vk410 export: {}; {} were written\n", *m_collector->failure(), rowsText());
            return Failed;
        }
        const ledger::Counters counters = m_session.ledger().counters();
        std::string files;
        for (const std::string& file : m_writer->files())
            files += (files.empty() ? " to " : ", ") + file;
        fmt::print(stderr, "vk410 export: {}{}; {}{}\n", rowsText(), files, soundText(), stoppedText());
        const bool isWhole = !m_session.source()->failed() && exporting::lossesOf(counters, m_what) == 0 &&
                             stoppedText().empty();
        return isWhole && m_collector->rows() > 0 ? Done : NotSound;
    }

    // What was lost, and where a recording is cut or has holes.
    [[nodiscard]] std::string soundText()
    {
        const receiver::Source::Facts facts = m_session.source()->facts();
        if (facts.problems == 0)
            return lossText();
        const bool isAll =
            m_collector->rows() > 0 && exporting::lossesOf(m_session.ledger().counters(), m_what) == 0;
        return fmt::format(
            "{}the recording is not whole: {}{}", isAll ? "" : lossText() + "; ", facts.firstProblem,
            facts.problems > 1 ? fmt::format("; and {} more problems", facts.problems - 1) : "");
    }

    // A recording has an end, which --for or the user did not wait for.
    [[nodiscard]] std::string stoppedText()
    {
        const receiver::Source::Facts facts = m_session.source()->facts();
        if (m_isAtEnd || facts.fileBytes == 0)
            return {};
        return fmt::format("; stopped after {} of {} bytes of the recording", facts.fileBytesRead,
                           facts.fileBytes);
    }

    [[nodiscard]] std::string lossText()
    {
        const ledger::Ledger& ledger = m_session.ledger();
        if (m_collector->rows() == 0)
            return nothingText(ledger);
        return exporting::lossText(ledger.counters(), m_what);
    }

    [[nodiscard]] std::string nothingText(const ledger::Ledger& ledger) const
    {
        if (ledger.counters().datagrams == 0)
            return fmt::format("expected datagrams from {0}, none came; 'vk410 doctor {0}' says why",
                               m_arguments.source);
        if (m_what == What::Df && ledger.counters().notAccepted > 0)
            return "expected to know what the direction finder scans; --scan-range JOB:START-STOP/STEP says "
                   "it";
        return fmt::format(
            "expected traces of this kind, found none in {} datagrams; 'vk410 inspect {}' lists "
            "the tags, --tag {}=TAG takes another, --what another kind",
            ledger.counters().datagrams, m_arguments.source,
            m_what == What::Levels ? "panorama"
            : m_what == What::Df   ? "df"
                                   : "zerospan");
    }

    EventLoop m_loop;
    const Arguments& m_arguments;
    What m_what;
    receiver::Session m_session;
    Format m_format;
    std::unique_ptr<exporting::Writer> m_writer;
    std::unique_ptr<exporting::Collector> m_collector;
    bool m_isAtEnd = false; // of what the source has
    Progress m_progress;
};

int exportTables(const Arguments& arguments)
{
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    return Export{arguments}.run();
}

} // namespace

void addExport(CLI::App& program, Run& run)
{
    CLI::App* const verb =
        program.add_subcommand("export", "traces and bearings as CSV, NDJSON or NumPy arrays");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("SOURCE", arguments->source, sourceHelp)->required();
    verb->add_option("--what", arguments->what,
                     "levels: IF panorama, if not given; zerospan2: its second field")
        ->check(oneOf({"levels", "zerospan", "zerospan2", "df"}))
        ->type_name("levels|zerospan|zerospan2|df");
    verb->add_option("-o,--output", arguments->output,
                     "stdout if not given; a.npy has companions a.time.npy and a.grid.npy")
        ->check(notEmpty())
        ->type_name("FILE");
    verb->add_option("--format", arguments->format, "as FILE ends if not given; csv on stdout")
        ->check(oneOf({"csv", "ndjson", "npy"}))
        ->type_name("csv|ndjson|npy");
    verb->add_option("--for", arguments->seconds, "stop after SECONDS")
        ->check(positiveNumber())
        ->type_name("SECONDS");
    arguments->tags.addTo(*verb);
    arguments->df.addTo(*verb);
    verb->footer("Every row has its time and its grid; what was not measured is empty, null or NaN.\n"
                 "Examples:\n"
                 "  vk410 export a.pcap > levels.csv\n"
                 "  vk410 export udp://:5555 --for 10 -o levels.npy\n"
                 "  vk410 export a.pcap --what df --scan-range 1:145M-155M/12.5k -o bearings.ndjson");
    verb->callback([arguments, &run] { run = [arguments] { return exportTables(*arguments); }; });
}

} // namespace verbs
