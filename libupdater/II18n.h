#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QLocale>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tvl::updater {

/**
 * Translation services: the language of the user interface and the texts in it. The bundled
 * i18n plugin implements it over QTranslator and keeps the language on the setting
 * "i18n.lang"; the texts themselves are translated by tr() as usual.
 */
class LIBUPDATER_EXPORT II18n : public QObject
{
    Q_OBJECT

public:
    explicit II18n(QObject* parent = nullptr);
    ~II18n() override;

    /// The code of the language whose texts are installed, such as "en" or "de".
    virtual QString language() const = 0;
    /**
     * Switches the user interface to `language`; false, and nothing changes, when it is not
     * available. The switch may complete after the call returns: the texts change (and
     * QEvent::LanguageChange reaches the widgets) once the translations are loaded.
     */
    virtual bool setLanguage(const QString& language) = 0;
    /// The language codes that translations exist for.
    virtual QStringList availableLanguages() const = 0;
    /// The locale of the current language, for numbers, dates and sizes.
    virtual QLocale locale() const = 0;
    /// `text` translated into the current language, or `text` itself when there is no
    /// translation; `context` is the translation context (usually the class name).
    virtual QString translate(const QString& context, const QString& text) const = 0;
};

} // namespace tvl::updater
