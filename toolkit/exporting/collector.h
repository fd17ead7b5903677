// SPDX-License-Identifier: MIT
#pragma once
// Takes out of a session what is to be exported.
#include "toolkit/exporting/writer.h"
#include "toolkit/receiver/session.h"
#include <QObject>
#include <optional>
#include <string>
#include <vector>

namespace exporting {

/// Writes every IF panorama or zero-span trace, or every block of direction-finding samples, while the
/// session takes datagrams. Owner:  session and writer are borrowed and outlive it. Errors: what the writer
/// throws ends the export and is told by `failure`.
class Collector : public QObject {
    Q_OBJECT

public:
    Collector(receiver::Session& session, What what, Writer& writer);
    ~Collector() override;

    /// Rows so far: traces, or blocks.
    [[nodiscard]] quint64 rows() const { return m_rows; }

    /// Brings the files up to date; for now and then.
    void update();

    [[nodiscard]] const std::optional<std::string>& failure() const { return m_failure; }

signals:
    void failed();

private:
    void takePanorama(const std::vector<short>& levels, quint64 deviceNs, double firstHz, double lastHz);
    void takeZeroSpan(const receiver::CountedLevelMap& map);
    void takeDf(unsigned int first, unsigned int count);
    template <typename Row>
    void write(Row row);
    void fail(const CannotExport& failure);
    [[nodiscard]] When when(std::int64_t deviceNs);

    receiver::Session& m_session;
    Writer& m_writer;
    quint64 m_rows = 0;
    quint64 m_lost = 0; // on the wire, at the last row
    std::vector<double> m_frequencies;
    std::optional<std::string> m_failure;
};

/// What of the ledger's losses concerns such an export.
[[nodiscard]] quint64 lossesOf(const ledger::Counters& counters, What what);

/// "wire lost 3 | kernel 2": those losses; "no losses". Then what came twice or late, which is in the table
/// all the same: "no losses, wire duplicates 2".
[[nodiscard]] std::string lossText(const ledger::Counters& counters, What what);

} // namespace exporting
