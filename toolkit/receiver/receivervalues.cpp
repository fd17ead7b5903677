// SPDX-License-Identifier: MIT
#include "toolkit/receiver/receivervalues.h"
#include "freqlist/freqstore.h"
#include "values/value.h"
#include "values/valuelist.h"
#include <utility>
#include <vector>

namespace receiver {

namespace {

using values::ValueSelection;
using Entries = std::vector<ValueSelection::Entry>;

constexpr double highestFrequencyHz = 40e9;

// Text for a number of hertz: "12.5 kHz".
QString hertzText(double hertz)
{
    if (hertz >= 1e6)
        return QStringLiteral("%1 MHz").arg(hertz / 1e6);
    if (hertz >= 1e3)
        return QStringLiteral("%1 kHz").arg(hertz / 1e3);
    return QStringLiteral("%1 Hz").arg(hertz);
}

Entries hertzEntries(const std::vector<double>& keys)
{
    Entries entries;
    for (const double key : keys)
        entries.push_back({key, hertzText(key)});
    return entries;
}

Entries spans()
{
    return hertzEntries({1e3, 2e3, 5e3, 10e3, 20e3, 50e3, 100e3, 200e3, 250e3, 500e3, 1e6, 2e6, 4.8e6, 5e6,
                         9.6e6, 10e6, 20e6, 40e6, 80e6});
}

Entries steps()
{
    return hertzEntries({0.625,   1.25, 2.5,    3.125, 6.25, 12.5, 25,     31.25, 50,    62.5,    100, 125,
                         200,     250,  312.5,  500,   625,  1e3,  1.25e3, 2e3,   2.5e3, 3.125e3, 5e3, 6.25e3,
                         8.333e3, 10e3, 12.5e3, 20e3,  25e3, 50e3, 100e3,  200e3, 500e3, 1e6,     2e6});
}

Entries commands()
{
    return {{0, "STOP"},      {3, "FFM"},       {5, "SEARCH"},   {6, "MSEARCH"},
            {7, "MSCAN"},     {22, "WFFM"},     {23, "DFPSCAN"}, {24, "DFPSCAN2"},
            {25, "DFPSCAN3"}, {26, "DFPSCAN4"}, {28, "DFSEARCH"}};
}

Entries scanModes()
{
    return {{0, "IDLE"}, {1, "RUN"}, {2, "HOLD"}};
}

QString path(const char* group = "")
{
    return QString::fromLatin1(devicePath) + QString::fromLatin1(group);
}

std::shared_ptr<values::ValueNumeric<double>> number(const QString& group, const char* name, double value,
                                                     double minimum, double maximum, const char* unit)
{
    auto created = values::Tree::Instance()->Create<values::ValueNumeric<double>>(
        group, QString::fromLatin1(name), value);
    created->SetMinMax(minimum, maximum, 1.0);
    created->SetUnit(QString::fromUtf8(unit));
    return created;
}

std::shared_ptr<values::ValueNumeric<int>> wholeNumber(const QString& group, const char* name, int value,
                                                       int minimum, int maximum, const char* unit)
{
    auto created =
        values::Tree::Instance()->Create<values::ValueNumeric<int>>(group, QString::fromLatin1(name), value);
    created->SetMinMax(minimum, maximum, 1);
    created->SetUnit(QString::fromUtf8(unit));
    return created;
}

std::shared_ptr<values::ValueNumeric<qint64>> time(const QString& group, const char* name)
{
    auto created =
        values::Tree::Instance()->Create<values::ValueNumeric<qint64>>(group, QString::fromLatin1(name));
    created->SetUnit(QStringLiteral("µs"));
    return created;
}

void flag(const QString& group, const char* name, bool value = false)
{
    values::Tree::Instance()->Create<values::Value<bool>>(group, QString::fromLatin1(name), value);
}

std::shared_ptr<ValueSelection> selection(const QString& group, const char* name, Entries entries)
{
    return values::Tree::Instance()->Create<ValueSelection>(group, QString::fromLatin1(name),
                                                            std::move(entries));
}

} // namespace

ReceiverValues::ReceiverValues(ledger::Ledger& ledger)
    : m_tree(std::make_shared<values::Tree>())
    , m_oldTree(values::Tree::Install(m_tree))
{
    addMaps(ledger);
    addReceiver();
    addDirectionFinder();
    addCompass();
}

ReceiverValues::~ReceiverValues()
{
    values::Tree::Install(std::move(m_oldTree));
}

void ReceiverValues::addMaps(ledger::Ledger& ledger)
{
    ifPanorama = std::make_shared<CountedLevelMap>(QStringLiteral("IFPANMAPPING"), ledger);
    m_tree->Add(path(), ifPanorama);
    zeroSpan = std::make_shared<CountedLevelMap>(QStringLiteral("LEVELMAPPING"), ledger);
    m_tree->Add(path("/ZeroSpan"), zeroSpan);
    zeroSpan2 = std::make_shared<CountedLevelMap>(QStringLiteral("SECONDMAPPING"), ledger);
    m_tree->Add(path("/ZeroSpan"), zeroSpan2);
    bearings = std::make_shared<CountedBearingMap>(QStringLiteral("RXBEARINGMAPPING"), ledger);
    m_tree->Add(path(), bearings);
    dfSpectrum = std::make_shared<CountedDFSpectrumMap>(QStringLiteral("RXBEARINGMAPPING"), ledger);
    m_tree->Add(path("/KRT"), dfSpectrum);
}

void ReceiverValues::addReceiver()
{
    // "ALWAYS" first: values that do not follow what the receiver says are no use to a monitor.
    selection(path(), "FOLLOW", {{3, "ALWAYS"}, {0, "NEVER"}});
    commands = selection(path(), "DRVCOMMANDS", receiver::commands());
    commands->SelectKey(3);
    frequency = m_tree->Create<values::ValueNumericWithOffset>(path(), QStringLiteral("FREQUENCY"), 100e6);
    frequency->SetMinMax(0.0, highestFrequencyHz, 1.0);
    frequency->SetUnit(QStringLiteral("Hz"));
    span = selection(path(), "IFPANSPAN", spans());
    span->SetUnit(QStringLiteral("Hz"));
    selection(path(), "IFSTEP", steps())->SetUnit(QStringLiteral("Hz"));
    flag(path(), "AFC");
    selection(path(), "SEARCHSCANMODE", scanModes());
    selection(path(), "MSCANMODE", scanModes());
    flag(path(), "TUNINGWHEELINUSE");
    flag(path("/PRIORITYSCAN"), "ENDOFSCAN");
    flag(path("/PRIORITYSCAN"), "ENABLED");
    selection(path("/RECORDREPLAY"), "MODE", {{0, "IDLE"}, {1, "RECORD"}, {3, "REPLAY"}});
}

void ReceiverValues::addDirectionFinder()
{
    selection(path("/KRT"), "DF_ENABLED", {{0, "OFF"}, {1, "ON"}});
    number(path(), "POLARFREQUENCY", 0.0, 0.0, highestFrequencyHz, "Hz");
    // The name is spelled as the direction finder spells it.
    number(path(), "DEMODUALTIONFREQUENCY", 0.0, 0.0, highestFrequencyHz, "Hz");
    time(path("/KRT"), "DFTIMESTAMP");
    time(path("/KRT"), "SWEEPTIME");
    time(path("/KRT"), "SPECTRUMAVERAGINGTIME");
    m_tree->Create<values::ValueList<int>>(path("/KRT"), QStringLiteral("DFALTUSED"));
    flag(path("/KRT"), "DFALTWATSONWATT");
    wholeNumber(path("/KRT"), "QUALITYTHRESHOLD", 0, 0, 100, "%");
    blankingStatus = m_tree->Create<values::ValueFrequencyItemMap<values::BlankingRangeItem>>(
        QStringLiteral("/INTERFACES/Blanking/Ranges"), QStringLiteral("List"));
    blankingRanges = m_tree->Create<values::ValueCommentedRangeMap>(
        QStringLiteral("/INTERFACES/Blanking"), QStringLiteral("BlankingRangesFrequencyStore"));
    // The frequency lists put their two suppress ranges into the tree on first use.
    FreqStore::Install(nullptr);
    localSuppressRanges = FreqStore::Instance()->GetLocalSuppressRange();
    globalSuppressRanges = FreqStore::Instance()->GetGlobalSuppressRange();
}

void ReceiverValues::addCompass()
{
    flag(path("/GPSCOMPASS"), "UsePitchRollBlanking");
    wholeNumber(path("/GPSCOMPASS"), "RollThreshold", 10, 0, 90, "°");
    wholeNumber(path("/GPSCOMPASS"), "PitchThreshold", 10, 0, 90, "°");
    number(path("/GPSCOMPASS/POSITION"), "ROLL", 0.0, -180.0, 180.0, "°");
    number(path("/GPSCOMPASS/POSITION"), "PITCH", 0.0, -90.0, 90.0, "°");
}

} // namespace receiver
