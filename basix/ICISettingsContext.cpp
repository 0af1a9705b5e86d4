#include "ICISettingsContext.h"

namespace tvl {

ICISettingsContext::ICISettingsContext(const QList<QVariant>& args, const QString& file, int line,
                                       void* userData)
    : m_args(args)
    , m_file(file)
    , m_line(line)
    , m_userData(userData)
{
}

void ICISettingsContext::setErrorMessage(const QString& message)
{
    // An empty message still fails the call; keep it distinguishable from "no error".
    m_errorMessage = message.isNull() ? QString(QLatin1String("")) : message;
}

} // namespace tvl
