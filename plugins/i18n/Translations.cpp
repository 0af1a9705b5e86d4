#include "Translations.h"

#include <basix/Logger.h>

#include <libupdater/Updater.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QThread>
#include <QtCore/QTranslator>

#include <memory>

using namespace tvl;
using namespace tvl::updater;

namespace {

/// The language of the texts in the sources.
QString sourceLanguage()
{
    return QStringLiteral("en");
}

/// "fr" of "console_fr.qm", "pt_BR" of "console_pt_BR.qm".
QString languageOfFile(const QString& fileName)
{
    return QFileInfo(fileName).completeBaseName().section(QLatin1Char('_'), 1);
}

QStringList translationFiles(const QDir& directory)
{
    return directory.entryList(QStringList{QStringLiteral("*.qm")}, QDir::Files | QDir::Readable, QDir::Name);
}

} // namespace

/// Every file of one language as one translator: each file is asked in turn.
class TranslatorSet : public QTranslator
{
public:
    static std::unique_ptr<TranslatorSet> load(const QString& directory, const QString& language)
    {
        std::unique_ptr<TranslatorSet> set(new TranslatorSet(language));
        const QDir dir(directory);
        for (const QString& file : translationFiles(dir)) {
            if (languageOfFile(file) != language)
                continue;
            auto* part = new QTranslator(set.get());
            if (part->load(dir.filePath(file)))
                set->m_parts.append(part);
            else
                TVL_LOG(Logger::Warning) << "Cannot read the translations" << dir.filePath(file);
        }
        return set;
    }

    QString code() const { return m_code; }
    qsizetype size() const { return m_parts.size(); }

    QString translate(const char* context, const char* sourceText, const char* disambiguation, int n) const override
    {
        for (const QTranslator* part : m_parts) {
            const QString text = part->translate(context, sourceText, disambiguation, n);
            if (!text.isNull())
                return text;
        }
        return QString();
    }

    // The application announces a translator (QEvent::LanguageChange) only when it is not empty.
    bool isEmpty() const override
    {
        return std::all_of(m_parts.cbegin(), m_parts.cend(), [](const QTranslator* part) { return part->isEmpty(); });
    }

private:
    explicit TranslatorSet(const QString& code)
        : m_code(code)
    {
    }

    const QString m_code;
    QList<QTranslator*> m_parts;
};

Translations::Translations(const QString& directory, QObject* parent)
    : II18n(parent)
    , m_directory(directory)
    , m_language(sourceLanguage())
{
    setObjectName(QStringLiteral("i18n"));
    m_available.append(sourceLanguage());
    for (const QString& file : translationFiles(QDir(directory))) {
        const QString language = languageOfFile(file);
        if (!language.isEmpty() && !m_available.contains(language))
            m_available.append(language);
    }
    m_available.sort();
    m_loader.setMaxThreadCount(1);
}

Translations::~Translations()
{
    // The loads still running use this library's code, which goes away with the plugin.
    m_loader.waitForDone();
    if (m_installed) {
        QCoreApplication::removeTranslator(m_installed);
        QTranslator* current = tv_default_translator(m_previousDefault);
        if (current != m_installed)
            tv_default_translator(current);
        delete m_installed;
    }
}

QString Translations::language() const
{
    return m_language;
}

bool Translations::setLanguage(const QString& language)
{
    const QString code = offered(language);
    if (code.isEmpty())
        return false;
    m_wanted = code;
    if (code == m_language && m_installed)
        return true;
    QThread* const mainThread = thread();
    m_loader.start([this, directory = m_directory, code, mainThread] {
        std::unique_ptr<TranslatorSet> loaded = TranslatorSet::load(directory, code);
        loaded->moveToThread(mainThread);
        QMetaObject::invokeMethod(
            this,
            [this, loaded = std::move(loaded)]() mutable {
                // A later switch may have been asked for while this one loaded.
                if (loaded->code() == m_wanted)
                    install(loaded.release());
            },
            Qt::QueuedConnection);
    });
    return true;
}

QStringList Translations::availableLanguages() const
{
    return m_available;
}

QLocale Translations::locale() const
{
    return QLocale(m_country.isEmpty() ? m_language : m_language + QLatin1Char('_') + m_country);
}

QString Translations::translate(const QString& context, const QString& text) const
{
    return QCoreApplication::translate(context.toUtf8().constData(), text.toUtf8().constData());
}

bool Translations::setLanguageNow(const QString& language)
{
    const QString code = offered(language);
    if (code.isEmpty())
        return false;
    m_wanted = code;
    if (code != m_language || !m_installed)
        install(TranslatorSet::load(m_directory, code).release());
    return true;
}

void Translations::setCountry(const QString& country)
{
    m_country = country.trimmed().toUpper();
}

QString Translations::offered(const QString& language) const
{
    QString code = language.trimmed();
    code.replace(QLatin1Char('-'), QLatin1Char('_'));
    const QString base = code.section(QLatin1Char('_'), 0, 0).toLower();
    const QString country = code.section(QLatin1Char('_'), 1).toUpper();
    code = country.isEmpty() ? base : base + QLatin1Char('_') + country;
    if (m_available.contains(code))
        return code;
    return m_available.contains(base) ? base : QString();
}

void Translations::install(TranslatorSet* translations)
{
    // The new texts go in before the old ones go out, so that every QEvent::LanguageChange
    // that the two steps send finds them in place.
    QCoreApplication::installTranslator(translations);
    if (m_installed) {
        QCoreApplication::removeTranslator(m_installed);
        delete m_installed;
    }
    QTranslator* previous = tv_default_translator(translations);
    if (!m_installed)
        m_previousDefault = previous;
    m_installed = translations;
    m_language = translations->code();
    TVL_LOG(Logger::Notice) << "Language" << m_language << "from" << translations->size() << "file(s) in" << m_directory;
}
