// SPDX-License-Identifier: MIT
#pragma once
// The exception type of the application suite.
#include <QByteArray>
#include <QString>
#include <exception>

/// A failure, with the place where it was found.
class Q_DECL_EXPORT NQException : public std::exception {
public:
    /// `className` is the class that failed, `file` its source unit, `code` a number of the thrower's choice.
    NQException(const QString& reason, const QString& className, const QString& file, const QString& method,
                int line, unsigned int code = 0xFFFFFFFFU);

    /// What the thrower said: reason, class, source unit, method, line, and a code of its choice.
    [[nodiscard]] const QString& GetErrorReason() const { return m_reason; }
    [[nodiscard]] const QString& GetClassName() const { return m_className; }
    [[nodiscard]] const QString& GetFileName() const { return m_file; }
    [[nodiscard]] const QString& GetMethodName() const { return m_method; }
    [[nodiscard]] int GetLineNumber() const { return m_line; }
    [[nodiscard]] unsigned int GetErrorCode() const { return m_code; }

    /// The reason, in UTF-8.
    [[nodiscard]] const char* what() const noexcept override;

private:
    QString m_reason;
    QString m_className;
    QString m_file;
    QString m_method;
    int m_line;
    unsigned int m_code;
    QByteArray m_what;
};
