// SPDX-License-Identifier: MIT
#include "nqbase/tavoos.h"
#include <chrono>
#include <mutex>
#include <utility>

ITavoOS::~ITavoOS() = default;

namespace {

class SystemLayer final : public ITavoOS {
public:
    [[nodiscard]] quint64 GetCurrentTimeStamp() const override
    {
        const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
        return static_cast<quint64>(
            std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count());
    }
};

struct LayerHolder {
    std::mutex mutex;
    std::shared_ptr<ITavoOS> layer = std::make_shared<SystemLayer>();
};

LayerHolder& layerHolder()
{
    static LayerHolder holder;
    return holder;
}

} // namespace

std::shared_ptr<ITavoOS> TavoOS::Create()
{
    LayerHolder& holder = layerHolder();
    const std::lock_guard lock{holder.mutex};
    return holder.layer;
}

std::shared_ptr<ITavoOS> TavoOS::Install(std::shared_ptr<ITavoOS> layer)
{
    if (!layer)
        layer = std::make_shared<SystemLayer>();
    LayerHolder& holder = layerHolder();
    const std::lock_guard lock{holder.mutex};
    return std::exchange(holder.layer, std::move(layer));
}
