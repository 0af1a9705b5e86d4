#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QFlags>
#include <QtCore/QString>

namespace tvl {

/// File operations that report failure with a reason instead of a bare boolean.
class BASIX_EXPORT Filesystem
{
public:
    /// The outcome of an operation: converts to true on success, and carries the reason of a
    /// failure ("Cannot create /a/b: Permission denied").
    class BASIX_EXPORT Result
    {
    public:
        /// A success.
        Result() = default;
        /// A failure with the given reason; an empty reason is a success.
        static Result failure(const QString& errorString);

        explicit operator bool() const { return m_errorString.isEmpty(); }
        bool isSuccess() const { return m_errorString.isEmpty(); }
        QString errorString() const { return m_errorString; }

    private:
        QString m_errorString;
    };

    enum RemoveOption {
        NoRemoveOptions = 0,
        Recursive = 0x1,      ///< remove a directory with everything in it
        IgnoreMissing = 0x2   ///< a path that does not exist counts as removed
    };
    Q_DECLARE_FLAGS(RemoveOptions, RemoveOption)

    /// Creates the file if it is missing (not its directory), or sets its modification time
    /// to now.
    static Result touch(const QString& path);

    /**
     * Hides or shows a file. On Linux a file is hidden exactly when its name starts with a
     * dot, so this succeeds when the name already agrees with `hidden` and fails otherwise
     * (the file is never renamed behind the caller's back); it fails for a missing path.
     */
    static Result setHidden(const QString& path, bool hidden);

    /// Removes a file, a symbolic link (not its target) or, with Recursive, a directory tree;
    /// an empty directory is removed without options.
    static Result remove(const QString& path, RemoveOptions options = NoRemoveOptions);
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Filesystem::RemoveOptions)

} // namespace tvl
