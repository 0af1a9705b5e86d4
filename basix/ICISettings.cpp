#include "ICISettings.h"

#include "DottedMap_p.h"
#include "ICISettings_p.h"
#include "ScriptEvaluation_p.h"
#include "ScriptText_p.h"

namespace tvl {

bool ICISettingsPrivate::readMainFile()
{
    QByteArray text;
    QString reason;
    if (!script::readScriptFile(absoluteFile, &text, &reason)) {
        errorString = QStringLiteral("%1: cannot read the file: %2").arg(absoluteFile, reason);
        return false;
    }
    texts.insert(absoluteFile, text);
    return true;
}

void ICISettingsPrivate::setValues(const QVariantMap& newValues)
{
    values = newValues;
    keys.clear();
    dottedLeafPaths(values, QString(), &keys);
}

ICISettings::ICISettings(const QString& file, QObject* parent)
    : QObject(parent)
    , d(new ICISettingsPrivate(file))
{
    d->readMainFile();
}

ICISettings::ICISettings(const QString& file, const QByteArray& source, QObject* parent)
    : QObject(parent)
    , d(new ICISettingsPrivate(file))
{
    d->sourceInMemory = true;
    d->texts.insert(d->absoluteFile, source);
}

ICISettings::~ICISettings() = default;

QString ICISettings::file() const
{
    return d->file;
}

bool ICISettings::hasError() const
{
    return !d->errorString.isEmpty();
}

QString ICISettings::errorString() const
{
    return d->errorString;
}

bool ICISettings::evaluate(bool keepValues, bool strict)
{
    if (!d->texts.contains(d->absoluteFile) && !d->readMainFile())
        return false;

    QVariantMap values;
    QStringList files;
    QString error;
    bool ok = false;
    {
        script::Evaluation evaluation(d.get(), keepValues, strict);
        ok = evaluation.run(&values, &files, &error);
        d->missingFiles = evaluation.missingFiles();
    }
    if (!ok) {
        d->errorString = error.isEmpty() ? QStringLiteral("%1: evaluation failed").arg(d->absoluteFile) : error;
        return false;
    }
    d->errorString.clear();
    d->setValues(values);
    d->files = files;
    // Texts of files that are no longer included are dropped; the rest stay for reload().
    for (auto it = d->texts.begin(); it != d->texts.end();) {
        if (files.contains(it.key()))
            ++it;
        else
            it = d->texts.erase(it);
    }
    return true;
}

bool ICISettings::reload()
{
    if (!d->sourceInMemory) {
        d->texts.remove(d->absoluteFile);
        if (!d->readMainFile())
            return false;
    }
    for (auto it = d->texts.begin(); it != d->texts.end();) {
        if (it.key() == d->absoluteFile) {
            ++it;
            continue;
        }
        QString reason;
        if (script::readScriptFile(it.key(), &*it, &reason)) {
            ++it;
        } else {
            // Read again, and reported, by the evaluation that still includes it.
            it = d->texts.erase(it);
        }
    }
    d->errorString.clear();
    return true;
}

QStringList ICISettings::files() const
{
    return d->files;
}

QStringList ICISettings::missingFiles() const
{
    return d->missingFiles;
}

QStringList ICISettings::keys() const
{
    return d->keys;
}

bool ICISettings::contains(const QString& key) const
{
    return value(key).isValid();
}

QVariant ICISettings::value(const QString& key, const QVariant& defaultValue) const
{
    // A variable may have a dot in its own name (_ENV["a.b"]).
    const auto exact = d->values.constFind(key);
    if (exact != d->values.cend())
        return *exact;
    if (!key.contains(QLatin1Char('.')))
        return defaultValue;
    const QVariant* found = findDotted(d->values, dottedPath(key));
    return found ? *found : defaultValue;
}

QVariantMap ICISettings::values() const
{
    return d->values;
}

void ICISettings::setValue(const QString& key, const QVariant& value)
{
    if (key.isEmpty())
        return;
    const DottedPath path = dottedPath(key);
    QVariantMap values = d->values;
    if (value.isValid()) {
        insertDotted(d->presets, path, value);
        insertDotted(values, path, value);
    } else {
        removeDotted(d->presets, path);
        removeDotted(values, path);
    }
    d->setValues(values);
}

void ICISettings::createFunction(const QString& name, Function handler, void* userData)
{
    d->functions.removeIf([&](const NativeFunction& function) { return function.name == name; });
    if (handler && !name.isEmpty())
        d->functions.append(NativeFunction{name, handler, userData});
}

void ICISettings::setInstructionLimit(qint64 instructions)
{
    d->instructionLimit = qMax<qint64>(0, instructions);
}

qint64 ICISettings::instructionLimit() const
{
    return d->instructionLimit;
}

void ICISettings::setMemoryLimit(qint64 bytes)
{
    d->memoryLimit = qMax<qint64>(0, bytes);
}

qint64 ICISettings::memoryLimit() const
{
    return d->memoryLimit;
}

void ICISettings::setTimeLimit(qint64 milliseconds)
{
    d->timeLimit = qMax<qint64>(0, milliseconds);
}

qint64 ICISettings::timeLimit() const
{
    return d->timeLimit;
}

} // namespace tvl
