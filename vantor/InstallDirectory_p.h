#pragma once

#include <vantor/VantorExport.h>
#include <vantor/VantorTypes.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

QT_BEGIN_NAMESPACE
class QLockFile;
QT_END_NAMESPACE

namespace tvl::vantor {

struct Manifest;

/// What an install directory holds, as recorded in its ".vantor/state.json".
struct InstallState
{
    QString project;
    QString channel;
    QString version;
    QByteArray manifestSha256;
    QHash<QString, qint64> serials;   ///< the highest serial accepted, per channel
    bool pinned = false;              ///< rolled back: an update must be asked for explicitly

    QByteArray toJson() const;
    bool fromJson(const QByteArray& json);
};

/**
 * The moves that turn one version into another once every new file is staged. Written before
 * the first move; a run that finds it applies it again from the start, so every step must be
 * harmless when repeated.
 */
struct Journal
{
    QStringList deletes;             ///< files and links of the old version that go
    QStringList removeDirectories;   ///< deepest first
    QStringList makeDirectories;     ///< parents first
    QList<QPair<QString, QString>> moves;   ///< staged name -> path in the tree
    bool swapRollback = false;       ///< ".vantor/rollback.new" becomes the rollback store
    bool dropRollback = false;       ///< no rollback store afterwards
    bool uninstall = false;          ///< the directory's own records go too

    QByteArray toJson() const;
    bool fromJson(const QByteArray& json);
};

/// An install directory and its hidden ".vantor" directory of records and staging.
class InstallDirectory
{
public:
    explicit InstallDirectory(const QString& root);
    ~InstallDirectory();

    QString root() const { return m_root; }
    QString path(const QString& relative) const { return m_root + QLatin1Char('/') + relative; }
    QString meta(const QString& name = {}) const;
    QString staging(const QString& name = {}) const { return meta(QStringLiteral("staging/") + name); }

    /// Takes the directory's lock, waiting at most `timeoutMs`.
    ErrorCode lock(int timeoutMs, QString* error);
    void unlock();
    bool isInstalled() const;
    ErrorCode readState(InstallState* state, QString* error) const;
    ErrorCode readManifest(Manifest* manifest, QString* error) const;
    ErrorCode writeState(const InstallState& state, QString* error) const;

    /// Completes an update, repair, rollback or uninstall that an earlier run left half done.
    ErrorCode recover(QString* error);
    /// Writes the journal, applies it and removes it: the one step that changes the tree.
    ErrorCode commit(const Journal& journal, QString* error);

    /// The error kind of a failed system call.
    static ErrorCode codeFor(int error);
    /**
     * Writes `data` to a temporary file next to `path` and renames it over `path`, without a
     * flush to the disk (QSaveFile flushes every file): for chunks, which are many and which a
     * lost write only makes fetch again. Returns 0 or the errno of the failure.
     */
    static int replaceFile(const QString& path, QByteArrayView data);
    /// Flushes the file system that holds `path` to the disk.
    static void syncFileSystem(const QString& path);

private:
    ErrorCode apply(const Journal& journal, QString* error);

    QString m_root;
    std::unique_ptr<QLockFile> m_lock;
};

/// For tests: called after each step of applying a journal, with its number from 1.
VANTOR_EXPORT void setCommitStepHook(void (*hook)(int step));

} // namespace tvl::vantor
