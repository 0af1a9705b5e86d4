#include "UpdaterPluginInfo.h"
#include "UpdaterPluginInfo_p.h"

#include "PluginCalls_p.h"
#include "UpdaterPlugin.h"

#include <basix/ICISettings.h>
#include <basix/Logger.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>

#include <QtCore/QSet>
#include <QtCore/QVector>

#include <algorithm>
#include <iterator>
#include <limits>
#include <numeric>

namespace tvl::updater {

namespace {

const QLatin1String DescriptorKeys[] = {
    QLatin1String("name"),      QLatin1String("autoload"), QLatin1String("soft_depends"),
    QLatin1String("depends"),   QLatin1String("required_by"), QLatin1String("replace"),
    QLatin1String("mandatory"), QLatin1String("data"),     QLatin1String("needGUI"),
    QLatin1String("unsafe"),
};

// Every record alive, so that no two of them ever hold one plugin object.
QSet<const UpdaterPluginInfoPrivate*> s_records;

int editDistance(const QString& a, const QString& b)
{
    QVector<int> previous(b.size() + 1);
    QVector<int> current(b.size() + 1);
    std::iota(previous.begin(), previous.end(), 0);
    for (qsizetype i = 1; i <= a.size(); ++i) {
        current[0] = int(i);
        for (qsizetype j = 1; j <= b.size(); ++j) {
            const int substitution = previous[j - 1] + (a.at(i - 1).toLower() == b.at(j - 1).toLower() ? 0 : 1);
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, substitution});
        }
        std::swap(previous, current);
    }
    return previous[b.size()];
}

/// The known key that `key` most likely misspells, or an empty string when none is close.
QString nearestDescriptorKey(const QString& key)
{
    QString nearest;
    int best = std::numeric_limits<int>::max();
    for (const QLatin1String& known : DescriptorKeys) {
        const int distance = editDistance(key, known);
        if (distance < best) {
            best = distance;
            nearest = known;
        }
    }
    // More than a third of the letters changed is another word, not a slip.
    return best <= qMax<qsizetype>(1, qMax(key.size(), nearest.size()) / 3) ? nearest : QString();
}

} // namespace

UpdaterPluginInfoPrivate::UpdaterPluginInfoPrivate(UpdaterPluginInfo* owner)
    : owner(owner)
{
    s_records.insert(this);
}

QString UpdaterPluginInfoPrivate::libraryFile() const
{
    return QStringLiteral("%1/lib%2.so").arg(path, name);
}

UpdaterPluginInfoPrivate::~UpdaterPluginInfoPrivate()
{
    s_records.remove(this);
    // The library stays mapped: a plugin object that still exists is deleted with this object
    // (its Qt parent), and code of the library may still be on the stack of the caller.
    if (plugin)
        plugin->deleteLater();
    delete loader;
}

bool UpdaterPluginInfoPrivate::read(const QString& file)
{
    descriptorFile = QFileInfo(file).absoluteFilePath();
    ICISettings settings(file);
    if (settings.hasError() || !settings.evaluate()) {
        TVL_LOG(Logger::Error) << settings.errorString();
        readError = settings.errorString();
        return false;
    }
    if (!settings.contains(QStringLiteral("name"))) {
        readError = UpdaterPluginInfo::tr("it sets no \"name\"");
        return false;
    }

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
    reportUnknownKeys(settings.keys());
    return true;
}

void UpdaterPluginInfoPrivate::reportUnknownKeys(const QStringList& keys) const
{
    QSet<QString> reported;
    for (const QString& key : keys) {
        const QString top = key.section(QLatin1Char('.'), 0, 0);
        if (std::find(std::begin(DescriptorKeys), std::end(DescriptorKeys), top) != std::end(DescriptorKeys)
            || reported.contains(top)) {
            continue;
        }
        reported.insert(top);
        const QString nearest = nearestDescriptorKey(top);
        if (nearest.isEmpty()) {
            TVL_LOG(Logger::Warning) << QStringLiteral("Unknown key '%1' in %2").arg(top, descriptorFile);
        } else {
            TVL_LOG(Logger::Warning)
                << QStringLiteral("Unknown key '%1' in %2: did you mean '%3'?").arg(top, descriptorFile, nearest);
        }
    }
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

    // An unload still waiting for its object's deletion ends now: the loader would otherwise hand
    // back that dying object as the new plugin, and unload the library under it afterwards.
    if (unloadPending) {
        delete dying.data();
        doUnload();
    }

    errorString.clear();
    QElapsedTimer timer;
    timer.start();
    // A loader kept from an unload without library unloading still holds the library: going
    // through it again keeps its loads and unloads balanced.
    if (!loader) {
        loader = new QPluginLoader(libraryFile());
        // Qt's loaders keep plugins mapped for good by default; an unloaded plugin must go. And a
        // library built against a newer launcher must be refused now, not die at its first call
        // of a function it lacks.
        loader->setLoadHints((loader->loadHints() & ~QLibrary::PreventUnloadHint) | QLibrary::ResolveAllSymbolsHint);
    }
    if (!loader->load()) {
        TVL_LOG(Logger::Error) << loader->errorString();
        errorString = UpdaterPluginInfo::tr("Cannot load %1: %2").arg(libraryFile(), loader->errorString());
    }

    // The plugin's constructor runs here, and may throw.
    QObject* instance = callGuarded(this, "its constructor", static_cast<QObject*>(nullptr),
                                    [this] { return loader->instance(); });
    libraryLoadTime = timer.nsecsElapsed() / 1000;
    auto* object = qobject_cast<UpdaterPlugin*>(instance);
    const auto holder = std::find_if(s_records.cbegin(), s_records.cend(), [object](const UpdaterPluginInfoPrivate* record) {
        return object && record->plugin == object;
    });
    if (object && holder == s_records.cend()) {
        object->m_extraData = data;
        object->setParent(this);
        plugin = object;
        loaded = true;
        return true;
    }

    if (object) {
        // The dynamic loader maps one file once, and Qt makes one root object per mapping: this
        // library is already loaded, under another name, through another path to the same file.
        const QString other = (*holder)->name;
        TVL_LOG(Logger::Error) << QStringLiteral("The library %1 of plugin %2 is already loaded as plugin %3")
                                      .arg(libraryFile(), name, other);
        errorString = UpdaterPluginInfo::tr("Its library %1 is already loaded as plugin %2.").arg(libraryFile(), other);
    } else {
        TVL_LOG(Logger::Error) << "Plugin instance is not an UpdaterPlugin";
        if (errorString.isEmpty()) {
            errorString = UpdaterPluginInfo::tr("%1 holds no plugin object (no class derived from UpdaterPlugin).")
                              .arg(libraryFile());
        }
        delete instance;
    }
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
        unloadPending = true;
        const quint64 generation = ++unloadGeneration;
        connect(
            plugin, &QObject::destroyed, this,
            [this, generation] {
                if (unloadPending && generation == unloadGeneration)
                    doUnload();
            },
            Qt::QueuedConnection);
        dying = plugin;
        plugin->deleteLater();
        plugin = nullptr;
    } else {
        Q_EMIT owner->unloaded();
    }
    return true;
}

void UpdaterPluginInfoPrivate::doUnload()
{
    unloadPending = false;
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

QString UpdaterPluginInfo::descriptorFile() const
{
    return d->descriptorFile;
}

QString UpdaterPluginInfo::libraryFile() const
{
    return d->libraryFile();
}

QString UpdaterPluginInfo::errorString() const
{
    return d->errorString;
}

bool UpdaterPluginInfo::isQuarantined() const
{
    return d->quarantined;
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
