#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tvl::vantor {

/// What one version of a project consists of. Hashes are 64 lower-case hexadecimal digits.
struct Manifest
{
    struct Chunk
    {
        qint64 size = 0;         ///< uncompressed
        qint64 storedSize = 0;   ///< as the repository stores it, zstd-compressed
    };
    struct File
    {
        QString path;
        qint64 size = 0;
        bool executable = false;
        QByteArray sha256;
        QList<QByteArray> chunks;   ///< in file order; their sizes add up to `size`
    };
    struct Symlink
    {
        QString path;
        QString target;   ///< relative, and resolving inside the tree
    };

    static constexpr int Format = 1;
    /// No chunk of any repository is larger: a bound for what a download may allocate.
    static constexpr qint64 ChunkSizeLimit = 16 * 1024 * 1024;

    QString project;
    QString version;
    qint64 chunkMinimum = 0;
    qint64 chunkAverage = 0;
    qint64 chunkMaximum = 0;
    QList<File> files;            ///< sorted by path
    QStringList directories;      ///< sorted; parents before their children
    QList<Symlink> symlinks;      ///< sorted by path
    QHash<QByteArray, Chunk> chunks;

    QByteArray toJson() const;
    /// Parses and validates; on failure returns false and says why in `error`.
    bool fromJson(const QByteArray& json, QString* error, bool* unsafePath = nullptr);
    /// Every path is relative, stays inside the tree and passes through no symbolic link;
    /// every chunk is known and the sizes agree. Empty when all is well; `unsafePath` tells
    /// a path that would leave the tree from any other fault.
    QString validate(bool* unsafePath = nullptr) const;
    qint64 totalSize() const;
    const File* file(const QString& path) const;
};

/// Whether `path` is a plain relative path: no empty, "." or ".." part, not absolute, not in
/// the install directory's own ".vantor" directory.
bool isSafeRelativePath(const QString& path);
/// Whether a symbolic link at `path` pointing to `target` stays inside the tree.
bool isSafeSymlink(const QString& path, const QString& target);

} // namespace tvl::vantor
