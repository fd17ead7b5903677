// SPDX-License-Identifier: MIT
#pragma once
// The report about datagrams that are missing between two sequence numbers.
#include <QString>
#include <QtGlobal>

/// Units: sequence numbers in host order.
/// Result: counted in 32 bits without wrapping: a jump backwards gives a negative number, "from" may be 65536
/// and "to" -1.
[[nodiscard]] inline QString datagramLossText(quint16 last, quint16 current)
{
    const int from = last + 1;
    const int to = current - 1;
    return QString::number(to - last) + QStringLiteral(" Datagrams from ") + QString::number(from) +
           QStringLiteral(" to ") + QString::number(to) + QStringLiteral("LOST !!!\n");
}
