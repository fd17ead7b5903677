// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/mdpzerospan.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "devicecontrol/vk410protocol/tracecopy.h"
#include "nqbase/errorhandler.h"
#include "nqbase/nqexception.h"
#include "nqbase/tavoos.h"
#include "values/tree.h"
#include "wire/optheader.h"
#include "wire/selectors.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace {

constexpr char sourceFile[] = "devicecontrol/vk410protocol/mdpzerospan";
constexpr quint32 levelsSelected = 0x1;
constexpr quint32 bit23Selected = 0x800000;
constexpr double toleranceByValue = 1e-11;

// The sum of two times from the network, wrapped around.
qint64 wrappedSum(qint64 a, qint64 b)
{
    return static_cast<qint64>(static_cast<quint64>(a) + static_cast<quint64>(b));
}

double asUnsigned(qint64 value)
{
    return static_cast<double>(static_cast<quint64>(value));
}

} // namespace

MdpZeroSpan::MdpZeroSpan(std::shared_ptr<ILevelMapFiller> levelFiller,
                         std::shared_ptr<ILevelMapFiller> bit23Filler)
    : m_levelFiller(std::move(levelFiller))
    , m_bit23Filler(std::move(bit23Filler))
{}

MdpZeroSpan::MdpZeroSpan(const MdpZeroSpan& other) = default;
MdpZeroSpan& MdpZeroSpan::operator=(const MdpZeroSpan& other) = default;
MdpZeroSpan::~MdpZeroSpan() = default;

void MdpZeroSpan::Init(QString name)
{
    IMassDataProcessor::Init(std::move(name));
    bindAxis(m_xStart, Path() + QStringLiteral("/ZeroSpan/XStart"));
    bindAxis(m_xStop, Path() + QStringLiteral("/ZeroSpan/XStop"));
}

void MdpZeroSpan::bindAxis(values::ValuePtr<AxisValue>& handle, const QString& path)
{
    if (!handle.Bind(path)) {
        const int nameBegin = path.lastIndexOf(QLatin1Char('/')) + 1;
        const auto value = std::make_shared<AxisValue>(path.mid(nameBegin));
        try {
            values::Tree::Instance()->Add(path.left(nameBegin), value);
        } catch (const NQException&) {
            // Another kind of value has the name: the processor works with one of its own, which nobody can
            // find.
        }
        handle.Bind(value);
    }
    handle->SetMinMax(std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max(), 1, nullptr);
}

// The record of the current attribute. A call from inside an observer of the maps or values gets it for
// itself and gives it back; the outermost one leaves it as it is.
class MdpZeroSpan::Current {
public:
    explicit Current(MdpZeroSpan& owner)
        : m_owner(owner)
        , m_header(owner.m_header)
        , m_dataPointers(owner.m_dataPointers)
        , m_attribute(owner.m_attribute)
    {
        ++owner.m_depth;
    }
    Current(const Current&) = delete;
    Current& operator=(const Current&) = delete;
    ~Current()
    {
        if (--m_owner.m_depth == 0)
            return;
        m_owner.m_header = m_header;
        m_owner.m_dataPointers = m_dataPointers;
        m_owner.m_attribute = m_attribute;
    }

private:
    MdpZeroSpan& m_owner;
    OptHeaderValues m_header;
    DataPointers* m_dataPointers;
    UdpDatagramAttribute* m_attribute;
};

void MdpZeroSpan::SetAttribute(DataPointers* dp, UdpDatagramAttribute* attr, bool optHeaderAvailable)
{
    const Current current{*this};
    if (!IsDataValid(dp, attr, optHeaderAvailable))
        return;
    ReadOptionalHeader();
    // Each field goes to a filler, a map and a grid of its own.
    if ((attr->SelectorFlags() & levelsSelected) != 0)
        CreateAndSetChannelRangeDefinition(m_levelFiller, dp->selBit0);
    if ((attr->SelectorFlags() & bit23Selected) != 0) {
        scaleToThousandths(dp->selBit23);
        CreateAndSetChannelRangeDefinition(m_bit23Filler, dp->selBit23);
    }
}

