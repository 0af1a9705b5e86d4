#include <basix/SystemEnvironment.h>

#include <QtTest/QtTest>

#include <cstring>
#include <dlfcn.h>
#include <elf.h>

using tvl::SystemEnvironment;

namespace {

bool copyInto(const QString& file, const QDir& directory)
{
    return QFile::copy(file, directory.filePath(QFileInfo(file).fileName()));
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool isLoaded(const char* soname)
{
    void* handle = ::dlopen(soname, RTLD_LAZY | RTLD_NOLOAD);
    if (handle)
        ::dlclose(handle);
    return handle != nullptr;
}

template<typename T>
void append(QByteArray& bytes, const T& value)
{
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/**
 * The smallest ELF64 file the dependency reader accepts: a header, a load segment whose
 * addresses differ from its file offsets, and a dynamic segment with `needed` and its string
 * table. Its machine is EM_NONE, so the loader refuses it.
 */
QByteArray elfNeeding(const QList<QByteArray>& needed)
{
    constexpr quint64 base = 0x400000;
    QByteArray strings(1, '\0');
    QList<quint64> nameOffsets;
    for (const QByteArray& name : needed) {
        nameOffsets.append(quint64(strings.size()));
        strings += name + '\0';
    }
    const quint64 dynamicOffset = sizeof(Elf64_Ehdr) + 2 * sizeof(Elf64_Phdr);
    const quint64 dynamicSize = (quint64(needed.size()) + 3) * sizeof(Elf64_Dyn);
    const quint64 stringsOffset = dynamicOffset + dynamicSize;
    const quint64 fileSize = stringsOffset + quint64(strings.size());

    Elf64_Ehdr header {};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? ELFDATA2LSB : ELFDATA2MSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_DYN;
    header.e_machine = EM_NONE;
    header.e_version = EV_CURRENT;
    header.e_phoff = sizeof(Elf64_Ehdr);
    header.e_ehsize = sizeof(Elf64_Ehdr);
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 2;

    Elf64_Phdr load {};
    load.p_type = PT_LOAD;
    load.p_vaddr = base;
    load.p_filesz = fileSize;
    load.p_memsz = fileSize;
    Elf64_Phdr dynamic {};
    dynamic.p_type = PT_DYNAMIC;
    dynamic.p_offset = dynamicOffset;
    dynamic.p_vaddr = base + dynamicOffset;
    dynamic.p_filesz = dynamicSize;
    dynamic.p_memsz = dynamicSize;

    QByteArray bytes;
    append(bytes, header);
    append(bytes, load);
    append(bytes, dynamic);
    for (const quint64 offset : std::as_const(nameOffsets))
        append(bytes, Elf64_Dyn {DT_NEEDED, {offset}});
    append(bytes, Elf64_Dyn {DT_STRTAB, {base + stringsOffset}});
    append(bytes, Elf64_Dyn {DT_STRSZ, {quint64(strings.size())}});
    append(bytes, Elf64_Dyn {DT_NULL, {0}});
    return bytes + strings;
}

} // namespace

class TestSystemEnvironment : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void searchPaths();
    void loadsDependencies();
    void lookupOrder_data();
    void lookupOrder();
    void followsDependenciesOfDependencies();
    void damagedFiles_data();
    void damagedFiles();
};

void TestSystemEnvironment::initTestCase()
{
    QVERIFY(SystemEnvironment::librarySearchPaths().isEmpty());
    for (const char* fixture : {SYSENV_A_FILE, SYSENV_B_FILE, SYSENV_C_FILE})
        QVERIFY2(QFileInfo::exists(QString::fromUtf8(fixture)), fixture);
}

void TestSystemEnvironment::searchPaths()
{
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    // Relative paths are resolved against the working directory, which has no links in it.
    const QString base = QFileInfo(temp.path()).canonicalFilePath();
    const QString first = base + QStringLiteral("/first");
    const QString second = base + QStringLiteral("/second");

    const QString previousCurrent = QDir::currentPath();
    QVERIFY(QDir::setCurrent(base));
    const auto restore = qScopeGuard([&] { QDir::setCurrent(previousCurrent); });

    const qsizetype before = SystemEnvironment::librarySearchPaths().size();
    SystemEnvironment::addLibrarySearchPath(first);
    SystemEnvironment::addLibrarySearchPath(second + QLatin1Char('/'));
    SystemEnvironment::addLibrarySearchPath(first);
    SystemEnvironment::addLibrarySearchPath(base + QStringLiteral("/./second/../first"));
    SystemEnvironment::addLibrarySearchPath(QStringLiteral("relative"));
    SystemEnvironment::addLibrarySearchPath(QStringLiteral("second"));
    SystemEnvironment::addLibrarySearchPath(QStringLiteral("./relative/"));
    SystemEnvironment::addLibrarySearchPath(QString());

    const QStringList added = SystemEnvironment::librarySearchPaths().mid(before);
    QCOMPARE(added, (QStringList {first, second, base + QStringLiteral("/relative")}));
    for (const QString& path : added)
        QVERIFY(QDir::isAbsolutePath(path));
}

void TestSystemEnvironment::loadsDependencies()
{
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QDir directory(temp.path());
    QVERIFY(copyInto(QString::fromUtf8(SYSENV_A_FILE), directory));
    QVERIFY(copyInto(QString::fromUtf8(SYSENV_B_FILE), directory));

    QLibrary unaided(QStringLiteral("sysenv_a"));
    QVERIFY(!unaided.load());
    QVERIFY(!isLoaded("libsysenv_b.so"));

    SystemEnvironment::addLibrarySearchPath(temp.path());
    const QString found = SystemEnvironment::findLibrary(QStringLiteral("sysenv_a"));
    QCOMPARE(found, directory.filePath(QStringLiteral("libsysenv_a.so")));
    QVERIFY(isLoaded("libsysenv_b.so"));

    QLibrary library(found);
    QVERIFY2(library.load(), qPrintable(library.errorString()));
    const auto value = reinterpret_cast<int (*)()>(library.resolve("sysenv_a_value"));
    QVERIFY(value);
    QCOMPARE(value(), 41);
}

void TestSystemEnvironment::lookupOrder_data()
{
    QTest::addColumn<QStringList>("firstFiles");  // a trailing "/" makes a directory
    QTest::addColumn<QStringList>("secondFiles");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected"); // "first/...", "second/..." or the answer as it is

    using L = QStringList;
    const auto s = [](const char* text) { return QString::fromUtf8(text); };
    QTest::newRow("lib prefix and .so first") << L {s("ordera"), s("liborder_a.so"), s("liborder_a.so.1")} << L {}
                                              << s("order_a") << s("first/liborder_a.so");
    QTest::newRow("bare name") << L {s("order_b")} << L {} << s("order_b") << s("first/order_b");
    QTest::newRow("bare name before versions") << L {s("order_c"), s("liborder_c.so.3")} << L {} << s("order_c")
                                               << s("first/order_c");
    QTest::newRow("highest version") << L {s("liborder_d.so.1"), s("liborder_d.so.9.5"), s("liborder_d.so.10"),
                                           s("liborder_d.so.2.0.1")}
                                     << L {} << s("order_d") << s("first/liborder_d.so.10");
    QTest::newRow("longer version with the same numbers") << L {s("liborder_e.so.2"), s("liborder_e.so.2.0.1")} << L {}
                                                          << s("order_e") << s("first/liborder_e.so.2.0.1");
    QTest::newRow("only numbered versions") << L {s("liborder_f.so.1"), s("liborder_f.so.2.debug"),
                                                  s("liborder_f.so.x"), s("liborder_f.so.")}
                                            << L {} << s("order_f") << s("first/liborder_f.so.1");
    QTest::newRow("other libraries' versions") << L {s("liborder_gx.so.1"), s("liborder_g.so.0")} << L {}
                                               << s("order_g") << s("first/liborder_g.so.0");
    QTest::newRow("first directory wins") << L {s("liborder_h.so.1")} << L {s("liborder_h.so")} << s("order_h")
                                          << s("first/liborder_h.so.1");
    QTest::newRow("second directory") << L {s("unrelated")} << L {s("liborder_i.so")} << s("order_i")
                                      << s("second/liborder_i.so");
    QTest::newRow("directories are not libraries") << L {s("liborder_j.so/")} << L {s("liborder_j.so")}
                                                   << s("order_j") << s("second/liborder_j.so");
    QTest::newRow("wildcards are not patterns") << L {s("liborder_k.so.1")} << L {} << s("order_*")
                                                << s("order_*");
    QTest::newRow("not found") << L {s("liborder_l.so")} << L {} << s("order_missing") << s("order_missing");
    QTest::newRow("absolute path") << L {s("liborder_n.so")} << L {} << s("/usr/lib/liborder_n.so")
                                   << s("/usr/lib/liborder_n.so");
    QTest::newRow("empty name") << L {s("lib.so")} << L {} << QString() << QString();
}

void TestSystemEnvironment::lookupOrder()
{
    QFETCH(QStringList, firstFiles);
    QFETCH(QStringList, secondFiles);
    QFETCH(QString, name);
    QFETCH(QString, expected);

    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QDir root(temp.path());
    const QStringList directories {QStringLiteral("first"), QStringLiteral("second")};
    for (const QString& directory : directories) {
        QVERIFY(root.mkpath(directory));
        for (const QString& file : directory == directories.first() ? firstFiles : secondFiles) {
            const QString path = root.filePath(directory + QLatin1Char('/') + file);
            // Not libraries at all: finding one needs no loading.
            QVERIFY(file.endsWith(QLatin1Char('/')) ? root.mkpath(path) : writeFile(path, "not an ELF file"));
        }
        SystemEnvironment::addLibrarySearchPath(root.filePath(directory));
    }

    const bool inDirectory = expected.startsWith(QLatin1String("first/")) || expected.startsWith(QLatin1String("second/"));
    QCOMPARE(SystemEnvironment::findLibrary(name), inDirectory ? root.filePath(expected) : expected);
}

void TestSystemEnvironment::followsDependenciesOfDependencies()
{
    // ping needs pong, pong needs ping (a cycle) and sysenv_c, self needs itself: reaching
    // sysenv_c shows the cycle was walked through and left.
    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QDir directory(temp.path());
    QVERIFY(writeFile(directory.filePath(QStringLiteral("libping.so")), elfNeeding({"libpong.so"})));
    QVERIFY(writeFile(directory.filePath(QStringLiteral("libpong.so")), elfNeeding({"libping.so", "libsysenv_c.so"})));
    QVERIFY(writeFile(directory.filePath(QStringLiteral("libself.so")), elfNeeding({"libself.so"})));
    QVERIFY(copyInto(QString::fromUtf8(SYSENV_C_FILE), directory));
    SystemEnvironment::addLibrarySearchPath(temp.path());

    QCOMPARE(SystemEnvironment::findLibrary(QStringLiteral("self")), directory.filePath(QStringLiteral("libself.so")));
    QVERIFY(!isLoaded("libsysenv_c.so"));
    QCOMPARE(SystemEnvironment::findLibrary(QStringLiteral("ping")), directory.filePath(QStringLiteral("libping.so")));
    QVERIFY(isLoaded("libsysenv_c.so"));
}

void TestSystemEnvironment::damagedFiles_data()
{
    QTest::addColumn<QByteArray>("content");

    const QByteArray library = readFile(QString::fromUtf8(SYSENV_A_FILE));
    QVERIFY(library.size() > 4096);
    Elf64_Ehdr header;
    std::memcpy(&header, library.constData(), sizeof header);

    const auto patched = [&](qsizetype offset, const auto& value) {
        QByteArray bytes = library;
        std::memcpy(bytes.data() + offset, &value, sizeof value);
        return bytes;
    };

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("magic only") << library.left(4);
    QTest::newRow("header only") << library.left(sizeof(Elf64_Ehdr));
    QTest::newRow("program headers cut") << library.left(qsizetype(header.e_phoff) + 20);
    QTest::newRow("first page") << library.left(4096);
    QTest::newRow("half") << library.left(library.size() / 2);
    QTest::newRow("all but the last byte") << library.left(library.size() - 1);
    QTest::newRow("text") << QByteArray("INPUT(-lsomething)\n");
    QTest::newRow("32-bit class") << patched(EI_CLASS, char(ELFCLASS32));
    QTest::newRow("other byte order") << patched(EI_DATA, char(Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? ELFDATA2MSB : ELFDATA2LSB));
    QTest::newRow("program headers far away") << patched(offsetof(Elf64_Ehdr, e_phoff), quint64(-64));
    QTest::newRow("small program header entries") << patched(offsetof(Elf64_Ehdr, e_phentsize), quint16(8));
    QTest::newRow("many program headers") << patched(offsetof(Elf64_Ehdr, e_phnum), quint16(0xffff));

    // Every program header pointing to or sized beyond the end of the file in turn.
    for (int i = 0; i < header.e_phnum; ++i) {
        const qsizetype phdr = qsizetype(header.e_phoff) + i * header.e_phentsize;
        QTest::addRow("segment %d far away", i) << patched(phdr + offsetof(Elf64_Phdr, p_offset), quint64(-16));
        QTest::addRow("segment %d huge", i) << patched(phdr + offsetof(Elf64_Phdr, p_filesz), quint64(-1));
    }

    QRandomGenerator random(20240229);
    for (int round = 0; round < 40; ++round) {
        QByteArray bytes = library;
        for (int flip = 0; flip < 24; ++flip)
            bytes[random.bounded(qsizetype(4096))] = char(random.bounded(256));
        QTest::addRow("random bytes %d", round) << bytes;
    }
}

void TestSystemEnvironment::damagedFiles()
{
    QFETCH(QByteArray, content);

    QTemporaryDir temp;
    QVERIFY(temp.isValid());
    const QString path = QDir(temp.path()).filePath(QStringLiteral("libdamaged.so"));
    QVERIFY(writeFile(path, content));
    SystemEnvironment::addLibrarySearchPath(temp.path());

    QCOMPARE(SystemEnvironment::findLibrary(QStringLiteral("damaged")), path);
}

QTEST_GUILESS_MAIN(TestSystemEnvironment)
#include "tst_systemenvironment.moc"
