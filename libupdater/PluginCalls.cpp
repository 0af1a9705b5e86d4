#include "PluginCalls_p.h"

#include "Updater.h"
#include "UpdaterPlugin.h"
#include "UpdaterPluginInfo_p.h"

#include <basix/Logger.h>

namespace tvl::updater {

QString pluginNameOf(const QObject* object)
{
    for (const QObject* current = object; current; current = current->parent()) {
        if (qobject_cast<const UpdaterPlugin*>(current)) {
            if (const auto* record = qobject_cast<const UpdaterPluginInfoPrivate*>(current->parent()))
                return record->name;
        }
    }
    return object ? QString::fromLatin1(object->metaObject()->className()) : QString();
}

void reportPluginException(const QObject* object, const char* operation, const char* what) noexcept
{
    try {
        const QString text = what ? QString::fromLocal8Bit(what) : QStringLiteral("an exception that is no std::exception");
        TVL_LOG(Logger::Error) << QStringLiteral("Plugin %1 threw an exception in %2: %3")
                                      .arg(pluginNameOf(object), QLatin1String(operation), text);
    } catch (...) {
        // Out of memory while reporting: the exception is dropped all the same.
    }
}

void tv_log_plugin_exception(const QObject* object, const char* operation, const char* what)
{
    reportPluginException(object, operation, what);
}

} // namespace tvl::updater
