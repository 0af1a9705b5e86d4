#pragma once

// Generates a game-like tree for the update engine's benchmarks: incompressible blobs,
// compressible assets, many small files and one large pack file; and its next version, with a
// few percent of the files changed in place (some with bytes inserted or removed in the
// middle), new and deleted files, and a 1 MiB region rewritten inside the pack.

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QString>

#include <cstdint>
#include <cstring>
#include <functional>

namespace gametree {

/// A fast, seeded generator (splitmix64): the same seed gives the same tree everywhere.
class Random
{
public:
    explicit Random(uint64_t seed) : m_state(seed) {}
    uint64_t next()
    {
        uint64_t z = (m_state += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    qint64 between(qint64 low, qint64 high) { return low + qint64(next() % uint64_t(high - low + 1)); }

    QByteArray bytes(qint64 size)
    {
        QByteArray data(size, Qt::Uninitialized);
        qint64 i = 0;
        for (; i + 8 <= size; i += 8) {
            const uint64_t value = next();
            std::memcpy(data.data() + i, &value, 8);
        }
        for (; i < size; ++i)
            data[i] = char(next());
        return data;
    }

    /// Text-like data that zstd compresses about four to one: words from a small vocabulary.
    QByteArray text(qint64 size)
    {
        static const char* const words[] = {"texture", "mesh", "vertex", "shader", "level", "entity", "sound", "0.25",
                                            "1024", "true", "false", "name", "position", "rotation", "scale", "{", "}", "\n"};
        QByteArray data;
        data.reserve(size + 16);
        while (data.size() < size) {
            data += words[next() % (sizeof words / sizeof *words)];
            data += ' ';
            if (next() % 8 == 0)
                data += QByteArray::number(qint64(next() % 100000));
        }
        data.truncate(size);
        return data;
    }

private:
    uint64_t m_state;
};

inline void write(const QString& path, const QByteArray& data)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(data) != data.size())
        qFatal("cannot write %s", qPrintable(path));
}

/// Writes version 1 of a tree of about `scale` times 256 MiB into `root`.
inline void generate(const QString& root, double scale, uint64_t seed = 1)
{
    Random random(seed);
    QDir(root).removeRecursively();
    const auto count = [scale](int n) { return std::max(1, int(n * scale)); };
    for (int i = 0; i < count(40); ++i)   // ~100 MiB of already compressed media
        write(root + QStringLiteral("/media/video%1.bik").arg(i), random.bytes(random.between(1 << 20, 4 << 20)));
    for (int i = 0; i < count(200); ++i)  // ~55 MiB of compressible assets
        write(root + QStringLiteral("/assets/level%1/data%2.json").arg(i / 20).arg(i), random.text(random.between(50 << 10, 500 << 10)));
    for (int i = 0; i < count(2000); ++i) // ~8 MiB in many small files
        write(root + QStringLiteral("/config/group%1/item%2.cfg").arg(i / 100).arg(i), random.text(random.between(512, 8 << 10)));
    // One large pack: incompressible and compressible stretches.
    QByteArray pack;
    const qint64 packSize = qint64(96.0 * scale * (1 << 20));
    while (pack.size() < packSize)
        pack += (random.next() % 2) ? random.bytes(1 << 20) : random.text(1 << 20);
    write(root + QStringLiteral("/data/game.pak"), pack);
    write(root + QStringLiteral("/bin/game"), random.bytes(4 << 20));
    QFile::setPermissions(root + QStringLiteral("/bin/game"), QFile::permissions(root + QStringLiteral("/bin/game")) | QFile::ExeOwner);
}

/// Turns a copy of version 1 in `root` into version 2.
inline void makeNextVersion(const QString& root, uint64_t seed = 2)
{
    Random random(seed);
    QStringList files;
    for (const QString& directory : {QStringLiteral("media"), QStringLiteral("assets"), QStringLiteral("config")}) {
        QDirIterator it(root + QLatin1Char('/') + directory, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            files.append(it.next());
    }
    files.sort();
    const auto edit = [](const QString& path, const std::function<void(QByteArray&)>& change) {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        QByteArray data = file.readAll();
        file.close();
        change(data);
        write(path, data);
    };
    // About 3 % of the files: a third rewritten in place, a third with bytes inserted in the
    // middle, a third with bytes removed from it.
    for (int i = 0; i < files.size(); ++i) {
        if (random.next() % 100 >= 3)
            continue;
        edit(files.at(i), [&](QByteArray& data) {
            const qint64 middle = data.size() / 2;
            const qint64 length = std::min<qint64>(random.between(100, 4000), data.size() / 4);
            switch (random.next() % 3) {
            case 0: data.replace(middle, length, random.bytes(length)); break;
            case 1: data.insert(middle, random.bytes(length)); break;
            default: data.remove(middle, length); break;
            }
        });
    }
    for (int i = 0; i < 10; ++i) {
        QFile::remove(files.at(qsizetype(random.next() % uint64_t(files.size()))));
        write(root + QStringLiteral("/assets/new/added%1.json").arg(i), random.text(random.between(4 << 10, 200 << 10)));
    }
    edit(root + QStringLiteral("/data/game.pak"), [&](QByteArray& data) { data.replace(data.size() / 3, 1 << 20, random.bytes(1 << 20)); });
}

} // namespace gametree
