#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QMetaType>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>

/// Value types of the update engine, carried by the signals of the engine's service interface.
namespace tvl::vantor {

/// Where an update of one project stands.
struct BASIX_EXPORT Progress
{
    enum Stage {
        Idle,
        Checking,
        Downloading,
        Patching,
        Verifying,
        Finishing
    };

    QString project;
    Stage stage = Idle;
    qint64 bytesDone = 0;
    qint64 bytesTotal = 0;        ///< 0 while unknown
    int filesDone = 0;
    int filesTotal = 0;           ///< 0 while unknown
    double bytesPerSecond = 0.0;
    qint64 secondsLeft = -1;      ///< -1 while unknown

    /// bytesDone / bytesTotal, clamped to 0..1; 0 while the total is unknown.
    double fraction() const;

    friend bool operator==(const Progress& a, const Progress& b)
    {
        return a.project == b.project && a.stage == b.stage && a.bytesDone == b.bytesDone
            && a.bytesTotal == b.bytesTotal && a.filesDone == b.filesDone
            && a.filesTotal == b.filesTotal && a.bytesPerSecond == b.bytesPerSecond
            && a.secondsLeft == b.secondsLeft;
    }
    friend bool operator!=(const Progress& a, const Progress& b) { return !(a == b); }
};

/// The outcome of updating one project.
struct BASIX_EXPORT UpdateResult
{
    QString project;
    bool success = false;
    QString version;            ///< the version installed now
    QString previousVersion;    ///< the version before the update
    QString errorString;        ///< why it failed; empty on success
    QStringList updatedFiles;   ///< paths relative to the project's directory
};

using UpdateResultPtr = QSharedPointer<UpdateResult>;

/**
 * Registers Progress and UpdateResultPtr with the meta-type system under the names
 * "tvl::vantor::Progress" and "tvl::vantor::UpdateResultPtr", so that they travel through
 * queued connections. Safe to call more than once.
 */
BASIX_EXPORT void registerMetaTypes();

} // namespace tvl::vantor

Q_DECLARE_METATYPE(tvl::vantor::Progress)
Q_DECLARE_METATYPE(tvl::vantor::UpdateResultPtr)
