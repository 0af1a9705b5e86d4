#pragma once

#include <libupdater/II18n.h>

#include <QtCore/QThreadPool>

QT_BEGIN_NAMESPACE
class QTranslator;
QT_END_NAMESPACE

class TranslatorSet;

/**
 * The translations of one directory of compiled Qt Linguist files named <domain>_<lang>.qm
 * (the domain without "_", the language as "fr" or "pt_BR"): the languages offered are those
 * of the files, and English, the language of the sources, always.
 *
 * One language is installed at a time, as one translator that answers from all its files.
 * A switch loads the new files on a worker thread and then swaps the translators on the
 * main thread, so that QEvent::LanguageChange reaches the application and its widgets with
 * the new texts already in place.
 */
class Translations : public tvl::updater::II18n
{
    Q_OBJECT

public:
    explicit Translations(const QString& directory, QObject* parent = nullptr);
    /// Uninstalls the translations: the texts fall back to English.
    ~Translations() override;

    /// The language whose texts are installed ("en" before any switch).
    QString language() const override;
    /// Starts the switch to `language` (or to its base language, "fr" for "fr_CA"); false, and
    /// nothing changes, when neither is offered. The texts change once the files are loaded.
    bool setLanguage(const QString& language) override;
    QStringList availableLanguages() const override;
    /// The language, with the country of setCountry() when there is one.
    QLocale locale() const override;
    QString translate(const QString& context, const QString& text) const override;

    /// Switches to `language` at once, loading its files on this thread; false as setLanguage().
    bool setLanguageNow(const QString& language);
    /// The country ("FR", "CA") that locale() adds to the language; empty for none.
    void setCountry(const QString& country);

private:
    QString offered(const QString& language) const;
    void install(TranslatorSet* translations);

    const QString m_directory;
    QStringList m_available;
    QString m_language;
    QString m_country;
    /// The language of the latest switch asked for; loads of earlier ones are dropped.
    QString m_wanted;
    TranslatorSet* m_installed = nullptr;
    QTranslator* m_previousDefault = nullptr;
    QThreadPool m_loader;
};
