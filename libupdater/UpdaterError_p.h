#pragma once

#include "UpdaterError.h"

namespace tvl::updater {

/// The content of every error built from texts and a code.
class LIBUPDATER_EXPORT UpdaterErrorPrivate : public IUpdaterErrorPrivate
{
public:
    UpdaterErrorPrivate() = default;
    UpdaterErrorPrivate(const QString& text, const QString& html, quint32 errorCode);
    ~UpdaterErrorPrivate() override;

    /// The text, or the html when no text was ever given (a null string; an empty one counts).
    QString text() const override;
    /// The html, or the text when the html is empty.
    QString html() const override;
    quint32 errorCode() const override;

private:
    QString m_text;
    QString m_html;
    quint32 m_errorCode = 0;
};

} // namespace tvl::updater
