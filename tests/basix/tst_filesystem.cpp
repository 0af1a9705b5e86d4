#include <basix/Filesystem.h>

#include <QtTest/QtTest>

#include <sys/stat.h>
#include <unistd.h>

using tvl::Filesystem;

Q_DECLARE_METATYPE(Filesystem::RemoveOptions)

namespace {

/// Whether something is at `path`, a dangling symbolic link included.
bool present(const QString& path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

bool writeFile(const QString& path, const QByteArray& content = QByteArray())
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QDateTime modificationTime(const QString& path)
{
    return QFileInfo(path).fileTime(QFileDevice::FileModificationTime);
}

/**
 * A small tree to remove things from:
 *   file.txt, target.txt, link -> target.txt, dangling -> missing, empty/,
 *   outside/keep.txt, dirlink -> outside,
 *   tree/a.txt, tree/sub/b.txt, tree/sub/.hidden, tree/sub/out -> ../../outside
 */
bool makeTree(const QDir& root)
{
    return writeFile(root.filePath(QStringLiteral("file.txt")), "file")
        && writeFile(root.filePath(QStringLiteral("target.txt")), "target")
        && QFile::link(QStringLiteral("target.txt"), root.filePath(QStringLiteral("link")))
        && QFile::link(QStringLiteral("missing"), root.filePath(QStringLiteral("dangling")))
        && root.mkpath(QStringLiteral("empty"))
        && root.mkpath(QStringLiteral("outside"))
        && writeFile(root.filePath(QStringLiteral("outside/keep.txt")), "keep")
        && QFile::link(QStringLiteral("outside"), root.filePath(QStringLiteral("dirlink")))
        && root.mkpath(QStringLiteral("tree/sub"))
        && writeFile(root.filePath(QStringLiteral("tree/a.txt")), "a")
        && writeFile(root.filePath(QStringLiteral("tree/sub/b.txt")), "b")
        && writeFile(root.filePath(QStringLiteral("tree/sub/.hidden")), "h")
        && QFile::link(QStringLiteral("../../outside"), root.filePath(QStringLiteral("tree/sub/out")));
}

} // namespace

class TestFilesystem : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void touchCreates();
    void touchMovesModificationTimeForward();
    void touchFailsInMissingDirectory();
    void setHidden_data();
    void setHidden();
    void remove_data();
    void remove();
    void removeUnremovable_data();
    void removeUnremovable();

private:
    QScopedPointer<QTemporaryDir> m_temp;
    QString path(const QString& relative) const { return m_temp->filePath(relative); }
};

void TestFilesystem::init()
{
    m_temp.reset(new QTemporaryDir);
    QVERIFY(m_temp->isValid());
}

void TestFilesystem::touchCreates()
{
    const QString file = path(QStringLiteral("new file ✓"));
    const Filesystem::Result result = Filesystem::touch(file);
    QVERIFY2(result, qPrintable(result.errorString()));
    QVERIFY(QFileInfo(file).isFile());
    QCOMPARE(QFileInfo(file).size(), 0);
}

void TestFilesystem::touchMovesModificationTimeForward()
{
    const QString file = path(QStringLiteral("old"));
    QVERIFY(writeFile(file, "content"));
    const QDateTime old(QDate(2001, 1, 1), QTime(12, 0), Qt::UTC);
    {
        QFile handle(file);
        QVERIFY(handle.open(QIODevice::ReadWrite));
        QVERIFY(handle.setFileTime(old, QFileDevice::FileModificationTime));
    }
    QCOMPARE(modificationTime(file), old);

    const QDateTime before = QDateTime::currentDateTimeUtc();
    const Filesystem::Result result = Filesystem::touch(file);
    QVERIFY2(result, qPrintable(result.errorString()));

    // Filesystems store coarse times, so "now" is allowed to lag a little.
    QVERIFY(modificationTime(file) >= before.addSecs(-2));
    QFile handle(file);
    QVERIFY(handle.open(QIODevice::ReadOnly));
    QCOMPARE(handle.readAll(), QByteArray("content"));
}

void TestFilesystem::touchFailsInMissingDirectory()
{
    const QString file = path(QStringLiteral("missing/file"));
    const Filesystem::Result result = Filesystem::touch(file);
    QVERIFY(!result);
    QVERIFY2(result.errorString().contains(file), qPrintable(result.errorString()));
    QVERIFY2(result.errorString().contains(qt_error_string(ENOENT)), qPrintable(result.errorString()));
    QVERIFY(!present(path(QStringLiteral("missing"))));
}

void TestFilesystem::setHidden_data()
{
    QTest::addColumn<QString>("relative"); // below the temporary directory
    QTest::addColumn<bool>("hidden");
    QTest::addColumn<bool>("success");

    const auto s = [](const char* text) { return QString::fromUtf8(text); };
    QTest::newRow("visible file, show") << s("visible") << false << true;
    QTest::newRow("visible file, hide") << s("visible") << true << false;
    QTest::newRow("hidden file, hide") << s(".hidden") << true << true;
    QTest::newRow("hidden file, show") << s(".hidden") << false << false;
    QTest::newRow("hidden directory, hide") << s(".config") << true << true;
    QTest::newRow("hidden directory written with a dot, hide") << s(".config/.") << true << true;
    QTest::newRow("visible file in hidden directory, hide") << s(".config/visible") << true << false;
    QTest::newRow("missing, show") << s("missing") << false << false;
    QTest::newRow("missing, hide") << s(".missing") << true << false;
}

