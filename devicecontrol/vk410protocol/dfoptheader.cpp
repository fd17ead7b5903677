// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/dfoptheader.h"
#include "devicecontrol/vk410protocol/numbers.h"
#include "wire/optheader.h"
#include "wire/selectors.h"
#include <algorithm>

DfOptHeader DfOptHeader::read(const UdpDatagramExtAttribute& attribute, const unsigned char* optHeader)
{
    namespace layout = wire::dfscan;
    const std::size_t size = std::min<std::size_t>(attribute.OptHeaderLength(), layout::size);
    const wire::View view{optHeader, size};
    const bool hostOrder = (attribute.SelectorFlags() & wire::selector::hostOrderFlag) != 0;
    const wire::ByteOrder order = hostOrder ? wire::ByteOrder::Little : wire::ByteOrder::Big;
    return {view.getOrZero(layout::startFrequency, order),
            view.getOrZero(layout::firstChannel, order),
            view.getOrZero(layout::stepNumerator, order),
            view.getOrZero(layout::stepDenominator, order),
            view.getOrZero(layout::span, order),
            view.getOrZero(layout::averagingTimeOffset, order),
            static_cast<quint32>(view.getOrZero(layout::dfFlags, order)),
            view.getOrZero(layout::sweepTime, order),
            static_cast<quint64>(view.getOrZero(layout::timestamp, order)),
            view.getOrZero(layout::jobId, order),
            view.getOrZero(layout::superResolutionFields, order),
            view.getOrZero(layout::superResolutionCount, order),
            view.getOrZero(layout::eigenValueCount, order)};
}

double DfOptHeader::stepHz() const
{
    return numbers::quotient(stepNumerator, stepDenominator);
}

double DfOptHeader::firstFrequencyHz() const
{
    return static_cast<double>(startFrequencyHz) + firstChannel * stepHz();
}
