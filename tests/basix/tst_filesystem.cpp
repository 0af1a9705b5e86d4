#include <basix/Filesystem.h>

#include <TestSupport.h>

#include <QtTest/QtTest>

#include <sys/stat.h>

using tvl::Filesystem;
using testsupport::writeFile;

// Whether something is at `path`, a dangling symbolic link included.
static bool present(const QString& path) { struct stat s; return ::lstat(QFile::encodeName(path).constData(), &s) == 0; }

class TestFilesystem : public QObject
{
    Q_OBJECT

private slots:
    void touchAndHide()
    {
        QTemporaryDir temp;
        const QString file = writeFile(temp.filePath("old ✓"), "content"), missing = temp.filePath("missing/file");
        QFile handle(file);
        QVERIFY(handle.open(QIODevice::ReadWrite));
        QVERIFY(handle.setFileTime(QDateTime(QDate(2001, 1, 1), QTime(12, 0)), QFileDevice::FileModificationTime));
        QVERIFY(Filesystem::touch(file) && Filesystem::touch(temp.filePath("new")));
        QVERIFY(QFileInfo(file).lastModified().secsTo(QDateTime::currentDateTime()) < 5);
        QCOMPARE(testsupport::readFile(file) + testsupport::readFile(temp.filePath("new")), "content");
        QCOMPARE(Filesystem::touch(missing).errorString(), "Cannot create " + missing + ": " + qt_error_string(ENOENT));
        QVERIFY(!present(temp.filePath("missing")));

        // Only the name hides a file here, and nothing is ever renamed.
        writeFile(temp.filePath(".config/visible"), {});
        const QStringList before = QDir(temp.path()).entryList(QDir::AllEntries | QDir::Hidden);
        const std::tuple<const char*, bool, bool> rows[] = {{"new", false, true}, {"new", true, false},
            {".config", true, true}, {".config", false, false}, {".config/.", true, true},
            {".config/visible", true, false}, {".missing", true, false}, {".", true, false}};
        for (const auto& [relative, hidden, success] : rows) {
            const Filesystem::Result result = Filesystem::setHidden(temp.filePath(relative), hidden);
            QVERIFY2(result.isSuccess() == success && result.errorString().contains(temp.filePath(relative)) != success, relative);
        }
        QCOMPARE(QDir(temp.path()).entryList(QDir::AllEntries | QDir::Hidden), before);
    }

    void remove()
    {
        // Target, options, success, and what must be left or (after "-") gone.
        const std::tuple<const char*, int, bool, const char*> rows[] = {{"file.txt", 0, true, "-file.txt target.txt"},
            {"link", 0, true, "-link target.txt"}, {"dangling", 0, true, "-dangling"}, {"empty", 0, true, "-empty"},
            {"dirlink/", Filesystem::Recursive, true, "-dirlink outside/keep.txt"}, {"tree", 0, false, "tree/a.txt tree/sub/out"},
            {"tree/", Filesystem::Recursive, true, "-tree outside/keep.txt"}, {"missing", 0, false, ""},
            {"file.txt/x", Filesystem::IgnoreMissing, true, "file.txt"}, {"file.txt/x", 0, false, "file.txt"}};
        for (const auto& [target, options, success, paths] : rows) {
            QTemporaryDir temp;
            const QDir root(temp.path());
            for (const char* file : {"file.txt", "target.txt", "outside/keep.txt", "tree/a.txt", "tree/sub/b.txt"})
                writeFile(root.filePath(file), file);
            QVERIFY(root.mkpath("empty") && QFile::link("target.txt", root.filePath("link")) && QFile::link("missing", root.filePath("dangling"))
                    && QFile::link("outside", root.filePath("dirlink")) && QFile::link("../../outside", root.filePath("tree/sub/out")));
            const Filesystem::Result result = Filesystem::remove(root.filePath(target), Filesystem::RemoveOptions(options));
            QVERIFY2(result.isSuccess() == success && result.errorString().contains(root.filePath(target)) != success, target);
            for (const QString& entry : QString(paths).split(' ', Qt::SkipEmptyParts))
                QVERIFY2(present(root.filePath(QString(entry).remove('-'))) != entry.startsWith('-'), qPrintable(target + entry));
        }
    }
};

QTEST_GUILESS_MAIN(TestFilesystem)
#include "tst_filesystem.moc"
