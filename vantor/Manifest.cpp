#include "Manifest_p.h"

#include "Crypto_p.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QSet>

namespace tvl::vantor {

bool isSafeRelativePath(const QString& path)
{
    if (path.isEmpty() || path.startsWith(QLatin1Char('/')) || path.contains(QChar(0)))
        return false;
    const QStringList parts = path.split(QLatin1Char('/'));
    if (parts.first() == QLatin1String(".vantor"))
        return false;
    for (const QString& part : parts) {
        if (part.isEmpty() || part == QLatin1String(".") || part == QLatin1String(".."))
            return false;
    }
    return true;
}

bool isSafeSymlink(const QString& path, const QString& target)
{
    if (!isSafeRelativePath(path) || target.isEmpty() || target.startsWith(QLatin1Char('/')) || target.contains(QChar(0)))
        return false;
    // ".." may only lead the target: after a step down through what may itself be a link, a
    // ".." would climb from wherever that link points, which a lexical check cannot see.
    int depth = int(path.count(QLatin1Char('/')));
    bool climbing = true;
    for (const QString& part : target.split(QLatin1Char('/'))) {
        if (part == QLatin1String("..")) {
            if (!climbing || --depth < 0)
                return false;
        } else if (!part.isEmpty() && part != QLatin1String(".")) {
            if (depth == 0 && part == QLatin1String(".vantor"))
                return false;
            climbing = false;
            ++depth;
        }
    }
    return true;
}

QByteArray Manifest::toJson() const
{
    // Each hash is written once, in the chunk table; files name their chunks by their place in
    // it, which keeps the manifest (fetched with every update) small.
    QList<QByteArray> order = chunks.keys();
    std::sort(order.begin(), order.end());
    QHash<QByteArray, int> position;
    QJsonArray chunkArray;
    for (const QByteArray& hash : std::as_const(order)) {
        position.insert(hash, int(chunkArray.size()));
        const Chunk& chunk = chunks[hash];
        chunkArray.append(QJsonArray{QString::fromLatin1(hash), chunk.size, chunk.storedSize});
    }
    QJsonArray fileArray;
    for (const File& f : files) {
        QJsonArray indices;
        for (const QByteArray& chunk : f.chunks)
            indices.append(position.value(chunk, -1));
        QJsonObject object{{QStringLiteral("path"), f.path}, {QStringLiteral("size"), f.size}, {QStringLiteral("chunks"), indices}};
        // A file of one chunk has that chunk's hash: it is not written twice.
        if (f.chunks.size() != 1 || f.chunks.first() != f.sha256)
            object.insert(QStringLiteral("sha256"), QString::fromLatin1(f.sha256));
        if (f.executable)
            object.insert(QStringLiteral("executable"), true);
        fileArray.append(object);
    }
    QJsonArray linkArray;
    for (const Symlink& link : symlinks)
        linkArray.append(QJsonObject{{QStringLiteral("path"), link.path}, {QStringLiteral("target"), link.target}});
    const QJsonObject root{{QStringLiteral("format"), Format},
                           {QStringLiteral("project"), project},
                           {QStringLiteral("version"), version},
                           {QStringLiteral("chunking"), QJsonArray{chunkMinimum, chunkAverage, chunkMaximum}},
                           {QStringLiteral("directories"), QJsonArray::fromStringList(directories)},
                           {QStringLiteral("files"), fileArray},
                           {QStringLiteral("symlinks"), linkArray},
                           {QStringLiteral("chunks"), chunkArray}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

bool Manifest::fromJson(const QByteArray& json, QString* error, bool* unsafePath)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (!document.isObject()) {
        *error = QStringLiteral("the manifest is not valid JSON (%1)").arg(parseError.errorString());
        return false;
    }
    const QJsonObject root = document.object();
    if (root.value(QStringLiteral("format")).toInt() != Format) {
        *error = QStringLiteral("the manifest has an unknown format %1").arg(root.value(QStringLiteral("format")).toInt());
        return false;
    }
    project = root.value(QStringLiteral("project")).toString();
    version = root.value(QStringLiteral("version")).toString();
    const QJsonArray chunking = root.value(QStringLiteral("chunking")).toArray();
    chunkMinimum = chunking.at(0).toInteger();
    chunkAverage = chunking.at(1).toInteger();
    chunkMaximum = chunking.at(2).toInteger();
    directories.clear();
    for (const QJsonValue& value : root.value(QStringLiteral("directories")).toArray())
        directories.append(value.toString());
    chunks.clear();
    QList<QByteArray> table;
    for (const QJsonValue& value : root.value(QStringLiteral("chunks")).toArray()) {
        const QJsonArray entry = value.toArray();
        table.append(entry.at(0).toString().toLatin1());
        chunks.insert(table.last(), {entry.at(1).toInteger(-1), entry.at(2).toInteger(-1)});
    }
    files.clear();
    for (const QJsonValue& value : root.value(QStringLiteral("files")).toArray()) {
        const QJsonObject object = value.toObject();
        File f;
        f.path = object.value(QStringLiteral("path")).toString();
        f.size = object.value(QStringLiteral("size")).toInteger(-1);
        f.executable = object.value(QStringLiteral("executable")).toBool();
        for (const QJsonValue& index : object.value(QStringLiteral("chunks")).toArray()) {
            const qint64 i = index.toInteger(-1);
            // An index outside the table names no chunk, which validation refuses.
            f.chunks.append(i >= 0 && i < table.size() ? table.at(i) : QByteArray());
        }
        f.sha256 = object.contains(QStringLiteral("sha256")) || f.chunks.size() != 1
            ? object.value(QStringLiteral("sha256")).toString().toLatin1()
            : f.chunks.first();
        files.append(std::move(f));
    }
    symlinks.clear();
    for (const QJsonValue& value : root.value(QStringLiteral("symlinks")).toArray()) {
        const QJsonObject object = value.toObject();
        symlinks.append({object.value(QStringLiteral("path")).toString(), object.value(QStringLiteral("target")).toString()});
    }
    *error = validate(unsafePath);
    return error->isEmpty();
}

QString Manifest::validate(bool* unsafePath) const
{
    bool ignored = false;
    bool& unsafe = unsafePath ? *unsafePath : ignored;
    unsafe = false;
    QSet<QString> directorySet, taken;
    for (const QString& directory : directories) {
        if (!isSafeRelativePath(directory) && (unsafe = true))
            return QStringLiteral("the manifest names an unsafe directory \"%1\"").arg(directory);
        directorySet.insert(directory);
        if (Q_UNLIKELY(taken.contains(directory)))
            return QStringLiteral("the manifest names \"%1\" twice").arg(directory);
        taken.insert(directory);
    }
    QSet<QString> links;
    for (const Symlink& link : symlinks) {
        if (!isSafeSymlink(link.path, link.target) && (unsafe = true))
            return QStringLiteral("the manifest has a link \"%1\" -> \"%2\" that leads out of the install directory")
                .arg(link.path, link.target);
        if (taken.contains(link.path))
            return QStringLiteral("the manifest names \"%1\" twice").arg(link.path);
        taken.insert(link.path);
        links.insert(link.path);
    }
    // Nothing may be placed below a link or below a file: it would land wherever that points.
    const auto throughLinkOrFile = [&](const QString& path) {
        for (qsizetype slash = path.indexOf(QLatin1Char('/')); slash >= 0; slash = path.indexOf(QLatin1Char('/'), slash + 1)) {
            const QString parent = path.left(slash);
            if (links.contains(parent) || (taken.contains(parent) && !directorySet.contains(parent)))
                return true;
        }
        return false;
    };
    for (const File& f : files) {
        if (!isSafeRelativePath(f.path) && (unsafe = true))
            return QStringLiteral("the manifest names an unsafe path \"%1\"").arg(f.path);
        if (taken.contains(f.path))
            return QStringLiteral("the manifest names \"%1\" twice").arg(f.path);
        taken.insert(f.path);
        if (!isHexDigest(f.sha256) || f.size < 0)
            return QStringLiteral("the manifest's entry of \"%1\" is malformed").arg(f.path);
        qint64 sum = 0;
        for (const QByteArray& chunk : f.chunks) {
            const auto it = chunks.constFind(chunk);
            if (it == chunks.cend())
                return QStringLiteral("the manifest's file \"%1\" uses an unknown chunk").arg(f.path);
            sum += it->size;
        }
        if (sum != f.size)
            return QStringLiteral("the chunks of \"%1\" do not add up to its size").arg(f.path);
    }
    for (const QString& path : taken) {
        if (throughLinkOrFile(path) && (unsafe = true))
            return QStringLiteral("the manifest places \"%1\" through a link or a file, out of the install directory").arg(path);
    }
    for (auto it = chunks.cbegin(); it != chunks.cend(); ++it) {
        if (!isHexDigest(it.key()) || it->size <= 0 || it->size > ChunkSizeLimit || it->storedSize <= 0
            || it->storedSize > ChunkSizeLimit + ChunkSizeLimit / 64 + 1024)
            return QStringLiteral("the manifest lists a malformed chunk");
    }
    return {};
}

qint64 Manifest::totalSize() const
{
    qint64 total = 0;
    for (const File& f : files)
        total += f.size;
    return total;
}

const Manifest::File* Manifest::file(const QString& path) const
{
    const auto it = std::lower_bound(files.cbegin(), files.cend(), path,
                                     [](const File& f, const QString& p) { return f.path < p; });
    return it != files.cend() && it->path == path ? &*it : nullptr;
}

} // namespace tvl::vantor
