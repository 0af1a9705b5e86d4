#pragma once

#include <vantor/VantorExport.h>

#include <QtCore/QMetaType>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>

/// Value types of the update engine, carried by the signals of the engine's service interface.
namespace tvl::vantor {

/**
 * Why an operation failed. The numbers are stable: the launcher maps each kind to an error
 * number of its own, and the `vantor` tool exits with them.
 */
enum class ErrorCode {
    NoError = 0,
    InvalidArguments = 2,     ///< a parameter is missing or malformed
    NetworkError = 3,         ///< the repository could not be reached, even after retries
    ServerError = 4,          ///< the server answered with an HTTP error
    BadSignature = 5,         ///< the release record's signature does not verify
    UnknownKey = 6,           ///< the release record is signed by a key that is not trusted
    RollbackAttack = 7,       ///< the record is older than one this install already accepted
    ExpiredRecord = 8,        ///< the record's validity ended (a frozen repository)
    HashMismatch = 9,         ///< a record, manifest, chunk or file is not what was signed
    PathEscape = 10,          ///< the manifest names a path outside the install directory
    DiskFull = 11,
    PermissionDenied = 12,
    Locked = 13,              ///< another process works on the install directory
    Cancelled = 14,
    NotInstalled = 15,
    CorruptState = 16,        ///< the install directory's own records are unreadable
    Damaged = 17,             ///< verification found files that differ from the manifest
    NoRollback = 18,          ///< nothing is kept to roll back to
    IoError = 19              ///< any other failure to read or write a file
};

/// Where an operation on one project stands.
struct VANTOR_EXPORT Progress
{
    enum Stage {
        Idle,
        Checking,
        Downloading,
        Patching,
        Verifying,
        Finishing,
        Publishing
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

/// The outcome of an operation on one project.
struct VANTOR_EXPORT UpdateResult
{
    QString project;
    bool success = false;
    QString version;            ///< the version installed now (for a check: the one offered)
    QString previousVersion;    ///< the version before the operation
    QString errorString;        ///< why it failed and what to do; empty on success
    QStringList updatedFiles;   ///< paths relative to the project's directory

    ErrorCode error = ErrorCode::NoError;
    QString channel;
    qint64 serial = 0;               ///< the release record's serial number
    bool updateAvailable = false;    ///< a check found a version other than the installed one
    bool rollbackPossible = false;   ///< the previous version's files are kept
    bool pinned = false;             ///< rolled back: stays on its version until updated explicitly
    qint64 bytesDownloaded = 0;      ///< bytes received from the repository
    QStringList damagedFiles;        ///< what verification found wrong
};

using UpdateResultPtr = QSharedPointer<UpdateResult>;

/**
 * Registers Progress and UpdateResultPtr with the meta-type system under the names
 * "tvl::vantor::Progress" and "tvl::vantor::UpdateResultPtr", so that they travel through
 * queued connections. Safe to call more than once.
 */
VANTOR_EXPORT void registerMetaTypes();

} // namespace tvl::vantor

Q_DECLARE_METATYPE(tvl::vantor::Progress)
Q_DECLARE_METATYPE(tvl::vantor::UpdateResultPtr)
