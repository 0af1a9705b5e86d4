#pragma once

#include "ICISettings.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QMap>

namespace tvl {

struct NativeFunction
{
    QString name;
    ICISettings::Function handler = nullptr;
    void* userData = nullptr;
};

class ICISettingsPrivate
{
public:
    explicit ICISettingsPrivate(const QString& file)
        : file(file)
        , absoluteFile(QDir::cleanPath(QFileInfo(file).absoluteFilePath()))
        , files{absoluteFile}
    {
    }

    const QString file;
    const QString absoluteFile;
    bool sourceInMemory = false;
    // The text of every file read, kept until reload() or until no evaluation includes it.
    QMap<QString, QByteArray> texts;
    QString errorString;
    QVariantMap values;
    QStringList keys;
    QStringList files;
    QStringList missingFiles;
    QVariantMap presets;
    QList<NativeFunction> functions;
    qint64 instructionLimit = ICISettings::DefaultInstructionLimit;
    qint64 memoryLimit = ICISettings::DefaultMemoryLimit;
    qint64 timeLimit = ICISettings::DefaultTimeLimit;

    bool readMainFile();
    void setValues(const QVariantMap& newValues);
};

} // namespace tvl