void TestFilesystem::setHidden()
{
    QFETCH(QString, relative);
    QFETCH(bool, hidden);
    QFETCH(bool, success);

    QVERIFY(writeFile(path(QStringLiteral("visible"))));
    QVERIFY(writeFile(path(QStringLiteral(".hidden"))));
    QVERIFY(QDir(m_temp->path()).mkpath(QStringLiteral(".config")));
    QVERIFY(writeFile(path(QStringLiteral(".config/visible"))));
    const QStringList before = QDir(m_temp->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);

    const QString target = path(relative);
    const Filesystem::Result result = Filesystem::setHidden(target, hidden);
    QCOMPARE(result.isSuccess(), success);
    if (!success)
        QVERIFY2(result.errorString().contains(target), qPrintable(result.errorString()));
    QCOMPARE(QDir(m_temp->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), before);
}

void TestFilesystem::remove_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<Filesystem::RemoveOptions>("options");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QStringList>("gone");
    QTest::addColumn<QStringList>("kept");

    using L = QStringList;
    const auto s = [](const char* text) { return QString::fromUtf8(text); };
    const Filesystem::RemoveOptions none = Filesystem::NoRemoveOptions;
    const Filesystem::RemoveOptions recursive = Filesystem::Recursive;
    const Filesystem::RemoveOptions ignore = Filesystem::IgnoreMissing;
    const L outside {s("outside/keep.txt")};

    QTest::newRow("file") << s("file.txt") << none << true << L {s("file.txt")} << L {s("target.txt")};
    QTest::newRow("symlink, not its target") << s("link") << none << true << L {s("link")} << L {s("target.txt")};
    QTest::newRow("dangling symlink") << s("dangling") << none << true << L {s("dangling")} << L {};
    QTest::newRow("symlink to a directory, recursively") << s("dirlink") << recursive << true << L {s("dirlink")}
                                                         << outside;
    QTest::newRow("symlink to a directory with a slash") << s("dirlink/") << recursive << true
                                                         << L {s("dirlink")} << outside;
    QTest::newRow("empty directory") << s("empty") << none << true << L {s("empty")} << L {};
    QTest::newRow("tree without Recursive") << s("tree") << none << false << L {}
                                            << L {s("tree/a.txt"), s("tree/sub/.hidden"), s("tree/sub/out")};
    QTest::newRow("tree") << s("tree") << recursive << true << L {s("tree")} << outside;
    QTest::newRow("subtree") << s("tree/sub") << recursive << true << L {s("tree/sub")} << L {s("tree/a.txt")} + outside;
    QTest::newRow("file with Recursive") << s("file.txt") << recursive << true << L {s("file.txt")} << L {};
    QTest::newRow("missing") << s("missing") << none << false << L {} << L {};
    QTest::newRow("missing, ignored") << s("missing") << ignore << true << L {} << L {};
    QTest::newRow("below a file, ignored") << s("file.txt/x") << ignore << true << L {} << L {s("file.txt")};
    QTest::newRow("below a file") << s("file.txt/x") << none << false << L {} << L {s("file.txt")};
}

void TestFilesystem::remove()
{
    QFETCH(QString, relative);
    QFETCH(Filesystem::RemoveOptions, options);
    QFETCH(bool, success);
    QFETCH(QStringList, gone);
    QFETCH(QStringList, kept);

    QVERIFY(makeTree(QDir(m_temp->path())));
    const Filesystem::Result result = Filesystem::remove(path(relative), options);
    QVERIFY2(result.isSuccess() == success, qPrintable(result.errorString()));
    if (!success)
        QVERIFY2(result.errorString().contains(path(relative)), qPrintable(result.errorString()));
    for (const QString& entry : std::as_const(gone))
        QVERIFY2(!present(path(entry)), qPrintable(entry));
    for (const QString& entry : std::as_const(kept))
        QVERIFY2(present(path(entry)), qPrintable(entry));
}

void TestFilesystem::removeUnremovable_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<Filesystem::RemoveOptions>("options");
    QTest::addColumn<QString>("failing"); // the path the reason must name

    const auto s = [](const char* text) { return QString::fromUtf8(text); };
    QTest::newRow("file in a read-only directory") << s("locked/file") << Filesystem::RemoveOptions()
                                                   << s("locked/file");
    QTest::newRow("tree with a read-only directory") << s("locked") << Filesystem::RemoveOptions(Filesystem::Recursive)
                                                     << s("locked/file");
}

void TestFilesystem::removeUnremovable()
{
    if (::geteuid() == 0)
        QSKIP("permissions do not stop root");
    QFETCH(QString, relative);
    QFETCH(Filesystem::RemoveOptions, options);
    QFETCH(QString, failing);

    const QString locked = path(QStringLiteral("locked"));
    QVERIFY(QDir(m_temp->path()).mkpath(QStringLiteral("locked")));
    QVERIFY(writeFile(path(QStringLiteral("locked/file"))));
    QVERIFY(QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner));
    const auto restore = qScopeGuard([&] { QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner); });

    const Filesystem::Result result = Filesystem::remove(path(relative), options);
    QVERIFY(!result);
    QVERIFY2(result.errorString().contains(path(failing) + QLatin1Char(':')), qPrintable(result.errorString()));
    QVERIFY2(result.errorString().contains(qt_error_string(EACCES)), qPrintable(result.errorString()));
    QVERIFY(present(path(QStringLiteral("locked/file"))));
}

QTEST_GUILESS_MAIN(TestFilesystem)
#include "tst_filesystem.moc"
