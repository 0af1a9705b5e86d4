#include <libupdater/UiUtils.h>

#include <QtTest/QtTest>
#include <QtWidgets/QWidget>

using namespace tvl::updater;

// `icon` offers exactly the fixture pictures `files` ("key_16": ":/icons/icon_key_16.png"), in order.
static void verifyIcon(const QIcon& icon, const QString& files, QIcon::State state)
{
    QList<QSize> sizes;
    for (const QString& file : files.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QImage image(QStringLiteral(":/icons/icon_%1.png").arg(file));
        sizes << image.size();
        QCOMPARE(icon.pixmap(image.size(), QIcon::Normal, state).toImage().pixel(4, 4), image.pixel(4, 4));
    }
    QCOMPARE(icon.availableSizes(QIcon::Normal, state), sizes);
}

class TestUiUtils : public QObject
{
    Q_OBJECT

private slots:
    void duration_data()
    {
        QTest::addColumn<uint>("seconds");
        QTest::addColumn<QString>("longForm");
        QTest::addColumn<QString>("shortForm");
        const QString hour = QStringLiteral("More than an hour");
        QTest::newRow("59") << 59u << "Less than a minute" << "< 1min";
        QTest::newRow("119: truncated") << 119u << "Approximately 1 minute(s)" << "1 min(s)";
        QTest::newRow("3599") << 3599u << "Approximately 59 minute(s)" << "59 min(s)";
        QTest::newRow("3600") << 3600u << hour << "1h0m";
        QTest::newRow("86399") << 86399u << hour << "23h59m";
        QTest::newRow("86400: bare days") << 86400u << hour << "1";
        QTest::newRow("max") << 0xFFFFFFFFu << hour << "49710";
    }

    void duration()
    {
        QFETCH(uint, seconds);
        QTEST(tv_seconds_to_userfriendly_duration(seconds), "longForm");
        QTEST(tv_seconds_to_userfriendly_duration_short(seconds), "shortForm");
    }

    void center()
    {
        QWidget top, other;
        top.setGeometry(100, 50, 400, 300);
        other.setGeometry(500, 400, 200, 200);
        QWidget window(new QWidget(&top), Qt::Window);
        window.resize(100, 80);
        const auto centred = [&window](QWidget* parent) { tv_center_on_widget(window, parent); return window.pos(); };
        QCOMPARE(centred(nullptr), QPoint(250, 160)); // the window of its parent widget
        QCOMPARE(centred(&other), QPoint(550, 460));
        window.setParent(nullptr, Qt::Window);
        QCOMPARE(centred(nullptr), QPoint(350, 360)); // no parent at all: the screen
        window.resize(1000, 900); // larger than the 800x800 offscreen screen: not clamped
        tv_center_on_screen(window);
        QCOMPARE(window.pos(), QPoint(-100, -50));
    }

    void icon_data()
    {
        // An int goes to tv_icon(), anything else to tv_icon_from_path(); `files` are the pictures
        // of the Off state | of the On state. The fixtures serve as theme icons too.
        QIcon::setThemeName(QStringLiteral("none"));
        QIcon::setFallbackSearchPaths({QStringLiteral(":/icons")});
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("files");
        QTest::newRow("NoIcon") << QVariant(0) << "";
        QTest::newRow("KeyIcon") << QVariant(1) << "key_16 key_32";
        QTest::newRow("EulaIcon") << QVariant(2) << "eula_16 eula_32 eula_64";
        QTest::newRow("QuitIcon") << QVariant(3) << "quit quit_32";
        QTest::newRow("TurtleModeIcon") << QVariant(4) << "turtle_mode_16_off turtle_mode_32_off | turtle_mode turtle_mode_32";
        QTest::newRow("OptionsIcon") << QVariant(5) << "options options_32";
        QTest::newRow("ResetIcon") << QVariant(6) << "reset reset_32";
        QTest::newRow("HelpIcon") << QVariant(7) << "help_16 help_32";
        QTest::newRow("RepairIcon") << QVariant(8) << "repair_32";
        const QString key = QStringLiteral(":/icons/icon_key_16.png"), eula = QStringLiteral(":/icons/icon_eula_32.png");
        QTest::newRow("string list") << QVariant(QStringList{key, eula}) << "key_16 eula_32";
        QTest::newRow("variant list") << QVariant(QVariantList{key, eula}) << "key_16 eula_32";
        QTest::newRow("variant list with a map: a path") << QVariant(QVariantList{key, QVariantMap()}) << "";
        QTest::newRow("file") << QVariant(eula) << "eula_32";
        QTest::newRow("theme icon") << QVariant("@icon_eula_32") << "eula_32 | eula_32";
    }

    void icon()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, files);
        const QIcon icon = value.typeId() == QMetaType::Int ? tv_icon(Icons::Icon(value.toInt())) : tv_icon_from_path(value);
        verifyIcon(icon, files.section(QLatin1Char('|'), 0, 0), QIcon::Off);
        verifyIcon(icon, files.section(QLatin1Char('|'), 1), QIcon::On);
    }
};

QTEST_MAIN(TestUiUtils)
#include "tst_uiutils.moc"
