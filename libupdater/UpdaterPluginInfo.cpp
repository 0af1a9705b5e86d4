#include "UpdaterPluginInfo.h"
#include "UpdaterPluginInfo_p.h"

#include "UpdaterPlugin.h"

#include <basix/ICISettings.h>
#include <basix/Logger.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace tvl::updater {

UpdaterPluginInfoPrivate::UpdaterPluginInfoPrivate(UpdaterPluginInfo* owner)
    : owner(owner)
{
}

UpdaterPluginInfoPrivate::~UpdaterPluginInfoPrivate()
{
    // The library stays mapped: a plugin object that still exists is deleted with this object
    // (its Qt parent), and code of the library may still be on the stack of the caller.
    if (plugin)
        plugin->deleteLater();
    delete loader;
}

bool UpdaterPluginInfoPrivate::read(const QString& file)
{
    ICISettings settings(file);
    if (settings.hasError() || !settings.evaluate()) {
        TVL_LOG(Logger::Error) << settings.errorString();
        return false;
    }
    if (!settings.contains(QStringLiteral("name")))
        return false;

    name = settings.value(QStringLiteral("name"), QString()).toString();
    autoload = settings.value(QStringLiteral("autoload"), true).toBool();
    softDepends = settings.value(QStringLiteral("soft_depends"), QStringList()).toStringList();
    depends = settings.value(QStringLiteral("depends"), QStringList()).toStringList();
    requiredBy = settings.value(QStringLiteral("required_by"), QStringList()).toStringList();
    replace = settings.value(QStringLiteral("replace"), QStringList()).toStringList();
    path = QFileInfo(file).absolutePath();
    mandatory = settings.value(QStringLiteral("mandatory"), false).toBool();
    data = settings.value(QStringLiteral("data"), QVariant());
    needGUI = settings.value(QStringLiteral("needGUI"), false).toBool();
    unsafe = settings.value(QStringLiteral("unsafe"), false).toBool();
    return true;
}

bool UpdaterPluginInfoPrivate::resolveDependencies(QList<UpdaterPluginInfo*>& all)
{
    // Hard dependencies first, then soft ones. A plugin of the name ends the walk; every plugin
    // replacing the name met before it is recorded too, as a soft entry.
    for (const bool hard : {true, false}) {
        for (const QString& dependency : std::as_const(hard ? depends : softDepends)) {
            TVL_LOG(Logger::Notice)
                << (hard ? QStringLiteral("Plugin %1 depends on %2")
                         : QStringLiteral("Plugin %1 should be loaded before %2"))
                       .arg(name, dependency);
            bool found = false;
            for (UpdaterPluginInfo* other : std::as_const(all)) {
                const UpdaterPluginInfoPrivate* candidate = get(other);
                if (candidate->name == dependency) {
                    dependencies.insert(other, hard);
                    found = true;
                    break;
                }
                if (candidate->replace.contains(dependency)) {
                    TVL_LOG(Logger::Info)
                        << QStringLiteral("\t=> Plugin %1 depends on %2").arg(name, candidate->name);
                    dependencies.insert(other, false);
                    found = true;
                }
            }
            if (hard && !found) {
                TVL_LOG(Logger::Warning) << QStringLiteral("Plugin %1 not found").arg(dependency);
                return false;
            }
        }
    }

    for (UpdaterPluginInfo* other : std::as_const(all)) {
        UpdaterPluginInfoPrivate* target = get(other);
        const bool isTarget = requiredBy.contains(target->name)
            || std::any_of(target->replace.cbegin(), target->replace.cend(),
                           [this](const QString& replaced) { return requiredBy.contains(replaced); });
        if (!isTarget)
            continue;
        TVL_LOG(Logger::Info) << QStringLiteral("Injecting dependency '%1' in '%2'").arg(name, target->name);
        // Not when the target already depends on us, nor when we depend on the target: that
        // would be a cycle.
        if (!target->depends.contains(name) && !depends.contains(target->name))
            target->dependencies.insert(owner, false);
    }
    return true;
}

