#include "SystemEnvironment.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>
#include <QtCore/QSet>
#include <QtCore/QVersionNumber>

#include <algorithm>
#include <cstring>
#include <limits>
#include <dlfcn.h>
#include <elf.h>

/*
 * How findLibrary() makes a bundled library loadable.
 *
 * The library itself is given to QLibrary by its absolute path, but the loader still looks for
 * the libraries it needs (its DT_NEEDED entries) on the default search path, where bundled ones
 * are not. The loader reuses an already loaded object whose soname matches a needed name, so
 * each needed library that lies in an added directory is dlopen()ed by its absolute path first,
 * its own needs before it. Only ELF64 files in the host's byte order are read (their program
 * headers, as the loader does: sections may be stripped); anything else, truncated or garbage
 * is skipped quietly and left to QLibrary to report when it loads it.
 * The preloaded libraries stay loaded for the life of the process, as the library needing them
 * would keep them anyway.
 */

namespace tvl {

namespace {

struct SearchPaths
{
    QMutex mutex;
    QStringList directories;
};
Q_GLOBAL_STATIC(SearchPaths, searchPaths)

/// Reads the parts of a file at given offsets; a read past the end or of a damaged file fails.
class FileReader
{
public:
    explicit FileReader(const QString& path)
        : m_file(path)
    {
        if (m_file.open(QIODevice::ReadOnly))
            m_size = quint64(std::max<qint64>(m_file.size(), 0));
    }

    template<typename T>
    bool read(quint64 offset, T& out)
    {
        return offset <= m_size && m_size - offset >= sizeof(T) && m_file.seek(qint64(offset))
            && m_file.read(reinterpret_cast<char*>(&out), sizeof(T)) == qint64(sizeof(T));
    }

