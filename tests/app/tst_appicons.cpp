// The launcher's built-in icons (app/icons.qrc, embedded in the updater executable and here): every file of
// the library's icon table is there, and every icon of the table is built from them at its sizes.
#include <libupdater/UiUtils.h>

#include <QtGui/QImageReader>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>

using namespace tvl::updater;

class TestAppIcons : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyIconOfTheTable_data()
    {
        QTest::addColumn<int>("icon");
        QTest::addColumn<QList<int>>("sizes");
        QTest::newRow("key") << int(Icons::KeyIcon) << QList<int>{16, 32};
        QTest::newRow("eula") << int(Icons::EulaIcon) << QList<int>{16, 32, 64};
        QTest::newRow("quit") << int(Icons::QuitIcon) << QList<int>{16, 32};
        QTest::newRow("turtle mode") << int(Icons::TurtleModeIcon) << QList<int>{16, 32};
        QTest::newRow("options") << int(Icons::OptionsIcon) << QList<int>{16, 32};
        QTest::newRow("reset") << int(Icons::ResetIcon) << QList<int>{16, 32};
        QTest::newRow("help") << int(Icons::HelpIcon) << QList<int>{16, 32};
        QTest::newRow("repair") << int(Icons::RepairIcon) << QList<int>{32};
    }
    void everyIconOfTheTable()
    {
        QFETCH(int, icon);
        QFETCH(QList<int>, sizes);
        const QIcon built = tv_icon(Icons::Icon(icon));
        QVERIFY(!built.isNull());
        QList<int> available;
        for (const QSize& size : built.availableSizes(QIcon::Normal, QIcon::Off))
            available.append(size.width());
        std::sort(available.begin(), available.end());
        QCOMPARE(available, sizes);
        if (icon == Icons::TurtleModeIcon) {
            // On and off look different.
            const QImage on = built.pixmap(QSize(32, 32), QIcon::Normal, QIcon::On).toImage();
            const QImage off = built.pixmap(QSize(32, 32), QIcon::Normal, QIcon::Off).toImage();
            QVERIFY(!on.isNull() && !off.isNull());
            QVERIFY(on != off);
        }
    }

    void filesAreSquareImagesOfTheirSize()
    {
        const QStringList files = QDir(QStringLiteral(":/icons")).entryList(QDir::Files);
        QCOMPARE(files.size(), 18);
        for (const QString& file : files) {
            QImageReader reader(QStringLiteral(":/icons/") + file);
            const QImage image = reader.read();
            QVERIFY2(!image.isNull(), qPrintable(file + ": " + reader.errorString()));
            QCOMPARE(image.width(), image.height());
            // The names give the size where they carry one; those without are the 16-pixel ones.
            const QRegularExpressionMatch size = QRegularExpression(QStringLiteral("_(16|32|64)(_off)?\\.png$")).match(file);
            QCOMPARE(image.width(), size.hasMatch() ? size.captured(1).toInt() : 16);
        }
    }
};

QTEST_MAIN(TestAppIcons)
#include "tst_appicons.moc"
