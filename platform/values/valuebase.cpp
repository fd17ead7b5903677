// SPDX-License-Identifier: MIT
#include "values/valuebase.h"
#include <limits>

namespace values {

ValueBase::ValueBase(const QString& name)
    : m_name(name)
{}

ValueBase::~ValueBase() = default;

double ValueBase::ToNumber() const
{
    return std::numeric_limits<double>::quiet_NaN();
}

std::optional<Limits> ValueBase::GetLimits() const
{
    return std::nullopt;
}

bool ValueBase::SetText(const QString& /*text*/, IObserver* /*originator*/)
{
    return false;
}

} // namespace values
