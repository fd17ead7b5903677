// SPDX-License-Identifier: MIT
#include "nqbase/nqexception.h"

NQException::NQException(const QString& reason, const QString& className, const QString& file,
                         const QString& method, int line, unsigned int code)
    : m_reason(reason)
    , m_className(className)
    , m_file(file)
    , m_method(method)
    , m_line(line)
    , m_code(code)
    , m_what(reason.toUtf8())
{}

const char* NQException::what() const noexcept
{
    return m_what.constData();
}
