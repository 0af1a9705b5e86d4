#include <basix/SystemEnvironment.h>

#include <TestSupport.h>

#include <QtTest/QtTest>

#include <elf.h>

using tvl::SystemEnvironment;

class TestSystemEnvironment : public QObject
{
    Q_OBJECT

private slots:
    void loadsDependencies()
    {
        QTemporaryDir temp;
        for (const QFileInfo& file : QFileInfo(SYSENV_A_FILE).dir().entryInfoList(QDir::Files)) // sysenv_a and sysenv_b
            QVERIFY(QFile::copy(file.filePath(), temp.filePath(file.fileName())));
        QVERIFY(!QLibrary(temp.filePath("libsysenv_a.so")).load());
        SystemEnvironment::addLibrarySearchPath(temp.path() + "/./sub/..");
        QCOMPARE(SystemEnvironment::librarySearchPaths(), QStringList{temp.path()});
        QLibrary library(SystemEnvironment::findLibrary("sysenv_a"));
        QCOMPARE(library.fileName(), temp.filePath("libsysenv_a.so"));
        QVERIFY2(library.load(), qPrintable(library.errorString()));
        QCOMPARE(reinterpret_cast<int (*)()>(library.resolve("sysenv_a_value"))(), 41);
    }

    void lookupOrder()
    {
        // Files in the added directories 1 and 2 (a trailing "/" makes a directory), the name, the answer.
        const std::tuple<const char*, const char*, const char*> rows[] = {
            {"1/ordera 1/liborder_a.so.1 1/order_a 1/liborder_a.so", "order_a", "1/liborder_a.so"},
            {"1/liborder_b.so.3 1/order_b", "order_b", "1/order_b"}, {"1/liborder_e.so.1 2/liborder_e.so", "order_e", "1/liborder_e.so.1"},
            {"1/liborder_c.so.1 1/liborder_c.so.9.5 1/liborder_c.so.10 1/liborder_c.so.2.0.1", "order_c", "1/liborder_c.so.10"},
            {"1/liborder_d.so.2 1/liborder_d.so.2.0.1 1/liborder_d.so.3.debug 1/liborder_d.so.x 1/liborder_dx.so.4", "order_d", "1/liborder_d.so.2.0.1"},
            {"1/liborder_f.so/ 2/liborder_f.so", "order_f", "2/liborder_f.so"}, {"1/liborder_g.so.1", "order_*", "order_*"},
            {"1/liborder_h.so", "/usr/lib/liborder_h.so", "/usr/lib/liborder_h.so"}};
        for (const auto& [files, name, expected] : rows) {
            QTemporaryDir temp;
            for (const QString& file : QString(files).split(' '))
                QVERIFY(file.endsWith('/') ? QDir().mkpath(temp.filePath(file)) : !testsupport::writeFile(temp.filePath(file), "no ELF").isEmpty());
            for (const char* directory : {"1", "2"}) SystemEnvironment::addLibrarySearchPath(temp.filePath(directory));
            QCOMPARE(SystemEnvironment::findLibrary(name), QChar(expected[0]).isDigit() ? temp.filePath(expected) : QString(expected));
        }
    }

    // Whatever a file holds, finding it ends with its path: it is QLibrary's to report.
    void damagedFilesAndCycles()
    {
        const QByteArray library = testsupport::readFile(SYSENV_A_FILE);
        const auto& header = *reinterpret_cast<const Elf64_Ehdr*>(library.constData());
        const auto patched = [&](quint64 at, auto value) {
            return QByteArray(library).replace(qsizetype(at), sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
        };
        QList<QByteArray> contents{QByteArray(), library.left(sizeof header), library.left(library.size() / 2),
            patched(offsetof(Elf64_Ehdr, e_phoff), quint64(-64)), patched(offsetof(Elf64_Ehdr, e_phnum), quint16(0xffff)),
            QByteArray(library).replace("libsysenv_b.so", QByteArray("libdamaged.so\0", 14))}; // needs itself
        QVERIFY(contents.last() != library);
        for (quint64 at = header.e_phoff; at < header.e_phoff + header.e_phnum * header.e_phentsize; at += header.e_phentsize)
            contents << patched(at + offsetof(Elf64_Phdr, p_offset), quint64(-16)) << patched(at + offsetof(Elf64_Phdr, p_filesz), quint64(-1));
        for (const QByteArray& content : contents) {
            QTemporaryDir temp;
            const QString path = testsupport::writeFile(temp.filePath("libdamaged.so"), content);
            SystemEnvironment::addLibrarySearchPath(temp.path());
            QCOMPARE(SystemEnvironment::findLibrary("damaged"), path);
        }
    }
};

QTEST_GUILESS_MAIN(TestSystemEnvironment)
#include "tst_systemenvironment.moc"