bool MdpZeroSpan::IsDataValid(DataPointers* dp, UdpDatagramAttribute* attr, bool optHeaderAvailable)
{
    m_dataPointers = dp;
    m_attribute = attr;
    if (!optHeaderAvailable) {
        if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) != 0)
            _Q_Trace(QStringLiteral("Mass data contains no optional header."), sourceFile, __LINE__);
        NotAccepted("no optional header");
        return false;
    }
    const bool valid = attr->Count() > 0 && tracecopy::isLevelTrace(*dp, *attr);
    if (!valid)
        NotAccepted(attr->Count() == 0 ? "no values" : "not a trace of levels");
    return valid;
}

void MdpZeroSpan::ReadOptionalHeader()
{
    namespace layout = wire::zerospan;
    const std::size_t size = std::min<std::size_t>(m_attribute->OptHeaderLength(), layout::size);
    const wire::View header{m_attribute->OptHeader(), size};
    const bool hostOrder = (m_attribute->SelectorFlags() & wire::selector::hostOrderFlag) != 0;
    const wire::ByteOrder order = hostOrder ? wire::ByteOrder::Little : wire::ByteOrder::Big;
    m_header = {header.getOrZero(layout::xSpan, order), header.getOrZero(layout::xStart, order),
                static_cast<quint64>(header.getOrZero(layout::timeStamp, order))};
}

// Negative values are truncated toward zero after 0.5 was added, not rounded: -32767 becomes -999. That is
// required. Pinned by MdpZeroSpanScaling.*.
void MdpZeroSpan::scaleToThousandths(short* items) const
{
    if (!items)
        return;
    auto* const bytes = reinterpret_cast<unsigned char*>(items);
    for (std::size_t i = 0; i < m_attribute->Count(); ++i) {
        const auto scaled = static_cast<qint16>(numbers::item16(items, i) * 1000.0 / 32767.0 + 0.5);
        std::memcpy(bytes + i * sizeof scaled, &scaled, sizeof scaled);
    }
}

void MdpZeroSpan::CreateAndSetChannelRangeDefinition(std::shared_ptr<ILevelMapFiller> filler, short* values)
{
    if (!filler)
        return;
    const unsigned count = m_attribute->Count();
    values::ChannelRangeDefinition current = filler->GetRangeDefinition();
    const auto start = static_cast<double>(m_header.xStart);
    const double stop = asUnsigned(wrappedSum(m_header.xStart, m_header.xSpan));
    const bool hasChannels = current.GetChannelCount() != 0;
    const double fMin = hasChannels ? current.ChannelIdToFrequency(current.GetMinChannelId()) : 0.0;
    const double fMax = hasChannels ? current.ChannelIdToFrequency(current.GetMaxChannelId()) : 0.0;
    const double difference = std::abs(fMax - stop);
    const double tolerance = (count - 1) * toleranceByValue;
    const bool snap = difference > 0.0 && difference <= tolerance;

    if (current.empty() || fMin != start || difference > tolerance || current.GetChannelCount() != count) {
        rebuildGrid(*filler);
        if (current.empty())
            current = filler->GetRangeDefinition();
    }
    if (current.empty())
        return;
    if (auto* const mapping = filler->GetMapping())
        mapping->SetTimeStamp(mapStamp());
    // Where the stop differs from the grid's last channel by rounding only, the filler gets the grid's own
    // value, so that its check of the range accepts the trace.
    filler->SetData(start, snap ? fMax : stop, static_cast<int>(count), values);
    filler->EndOfScan();
}

void MdpZeroSpan::rebuildGrid(ILevelMapFiller& filler)
{
    const unsigned count = m_attribute->Count();
    // A single value has no step: infinite, or not a number. No special case is made of it; the filler
    // rejects the trace.
    const double step = numbers::quotient(asUnsigned(m_header.xSpan), count - 1);
    values::ChannelRangeDefinition grid;
    grid.AddRangeDefinition(0, count, static_cast<double>(m_header.xStart), step, QString());
    filler.SetRangeDefinition(grid, changecode::mapChanged);
    if (m_xStart)
        m_xStart->SetValue(m_header.xStart, nullptr);
    if (m_xStop)
        m_xStop->SetValue(wrappedSum(m_header.xStart, m_header.xSpan), nullptr);
}

quint64 MdpZeroSpan::mapStamp() const
{
    return m_header.deviceStamp != 0 ? m_header.deviceStamp / 1000 : TavoOS::Create()->GetCurrentTimeStamp();
}
