#pragma once

#include <QtCore/QString>

#include <exception>

QT_BEGIN_NAMESPACE
class QObject;
QT_END_NAMESPACE

namespace tvl::updater {

/**
 * The name the host knows the plugin owning `object` by: the name of the record of the plugin
 * object that is `object` or one of its ancestors; else the class name of `object`.
 */
QString pluginNameOf(const QObject* object);

/// Logs at level 5 that the plugin of `object` let an exception out of `operation`; `what` is
/// the exception's text, or null when it is no std::exception.
void reportPluginException(const QObject* object, const char* operation, const char* what) noexcept;

/**
 * Runs `call`, which enters a plugin's code, so that nothing the plugin throws reaches the
 * host: an exception is logged and the result is false.
 */
template<typename Call>
bool runGuarded(const QObject* plugin, const char* operation, Call&& call) noexcept
{
    try {
        call();
        return true;
    } catch (const std::exception& exception) {
        reportPluginException(plugin, operation, exception.what());
    } catch (...) {
        reportPluginException(plugin, operation, nullptr);
    }
    return false;
}

/// runGuarded() for a call with a result: `failed` stands for the result of a call that threw.
template<typename Result, typename Call>
Result callGuarded(const QObject* plugin, const char* operation, Result failed, Call&& call) noexcept
{
    Result result = failed;
    if (!runGuarded(plugin, operation, [&] { result = call(); }))
        return failed;
    return result;
}

} // namespace tvl::updater