    /// The NUL-terminated string at `offset`, of at most `limit` bytes; null when none ends there.
    QByteArray readString(quint64 offset, quint64 limit)
    {
        if (offset >= m_size || !m_file.seek(qint64(offset)))
            return QByteArray();
        const QByteArray bytes = m_file.read(qint64(std::min<quint64>({limit, m_size - offset, 4096})));
        const qsizetype end = bytes.indexOf('\0');
        return end > 0 ? bytes.left(end) : QByteArray();
    }

private:
    QFile m_file;
    quint64 m_size = 0; ///< 0 also when the file cannot be read
};

/// The file offset at which the virtual address `address` is stored, from the PT_LOAD segments.
bool fileOffsetOf(const QList<Elf64_Phdr>& loads, quint64 address, quint64& offset)
{
    for (const Elf64_Phdr& load : loads) {
        if (address >= load.p_vaddr && address - load.p_vaddr < load.p_filesz) {
            offset = load.p_offset + (address - load.p_vaddr);
            return true;
        }
    }
    return false;
}

/**
 * The DT_NEEDED sonames of an ELF64 shared object; empty when it is not one or is damaged.
 * The file is read piece by piece rather than mapped, so a file truncated meanwhile gives a
 * failed read instead of a SIGBUS.
 */
QStringList neededLibraries(const QString& path)
{
    FileReader file(path);
    Elf64_Ehdr header;
    if (!file.read(0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0
        || header.e_ident[EI_CLASS] != ELFCLASS64
        || header.e_ident[EI_DATA] != (Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? ELFDATA2LSB : ELFDATA2MSB)
        || header.e_phentsize < sizeof(Elf64_Phdr))
        return {};

    QList<Elf64_Phdr> loads;
    Elf64_Phdr dynamic {};
    bool hasDynamic = false;
    for (quint64 i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        if (!file.read(header.e_phoff + i * header.e_phentsize, segment))
            return {};
        if (segment.p_type == PT_LOAD) {
            loads.append(segment);
        } else if (segment.p_type == PT_DYNAMIC && !hasDynamic) {
            dynamic = segment;
            hasDynamic = true;
        }
    }
    if (!hasDynamic)
        return {};

    QList<quint64> neededOffsets;
    quint64 stringTableAddress = 0;
    quint64 stringTableSize = 0;
    bool hasStringTable = false;
    for (quint64 read = 0; read + sizeof(Elf64_Dyn) <= dynamic.p_filesz; read += sizeof(Elf64_Dyn)) {
        Elf64_Dyn entry;
        if (!file.read(dynamic.p_offset + read, entry) || entry.d_tag == DT_NULL)
            break;
        if (entry.d_tag == DT_NEEDED) {
            neededOffsets.append(entry.d_un.d_val);
        } else if (entry.d_tag == DT_STRTAB) {
            stringTableAddress = entry.d_un.d_ptr;
            hasStringTable = true;
        } else if (entry.d_tag == DT_STRSZ) {
            stringTableSize = entry.d_un.d_val;
        }
    }

    quint64 stringTable = 0;
    if (neededOffsets.isEmpty() || !hasStringTable
        || !fileOffsetOf(loads, stringTableAddress, stringTable))
        return {};

    QStringList needed;
    for (const quint64 offset : std::as_const(neededOffsets)) {
        if (offset >= stringTableSize || stringTable > std::numeric_limits<quint64>::max() - offset)
            continue;
        const QByteArray soname = file.readString(stringTable + offset, stringTableSize - offset);
        if (!soname.isEmpty())
            needed.append(QFile::decodeName(soname));
    }
    return needed;
}

/// The first added directory holding a file called exactly `fileName`, as an absolute path.
QString findInDirectories(const QStringList& directories, const QString& fileName)
{
    for (const QString& directory : directories) {
        const QFileInfo candidate(QDir(directory).filePath(fileName));
        if (candidate.isFile())
            return candidate.filePath();
    }
    return QString();
}

bool isLoaded(const QString& soname)
{
    void* handle = ::dlopen(QFile::encodeName(soname).constData(), RTLD_LAZY | RTLD_NOLOAD);
    if (!handle)
        return false;
    ::dlclose(handle); // drops the reference RTLD_NOLOAD took
    return true;
}

/// Loads what `path` needs from the added directories, deepest first. `visited` holds the
/// files already handled in this search, which ends cycles.
void loadDependencies(const QStringList& directories, const QString& path, QSet<QString>& visited)
{
    if (visited.contains(path))
        return;
    visited.insert(path);

    const QStringList needed = neededLibraries(path);
    for (const QString& soname : needed) {
        if (soname.contains(QLatin1Char('/')))
            continue;
        const QString dependency = findInDirectories(directories, soname);
        if (dependency.isEmpty() || visited.contains(dependency) || isLoaded(soname))
            continue;
        loadDependencies(directories, dependency, visited);
        // A failure is left for QLibrary to report: it names the library that is missing.
        ::dlopen(QFile::encodeName(dependency).constData(), RTLD_NOW | RTLD_LOCAL);
    }
}

/**
 * The "lib<name>.so.<version>" file in `directory` with the highest version, which is what a
 * link to the unversioned name would normally point at; "" when there is none. Names with
 * anything but numbers after ".so." (such as "libvlc.so.5.debug") do not count.
 */
QString highestVersionedFile(const QString& directory, const QString& name)
{
    const QString prefix = QStringLiteral("lib%1.so.").arg(name);
    // No name filter: it would read wildcards in `name`.
    const QStringList entries = QDir(directory).entryList(QDir::Files | QDir::Hidden, QDir::Name);

    QString best;
    QVersionNumber bestVersion;
    for (const QString& entry : entries) {
        if (!entry.startsWith(prefix))
            continue;
        const QStringView version = QStringView(entry).mid(prefix.size());
        qsizetype suffixIndex = 0;
        const QVersionNumber number = QVersionNumber::fromString(version, &suffixIndex);
        // Of equal versions ("1" and "1.0") the first by name wins, whatever the listing order.
        if (!number.isNull() && suffixIndex == version.size()
            && (best.isEmpty() || QVersionNumber::compare(number, bestVersion) > 0)) {
            best = entry;
            bestVersion = number;
        }
    }
    return best;
}

} // namespace

void SystemEnvironment::addLibrarySearchPath(const QString& path)
{
    if (path.isEmpty())
        return;
    const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    const QMutexLocker locker(&searchPaths->mutex);
    if (!searchPaths->directories.contains(absolute))
        searchPaths->directories.append(absolute);
}

QStringList SystemEnvironment::librarySearchPaths()
{
    const QMutexLocker locker(&searchPaths->mutex);
    return searchPaths->directories;
}

QString SystemEnvironment::findLibrary(const QString& name)
{
    if (name.isEmpty() || name.contains(QLatin1Char('/')))
        return name;

    const QStringList directories = librarySearchPaths();
    for (const QString& directory : directories) {
        const QDir dir(directory);
        QString found;
        for (const QString& candidate : {QStringLiteral("lib%1.so").arg(name), name}) {
            if (QFileInfo(dir.filePath(candidate)).isFile()) {
                found = dir.filePath(candidate);
                break;
            }
        }
        if (found.isEmpty()) {
            const QString versioned = highestVersionedFile(directory, name);
            if (versioned.isEmpty())
                continue;
            found = dir.filePath(versioned);
        }
        QSet<QString> visited;
        loadDependencies(directories, found, visited);
        return found;
    }
    return name;
}

} // namespace tvl
