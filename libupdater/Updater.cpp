#include "Updater.h"

#include <basix/Console.h>
#include <basix/Logger.h>
#include <basix/SimpleCommandLineParser.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QStyle>

#include <iterator>
#include <optional>

#include <sys/prctl.h>

namespace tvl::updater {

const char* const UPDATER_VERSION = UPDATER_PROJECT_VERSION;
const char* const UPDATER_REVISION = "4e83d23";
const char* const UPSETTING_UPDATER_VERSION = "UPDATER_VERSION";
const char* const UPSETTING_UPDATER_REVISION = "UPDATER_REVISION";

namespace {

// Process-wide state, touched from the main thread only (tv_updater_args() aside).
QString s_applicationPath;
QString s_userPreferencesPath;
QString s_systemStyle;
QTranslator* s_defaultTranslator = nullptr;

// Absent until tv_restart_updater() records a command, and again once it has been launched.
std::optional<QStringList> s_restartCommand;

// Indexed by DesktopServices::StandardLocation, in its order.
constexpr QStandardPaths::StandardLocation StandardLocations[] = {
    QStandardPaths::DesktopLocation,
    QStandardPaths::DocumentsLocation,
    QStandardPaths::FontsLocation,
    QStandardPaths::ApplicationsLocation,
    QStandardPaths::MusicLocation,
    QStandardPaths::MoviesLocation,
    QStandardPaths::PicturesLocation,
    QStandardPaths::TempLocation,
    QStandardPaths::HomeLocation,
    QStandardPaths::GenericDataLocation,  // DataLocation: the one shared by all applications
    QStandardPaths::GenericCacheLocation, // CacheLocation: likewise
};
static_assert(std::size(StandardLocations) == DesktopServices::CacheLocation + 1);

} // namespace

void tv_set_application_path(const QString& path)
{
    s_applicationPath = path;
}

QString tv_application_path()
{
    return s_applicationPath;
}

void tv_set_user_preferences_path(const QString& path)
{
    s_userPreferencesPath = path;
}

QString tv_user_preferences_path()
{
    return s_userPreferencesPath;
}

QString tv_default_path(int location)
{
    const QString organizationName = QCoreApplication::organizationName();
    const QString applicationName = QCoreApplication::applicationName();
    QCoreApplication::setOrganizationName(QString());
    QCoreApplication::setApplicationName(QString());

    QString path;
    if (location >= 0 && location < int(std::size(StandardLocations)))
        path = QStandardPaths::writableLocation(StandardLocations[location]);
    while (path.endsWith(QLatin1Char('/')))
        path.chop(1);

    QCoreApplication::setOrganizationName(organizationName);
    QCoreApplication::setApplicationName(applicationName);
    return path;
}

void tv_set_application_name(const QString& name)
{
    const QByteArray processName = QString(name).remove(QLatin1Char(' '), Qt::CaseSensitive).toLocal8Bit();
    ::prctl(PR_SET_NAME, processName.constData(), 0, 0, 0);
}

SimpleCommandLineParser* tv_updater_args()
{
    static SimpleCommandLineParser parser(QCoreApplication::arguments());
    return &parser;
}

QString tv_system_style()
{
    if (s_systemStyle.isEmpty() && qobject_cast<QApplication*>(QCoreApplication::instance()))
        s_systemStyle = QApplication::style()->objectName();
    return s_systemStyle;
}

QTranslator* tv_default_translator(QTranslator* translator)
{
    QTranslator* previous = s_defaultTranslator;
    s_defaultTranslator = translator;
    return previous;
}

bool tv_restart_updater(const QStringList& arguments, bool keepCurrentArguments)
{
    if (!s_restartCommand)
        s_restartCommand.emplace();
    QStringList& command = *s_restartCommand;
    command.clear();

    if (keepCurrentArguments)
        command += QCoreApplication::arguments().mid(1);
    command.append(QStringLiteral("--restart"));
    command += arguments;
    command.prepend(s_applicationPath.isEmpty() ? QCoreApplication::applicationFilePath()
                                                : s_applicationPath);

    TVL_LOG(Logger::Notice) << command.join(QStringLiteral("   "));
    qAddPostRoutine(do_restart_updater);
    return true;
}

void do_restart_updater()
{
    TVL_LOG(Logger::Debug) << "do_restart_updater()";
    if (!s_restartCommand)
        return;

    QStringList command = *s_restartCommand;
    s_restartCommand.reset();
    // Post routines run last-registered first, so the marker would still be there when the new
    // process looks for it: it goes now, or the new process reports a crash.
    if (tv_crash_marker_owned())
        tv_cleanup_crash_handler();
    TVL_LOG(Logger::Debug) << command.join(QLatin1Char('|'));
    if (!command.isEmpty()) {
        const QString program = command.takeFirst();
        QProcess::startDetached(program, command);
    }
}

void tv_display_critical_error(const QString& title, const QString& text, const QString& details)
{
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        Console::pprint(QStringLiteral("FATAL: [%1] %2\n").arg(title, text), Console::StandardOutput,
                        Console::DefaultColor, Console::NoStyle);
        return;
    }

    auto* box = new QMessageBox;
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setFocus(Qt::OtherFocusReason);
    box->setTextFormat(Qt::PlainText);
    box->setIcon(QMessageBox::Critical);
    box->setWindowTitle(title);
    box->setText(text);
    if (!details.isEmpty())
        box->setInformativeText(details);
    box->addButton(QObject::tr("Quit"), QMessageBox::RejectRole);
    // exec() deletes the box on its way out (WA_DeleteOnClose).
    box->exec();
}

} // namespace tvl::updater
