// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/vk410processor.h"
#include "devicecontrol/vk410protocol/losstext.h"
#include "devicecontrol/vk410protocol/scanrange.h"
#include "nqbase/errorhandler.h"
#include "nqbase/nqexception.h"
#include "wire/layout.h"
#include "wire/view.h"
#include <algorithm>
#include <cstddef>
#include <memory>

namespace {

constexpr char sourceFile[] = "devicecontrol/vk410protocol/vk410processor";

// What the library's signals and slots carry, for connections between threads.
void registerMetaTypes()
{
    qRegisterMetaType<UdpDatagram*>("UdpDatagram*");
    qRegisterMetaType<std::vector<short>>("std::vector<short>");
    qRegisterMetaType<std::size_t>("size_t");
    qRegisterMetaType<ScanRangeContainer>("ScanRangeContainer");
}

} // namespace

// One datagram being processed. However that ends, the array of bit 17 is released and the observer told; a
// call from inside a processor gets the record for itself and gives it back.
class VK410Processor::Processing {
public:
    Processing(VK410Processor& owner, const UdpDatagram& datagram)
        : m_owner(owner)
        , m_datagram(datagram)
        , m_outerFields(owner.m_fields)
        , m_outerWalked(owner.m_walked)
    {
        owner.m_fields = DataPointers{};
        owner.m_walked = 0;
    }
    Processing(const Processing&) = delete;
    Processing& operator=(const Processing&) = delete;
    ~Processing()
    {
        m_owner.releaseWidened();
        if (m_owner.m_observer)
            m_owner.tellDatagram(m_datagram);
        m_owner.m_fields = m_outerFields;
        m_owner.m_walked = m_outerWalked;
    }

private:
    VK410Processor& m_owner;
    const UdpDatagram& m_datagram;
    DataPointers m_outerFields;
    quint32 m_outerWalked;
};

VK410Processor::VK410Processor(bool ignoreChannel)
    : m_ignoreChannel(ignoreChannel)
{
    registerMetaTypes();
}

VK410Processor::~VK410Processor()
{
    for (const auto& [key, processor] : m_registry)
        std::erase(processor->m_dispatchers, this);
}

void VK410Processor::RegisterTagProcessor(IMassDataProcessor* processor, TRACE_TAG tag, unsigned int channel)
{
    if (!processor || m_registry.contains({tag, channel}))
        return;
    std::vector<VK410Processor*>& dispatchers = processor->m_dispatchers;
    dispatchers.reserve(dispatchers.size() +
                        1); // all or nothing: what may fail for want of memory comes first
    m_registry.emplace(std::pair{tag, channel}, processor);
    dispatchers.push_back(this);
}

void VK410Processor::UnRegisterTagProcessor(TRACE_TAG tag, unsigned int channel)
{
    const auto route = m_registry.find({tag, channel});
    if (route == m_registry.end())
        return;
    std::vector<VK410Processor*>& dispatchers = route->second->m_dispatchers;
    dispatchers.erase(std::find(dispatchers.begin(), dispatchers.end(), this));
    m_registry.erase(route);
}

void VK410Processor::forget(const IMassDataProcessor& processor)
{
    std::erase_if(m_registry, [&processor](const auto& route) { return route.second == &processor; });
}

void VK410Processor::ProcessDatagram(UdpDatagram* pDGram)
{
    const std::unique_ptr<UdpDatagram> datagram{pDGram}; // destroyed however this call ends
    if (!datagram)
        return;
    const Processing processing{*this, *datagram};
    CheckDatagramLost(*datagram);
    if (!datagram->IsValid())
        return;
    while (datagram->NextAttribute()) {
        if (!datagram->CurrentAttributeValid()) {
            tell(*datagram, AttributeOutcome::UnknownTag);
            continue;
        }
        if (!convert(*datagram))
            return; // what follows is dropped with it
        IMassDataProcessor* const processor = processorFor(*datagram);
        tell(*datagram, processor ? AttributeOutcome::Dispatched : AttributeOutcome::Unrouted);
        if (processor)
            processor->SetAttribute(&m_fields, datagram->CurrentAttribute(), datagram->OptHeaderAvailable());
    }
}

void VK410Processor::CheckDatagramLost(const UdpDatagram& datagram)
{
    const bool hadSequence = m_sequenceValid;
    m_sequenceValid = datagram.HasSeqNumber();
    if (!m_sequenceValid)
        return;
    const quint16 last = m_lastSequence;
    m_lastSequence = wire::byteSwapped<quint16>(datagram.GetSeqNumber());
    const auto expected = static_cast<quint16>(last + 1);
    if (!hadSequence || expected == m_lastSequence)
        return;
    // The text is composed and written nowhere. That is meant: the check has no visible output.
    // Pinned by VK410ProcessorSequence.ComposesTheLossAndWritesNothing.
    if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::datagramLoss) != 0)
        Q_UNUSED(datagramLossText(last, m_lastSequence));
}

bool VK410Processor::convert(UdpDatagram& datagram)
{
    releaseWidened();
    try {
        datagram.SetupDataPointers(&m_fields);
        datagram.SetupOptHeader();
    } catch (const NQException& refused) {
        if ((ErrorHandler::Instance()->GetTraceMask() & tracemask::error) != 0)
            _Q_Trace(QStringLiteral("Exception while processing UDP-Attribute: ") + refused.GetErrorReason(),
                     sourceFile, 67);
        tell(datagram, AttributeOutcome::SelectorError, refused.GetErrorReason());
        return false;
    }
    if (!datagram.Truncated())
        return true;
    tell(datagram, AttributeOutcome::Truncated);
    return false;
}

IMassDataProcessor* VK410Processor::processorFor(const UdpDatagram& datagram) const
{
    const TRACE_TAG tag = datagram.CurrentTag();
    const bool channelless = m_ignoreChannel || wire::tag::isChannelless(static_cast<quint16>(tag));
    const auto route = m_registry.find({tag, channelless ? 0 : datagram.CurrentChannelNumber()});
    return route == m_registry.end() ? nullptr : route->second;
}

void VK410Processor::releaseWidened()
{
    delete[] m_fields.selBit17;
    m_fields.selBit17 = nullptr;
}

void VK410Processor::tell(const UdpDatagram& datagram, AttributeOutcome outcome, const QString& reason)
{
    if (!m_observer)
        return;
    m_walked += datagram.CurrentSize();
    m_observer->AttributeDone({outcome, static_cast<quint16>(datagram.CurrentTag()),
                               datagram.CurrentChannelNumber(), datagram.CurrentOffset(),
                               datagram.CurrentSize(), reason});
}

void VK410Processor::tellDatagram(const UdpDatagram& datagram)
{
    const bool valid = datagram.IsValid();
    const quint32 accounted = wire::datagram::headerSize + m_walked;
    const quint32 notWalked = valid && datagram.Size() > accounted ? datagram.Size() - accounted : 0;
    m_observer->DatagramDone({datagram.Size(), valid, datagram.HasSeqNumber(),
                              wire::byteSwapped<quint16>(datagram.GetSeqNumber()), notWalked});
}
