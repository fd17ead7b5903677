// SPDX-License-Identifier: MIT
#include "support/delivered.h"
#include "wire/layout.h"
#include <algorithm>

namespace support {

namespace {

template <typename T>
void keep(Delivered& delivered, const char* name, const void* items, std::size_t count)
{
    if (!items)
        return;
    const std::vector<T> values = copied<T>(items, count);
    delivered.fields[name].assign(values.begin(), values.end());
}

void keepFields(Delivered& delivered, const DataPointers& data, std::size_t count)
{
    keep<std::int16_t>(delivered, "selBit0", data.selBit0, count);
    keep<std::int32_t>(delivered, "selBit1", data.selBit1, count);
    keep<std::int16_t>(delivered, "selBit2", data.selBit2, count);
    keep<std::int16_t>(delivered, "selBit3", data.selBit3, count);
    keep<std::int16_t>(delivered, "selBit4", data.selBit4, count);
    keep<std::int16_t>(delivered, "selBit5", data.selBit5, count);
    keep<std::int32_t>(delivered, "selBit6", data.selBit6, count);
    keep<std::int32_t>(delivered, "selBit7", data.selBit7, count);
    keep<std::int32_t>(delivered, "selBit8", data.selBit8, count);
    keep<std::int16_t>(delivered, "selBit9", data.selBit9, count);
    keep<std::int32_t>(delivered, "selBit10", data.selBit10, count);
    keep<std::int16_t>(delivered, "selBit11", data.selBit11, count);
    keep<std::int16_t>(delivered, "selBit12", data.selBit12, count);
    keep<std::int16_t>(delivered, "selBit13", data.selBit13, count);
    keep<std::int16_t>(delivered, "selBit14", data.selBit14, count);
    keep<std::int16_t>(delivered, "selBit15", data.selBit15, count);
    keep<std::int16_t>(delivered, "selBit16", data.selBit16, count);
    keep<std::uint64_t>(delivered, "selBit17", data.selBit17, count);
    keep<std::int16_t>(delivered, "selBit18", data.selBit18, count);
    keep<std::int16_t>(delivered, "selBit19", data.selBit19, count);
    keep<std::int16_t>(delivered, "selBit20", data.selBit20, count);
    keep<std::int32_t>(delivered, "selBit21", data.selBit21, count);
    keep<std::int16_t>(delivered, "selBit23", data.selBit23, count);
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Delivered& delivered)
{
    out << "{tag " << delivered.tag << " channel " << delivered.channel << " count " << delivered.count
        << " selectors " << std::hex << delivered.selectors << std::dec << " opt "
        << delivered.optHeaderAvailable << ' ' << delivered.optHeader << " end " << delivered.dataEnd;
    for (const auto& [name, values] : delivered.fields) {
        out << ' ' << name << '[';
        for (const std::int64_t value : values)
            out << value << ',';
        out << ']';
    }
    return out << '}';
}

std::string hex(const unsigned char* bytes, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(bytes), static_cast<int>(size)).toHex().toStdString();
}

void RecordingProcessor::SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute,
                                      bool optHeaderAvailable)
{
    const auto* const begin = reinterpret_cast<const unsigned char*>(attribute);
    Delivered one;
    std::size_t optHeaderLength = 0;
    const unsigned char* optHeader = nullptr;
    if (data->extHeader) {
        one.tag = data->extHeader->Tag();
        one.channel = data->extHeader->ChannelNumber();
        one.count = data->extHeader->Count();
        one.selectors = data->extHeader->SelectorFlags();
        optHeaderLength = data->extHeader->OptHeaderLength();
        optHeader = data->extOptHeader;
    } else {
        one.tag = attribute->Tag();
        one.channel = attribute->ChannelNumber();
        one.count = attribute->Count();
        one.selectors = attribute->SelectorFlags();
        optHeaderLength = attribute->OptHeaderLength();
        optHeader = attribute->OptHeader();
    }
    one.optHeaderAvailable = optHeaderAvailable;
    one.optHeader = hex(optHeader, std::min<std::size_t>(optHeaderLength, 80));
    if (data->dataEnd)
        one.dataEnd = data->dataEnd - begin;
    const std::size_t count = one.count & 0xFFFFU;
    if (one.tag == TAG_401)
        one.fields["selBit0"] = {reinterpret_cast<const unsigned char*>(data->selBit0) - begin};
    else if (one.tag == TAG_1301)
        keep<std::int32_t>(one, "selBit0", data->selBit0, count);
    else
        keepFields(one, *data, count);
    delivered.push_back(std::move(one));
}

RecordingDispatcher::RecordingDispatcher(bool ignoreChannel)
    : dispatcher(ignoreChannel)
{
    for (const std::uint16_t tag : wire::tag::known)
        dispatcher.RegisterTagProcessor(&recorder, static_cast<TRACE_TAG>(tag), 0);
}

std::vector<Delivered> RecordingDispatcher::process(const wire::Bytes& bytes)
{
    recorder.delivered.clear();
    dispatcher.ProcessDatagram(std::make_unique<UdpDatagram>(received(bytes)).release());
    return std::move(recorder.delivered);
}

std::unique_ptr<QByteArray> received(const wire::Bytes& bytes)
{
    auto array = std::make_unique<QByteArray>();
    array->reserve(static_cast<int>(bytes.size()) + 2);
    array->append(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()));
    return array;
}

} // namespace support
