// SPDX-License-Identifier: MIT
#pragma once
// The processor of zero-span traces.
#include "devicecontrol/vk410protocol/levelmapfillerimpl.h"
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "values/valuenumeric.h"
#include "values/valueptr.h"
#include <memory>

/// Brings zero-span traces, levels over time, into up to two level maps whose x axis is time, and publishes
/// the axis as the values ZeroSpan/XStart and ZeroSpan/XStop. Each trace is a whole sweep.
/// Owner:  shares of the fillers. Copies share the fillers and the values.
/// Thread: that of the dispatcher.
class Q_DECL_EXPORT MdpZeroSpan : public IMassDataProcessor {
public:
    /// `levelFiller` takes the field of selector bit 0, `bit23Filler` that of bit 23 in thousandths of full
    /// scale. A field whose filler is empty is skipped.
    MdpZeroSpan(std::shared_ptr<ILevelMapFiller> levelFiller, std::shared_ptr<ILevelMapFiller> bit23Filler);
    MdpZeroSpan(const MdpZeroSpan& other);
    MdpZeroSpan& operator=(const MdpZeroSpan& other);
    ~MdpZeroSpan() override;

    /// Binds the two values below `name`, and creates those that are missing.
    void Init(QString name) override;

    void SetAttribute(DataPointers* dp, UdpDatagramAttribute* attr, bool optHeaderAvailable) override;

private:
    using AxisValue = values::ValueNumeric<__int64, values::FormatInt64<__int64>,
                                           values::StreamFormat<__int64, values::FormatInt64<__int64>>>;

    // What the processor reads of the optional header, in host order.
    struct OptHeaderValues {
        qint64 xSpan = 0;
        qint64 xStart = 0;
        quint64 deviceStamp = 0;
    };

    class Current;

    static void bindAxis(values::ValuePtr<AxisValue>& handle, const QString& path);
    bool IsDataValid(DataPointers* dp, UdpDatagramAttribute* attr, bool optHeaderAvailable);
    void ReadOptionalHeader();
    void scaleToThousandths(short* items) const;
    void CreateAndSetChannelRangeDefinition(std::shared_ptr<ILevelMapFiller> filler, short* values);
    void rebuildGrid(ILevelMapFiller& filler);
    [[nodiscard]] quint64 mapStamp() const;

    std::shared_ptr<ILevelMapFiller> m_levelFiller;
    std::shared_ptr<ILevelMapFiller> m_bit23Filler;
    OptHeaderValues m_header;
    DataPointers* m_dataPointers = nullptr;
    UdpDatagramAttribute* m_attribute = nullptr;
    int m_depth = 0; // of calls inside each other
    values::ValuePtr<AxisValue> m_xStart;
    values::ValuePtr<AxisValue> m_xStop;
};
