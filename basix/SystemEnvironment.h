#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QStringList>

namespace tvl {

/**
 * Facts and settings of the process's environment.
 *
 * Library search paths: the dynamic loader reads LD_LIBRARY_PATH only when the process
 * starts, so a directory added at run time cannot reach it. Instead, the directories added
 * here are searched by findLibrary(), which a loader calls with the name it would give
 * QLibrary ("vlc") and whose answer (an absolute path, or the name unchanged when no added
 * directory holds the library) it gives QLibrary in its place. Before answering with a path,
 * findLibrary() also loads the libraries that the found one needs and that lie in the added
 * directories, so that a bundled library's own dependencies are found next to it.
 * LD_LIBRARY_PATH is left alone: the games and tools this process starts must not pick up the
 * launcher's bundled libraries.
 */
class BASIX_EXPORT SystemEnvironment
{
public:
    /// Adds a directory to search for libraries, after those added before; a directory added
    /// twice is kept once. Relative paths are made absolute against the current directory.
    static void addLibrarySearchPath(const QString& path);

    /// The directories added so far, in order.
    static QStringList librarySearchPaths();

    /**
     * Looks for the library `name` as QLibrary would name it ("vlc" tries "libvlc.so" and
     * then "vlc", and "libvlc.so*" versioned files), in the added directories in order, and
     * returns the absolute path of the first match; returns `name` unchanged when nothing
     * matches or when `name` is already a path.
     */
    static QString findLibrary(const QString& name);
};

} // namespace tvl
