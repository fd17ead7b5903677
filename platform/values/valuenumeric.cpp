// SPDX-License-Identifier: MIT
#include "values/valuenumeric.h"

namespace values {

template class ValueNumeric<int>;
template class ValueNumeric<qint64>;
template class ValueNumeric<double>;

ValueNumericWithOffset::ValueNumericWithOffset(const QString& name, double value, double offset)
    : ValueNumeric<double>(name, value)
    , m_offset(isNumber(offset) ? offset : 0.0)
{}

void ValueNumericWithOffset::SetOffset(double offset, IObserver* originator)
{
    if (!isNumber(offset) || offset == m_offset)
        return;
    m_offset = offset;
    HasChanged(changecode::valueChanged, originator);
}

} // namespace values