bool UpdaterPluginInfoPrivate::loadPlugin()
{
    if (loaded)
        return true;

    QElapsedTimer timer;
    timer.start();
    // A loader kept from an unload without library unloading still holds the library: going
    // through it again keeps its loads and unloads balanced.
    if (!loader) {
        loader = new QPluginLoader(QStringLiteral("%1/lib%2.so").arg(path, name));
        // Qt's loaders keep plugins mapped for good by default; an unloaded plugin must go.
        loader->setLoadHints(loader->loadHints() & ~QLibrary::PreventUnloadHint);
    }
    if (!loader->load())
        TVL_LOG(Logger::Error) << loader->errorString();

    QObject* instance = loader->instance();
    libraryLoadTime = timer.nsecsElapsed() / 1000;
    if (auto* object = qobject_cast<UpdaterPlugin*>(instance)) {
        object->m_extraData = data;
        object->setParent(this);
        plugin = object;
        loaded = true;
        return true;
    }

    TVL_LOG(Logger::Error) << "Plugin instance is not an UpdaterPlugin";
    delete instance;
    loader->unload();
    delete loader;
    loader = nullptr;
    return false;
}

bool UpdaterPluginInfoPrivate::unloadPlugin(bool unloadLibrary)
{
    if (!loaded)
        return true;
    loaded = false;
    this->unloadLibrary = unloadLibrary;
    if (plugin) {
        connect(plugin, &QObject::destroyed, this, &UpdaterPluginInfoPrivate::doUnload,
                Qt::ConnectionType(Qt::QueuedConnection | Qt::UniqueConnection));
        plugin->deleteLater();
        plugin = nullptr;
    } else {
        Q_EMIT owner->unloaded();
    }
    return true;
}

void UpdaterPluginInfoPrivate::doUnload()
{
    // Without library unloading (the host is closing down) the loader stays with the record.
    if (unloadLibrary && loader) {
        // Records queued by the logger may still point at the library's static strings.
        Logger::instance()->flush();
        if (!loader->unload())
            TVL_LOG(Logger::Warning) << "Can not unload" << name;
        delete loader;
        loader = nullptr;
    }
    Q_EMIT owner->unloaded();
}

UpdaterPluginInfo::UpdaterPluginInfo()
    : d(new UpdaterPluginInfoPrivate(this))
{
}

UpdaterPluginInfo::~UpdaterPluginInfo()
{
    d->unloadPlugin(true);
    delete d;
}

QString UpdaterPluginInfo::name() const
{
    return d->name;
}

UpdaterPlugin* UpdaterPluginInfo::plugin() const
{
    return d->plugin;
}

bool UpdaterPluginInfo::isLoaded() const
{
    return d->loaded;
}

bool UpdaterPluginInfo::autoLoad() const
{
    return d->autoload;
}

bool UpdaterPluginInfo::needGUI() const
{
    return d->needGUI;
}

bool UpdaterPluginInfo::unsafe() const
{
    return d->unsafe;
}

bool UpdaterPluginInfo::isMandatory() const
{
    return d->mandatory;
}

QStringList UpdaterPluginInfo::replacedPlugins() const
{
    return d->replace;
}

QString UpdaterPluginInfo::path() const
{
    return d->path;
}

QStringList UpdaterPluginInfo::dependencies() const
{
    return d->depends;
}

QStringList UpdaterPluginInfo::softDependencies() const
{
    return d->softDepends;
}

QStringList UpdaterPluginInfo::requiredBy() const
{
    return d->requiredBy;
}

QList<QPair<QString, bool>> UpdaterPluginInfo::resolvedDependencies() const
{
    QList<QPair<QString, bool>> resolved;
    for (auto it = d->dependencies.cbegin(); it != d->dependencies.cend(); ++it)
        resolved.append(qMakePair(it.key()->name(), it.value()));
    return resolved;
}

qint64 UpdaterPluginInfo::libraryLoadTime() const
{
    return d->libraryLoadTime;
}

qint64 UpdaterPluginInfo::initTime() const
{
    return d->initTime;
}

} // namespace tvl::updater
