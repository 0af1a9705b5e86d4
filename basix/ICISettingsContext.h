#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace tvl {

/**
 * What a native script function (ICISettings::createFunction) gets for one call: the
 * arguments converted to QVariants, the script file and line of the call, and the user data
 * given at registration. A function that cannot work with its arguments calls
 * setErrorMessage(): the script then stops with "file:line: message" at the calling line, and
 * the function's return value is ignored.
 */
class BASIX_EXPORT ICISettingsContext
{
public:
    ICISettingsContext(const QList<QVariant>& args, const QString& file, int line,
                       void* userData = nullptr);

    const QList<QVariant>& args() const { return m_args; }
    /// The absolute path of the script file that makes the call.
    QString file() const { return m_file; }
    /// The line of the call in file().
    int line() const { return m_line; }
    void* userData() const { return m_userData; }

    /// Fails the call with `message`; the last message set wins.
    void setErrorMessage(const QString& message);
    QString errorMessage() const { return m_errorMessage; }
    bool hasError() const { return !m_errorMessage.isNull(); }

private:
    QList<QVariant> m_args;
    QString m_file;
    int m_line;
    void* m_userData;
    QString m_errorMessage;
};

} // namespace tvl
