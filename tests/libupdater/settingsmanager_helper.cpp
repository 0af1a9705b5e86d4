// Builds the full settings stack over this process's own command line and prints what it
// reads, one line per read:
//
//   get <key> <value>       the manager's answer with AllScopes
//   cmd <key> <value>       the command-line provider's own answer, after a write and a
//                           clear() on it
//   keys <k1>|<k2>|...      the manager's keys() with AllScopes
//
// A value is printed as "invalid", "null" (a null string), "string:<text>" or
// "<type>:<text>". The keys to read come from SETTINGS_HELPER_KEYS (separated by ","), the
// INI file of the persistent layer from SETTINGS_HELPER_INI.
#include <libupdater/CommandlineSettingsProvider.h>
#include <libupdater/IniSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>

using namespace tvl::updater;

namespace {

QString describe(const QVariant& value)
{
    if (!value.isValid())
        return QStringLiteral("invalid");
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        return text.isNull() ? QStringLiteral("null") : QStringLiteral("string:") + text;
    }
    return QString::fromLatin1(value.typeName()) + QLatin1Char(':') + value.toString();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);

    MemorySettingsProvider runtime(nullptr);
    runtime.setSetting(QStringLiteral("rt"), QStringLiteral("runtime"));
    runtime.setSetting(QStringLiteral("nulled"), QString());
    runtime.setSetting(QStringLiteral("emptied"), QStringLiteral(""));

    MemorySettingsProvider script(nullptr, ISettingsProvider::IciProvider);
    for (const char* key : {"all", "rt", "nulled", "emptied", "ini"})
        script.setSetting(QLatin1String(key), QStringLiteral("ici"));

    CommandlineSettingsProvider commandline(nullptr);
    IniSettingsProvider ini(qEnvironmentVariable("SETTINGS_HELPER_INI"),
                            ISettingsProvider::PersistentProvider, nullptr);

    // Added in an order unlike the order of consultation.
    UpdaterSettingsManager manager;
    manager.addProvider(&script);
    manager.addProvider(&ini);
    manager.addProvider(&commandline);
    manager.addProvider(&runtime);

    QTextStream out(stdout);
    const QStringList keys = qEnvironmentVariable("SETTINGS_HELPER_KEYS").split(QLatin1Char(','));
    for (const QString& key : keys)
        out << "get " << key << ' ' << describe(manager.getSetting(key, AllScopes)) << '\n';
    for (const QString& key : keys) {
        commandline.setSetting(key, QStringLiteral("written"));
        commandline.clear();
        out << "cmd " << key << ' ' << describe(commandline.getSetting(key)) << '\n';
    }
    out << "keys " << manager.keys(AllScopes).join(QLatin1Char('|')) << '\n';
    return 0;
}
