#include <libupdater/UiUtils.h>

#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>

#include <QtCore/QDir>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTranslator>
#include <QtGui/QScreen>
#include <QtTest/QtTest>
#include <QtWidgets/QWidget>

#include <climits>

using namespace tvl::updater;

namespace {

QString res(const char* name)
{
    return QStringLiteral(":/icons/") + QLatin1String(name);
}

QColor colourAt(const QImage& image)
{
    return image.isNull() ? QColor() : image.pixelColor(image.width() / 2, image.height() / 2);
}

// The icon offers exactly the sizes of `files` for `state`, in order, each drawn from its file.
void verifyIcon(const QIcon& icon, const QStringList& files, QIcon::State state = QIcon::Off)
{
    QCOMPARE(icon.isNull(), files.isEmpty());
    QList<QSize> sizes;
    for (const QString& file : files) {
        const QImage image(file);
        sizes << image.size();
        QCOMPARE(colourAt(icon.pixmap(image.size(), QIcon::Normal, state).toImage()),
                 colourAt(image));
    }
    QCOMPARE(icon.availableSizes(QIcon::Normal, state), sizes);
}

// Answers the texts of the "QObject" context with the source text in angle brackets.
class MarkingTranslator : public QTranslator
{
public:
    QString translate(const char* context, const char* text, const char*, int) const override
    {
        return qstrcmp(context, "QObject") == 0 ? QStringLiteral("<%1>").arg(QLatin1String(text))
                                                : QString();
    }
    bool isEmpty() const override { return false; }
};

class MessageOutput : public tvl::AbstractLoggerOutput
{
public:
    void writeLogHeader() override {}
    void write(const QString& message, const QString& file, const QString& function,
               const QString&, int, tvl::Logger::Level level, const QDateTime&, int) override
    {
        messages << QStringLiteral("%1 %2 %3: %4").arg(level).arg(file, function, message);
    }
    QStringList messages; // read after Logger::flush() only
};

} // namespace

class TestUiUtils : public QObject
{
    Q_OBJECT

private slots:
    void duration_data();
    void duration();
    void durationTranslated();
    void center_data();
    void center();
    void icon_data();
    void icon();
    void turtleModeIcon();
    void iconFromFiles();
    void iconFromPath_data();
    void iconFromPath();
    void iconFromThemePath();
};

void TestUiUtils::duration_data()
{
    QTest::addColumn<unsigned int>("seconds");
    QTest::addColumn<QString>("longForm");
    QTest::addColumn<QString>("shortForm");

    const QString minute = QStringLiteral("Less than a minute");
    const QString hour = QStringLiteral("More than an hour");
    const auto minutes = [](int n) { return QStringLiteral("Approximately %1 minute(s)").arg(n); };
    QTest::newRow("0") << 0u << minute << QStringLiteral("< 1min");
    QTest::newRow("59") << 59u << minute << QStringLiteral("< 1min");
    QTest::newRow("60") << 60u << minutes(1) << QStringLiteral("1 min(s)");
    QTest::newRow("119 truncated") << 119u << minutes(1) << QStringLiteral("1 min(s)");
    QTest::newRow("3599") << 3599u << minutes(59) << QStringLiteral("59 min(s)");
    QTest::newRow("3600") << 3600u << hour << QStringLiteral("1h0m");
    QTest::newRow("3700") << 3700u << hour << QStringLiteral("1h1m");
    QTest::newRow("7260") << 7260u << hour << QStringLiteral("2h1m");
    QTest::newRow("86399") << 86399u << hour << QStringLiteral("23h59m");
    QTest::newRow("86400: bare days") << 86400u << hour << QStringLiteral("1");
    QTest::newRow("200000") << 200000u << hour << QStringLiteral("2");
    QTest::newRow("1000000") << 1000000u << hour << QStringLiteral("11");
    QTest::newRow("max") << UINT_MAX << hour << QStringLiteral("49710");
}

void TestUiUtils::duration()
{
    QFETCH(unsigned int, seconds);
    QFETCH(QString, longForm);
    QFETCH(QString, shortForm);
    QCOMPARE(tv_seconds_to_userfriendly_duration(seconds), longForm);
    QCOMPARE(tv_seconds_to_userfriendly_duration_short(seconds), shortForm);
}

void TestUiUtils::durationTranslated()
{
    MarkingTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    const QStringList texts{tv_seconds_to_userfriendly_duration(120),
                            tv_seconds_to_userfriendly_duration_short(7260),
                            tv_seconds_to_userfriendly_duration_short(200000)};
    QCoreApplication::removeTranslator(&translator);
    QCOMPARE(texts, QStringList({QStringLiteral("<Approximately 2 minute(s)>"),
                                 QStringLiteral("<2h1m>"), QStringLiteral("<2>")}));
}

void TestUiUtils::center_data()
{
    // Widgets: "top" at (100, 50) 400x300, centre (299, 199), with a child widget "child";
    // "other" at (500, 400) 200x200, centre (599, 499); the offscreen screen is 800x800,
    // centre (399, 399). Parent "-" means none; "screen" calls tv_center_on_screen.
    QTest::addColumn<QString>("ownParent");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QPoint>("position");

    QTest::newRow("screen") << "-" << "screen" << QSize(200, 100) << QPoint(300, 350);
    QTest::newRow("screen, odd size") << "-" << "screen" << QSize(201, 101) << QPoint(299, 349);
    QTest::newRow("screen, larger: not clamped")
        << "-" << "screen" << QSize(1000, 900) << QPoint(-100, -50);
    QTest::newRow("child parent: its top-level window")
        << "-" << "child" << QSize(100, 80) << QPoint(250, 160);
    QTest::newRow("own parent widget: its top-level window")
        << "child" << "-" << QSize(100, 80) << QPoint(250, 160);
    QTest::newRow("explicit parent wins") << "child" << "other" << QSize(100, 80) << QPoint(550, 460);
    QTest::newRow("no parent at all: the screen") << "-" << "-" << QSize(100, 80) << QPoint(350, 360);
}

void TestUiUtils::center()
{
    QFETCH(QString, ownParent);
    QFETCH(QString, target);
    QFETCH(QSize, size);
    QFETCH(QPoint, position);
    QCOMPARE(QGuiApplication::primaryScreen()->availableGeometry(), QRect(0, 0, 800, 800));

    QWidget top;
    top.setGeometry(100, 50, 400, 300);
    QWidget other;
    other.setGeometry(500, 400, 200, 200);
    QWidget* child = new QWidget(&top);
    child->setGeometry(10, 10, 50, 50);
    const QHash<QString, QWidget*> widgets{
        {QStringLiteral("top"), &top}, {QStringLiteral("child"), child}, {QStringLiteral("other"), &other}};

    QWidget* window = new QWidget(widgets.value(ownParent), Qt::Window);
    window->setGeometry(QRect(QPoint(7, 9), size));
    if (target == QLatin1String("screen"))
        tv_center_on_screen(*window);
    else
        tv_center_on_widget(*window, widgets.value(target));
    QCOMPARE(window->geometry(), QRect(position, size));
    delete window;
}

void TestUiUtils::icon_data()
{
    QTest::addColumn<int>("icon");
    QTest::addColumn<QStringList>("files");

    QTest::newRow("NoIcon") << 0 << QStringList();
    QTest::newRow("KeyIcon") << 1 << QStringList{res("icon_key_16.png"), res("icon_key_32.png")};
    QTest::newRow("EulaIcon") << 2 << QStringList{res("icon_eula_16.png"), res("icon_eula_32.png"),
                                                   res("icon_eula_64.png")};
    QTest::newRow("QuitIcon") << 3 << QStringList{res("icon_quit.png"), res("icon_quit_32.png")};
    QTest::newRow("OptionsIcon") << 5 << QStringList{res("icon_options.png"), res("icon_options_32.png")};
    QTest::newRow("ResetIcon") << 6 << QStringList{res("icon_reset.png"), res("icon_reset_32.png")};
    QTest::newRow("HelpIcon") << 7 << QStringList{res("icon_help_16.png"), res("icon_help_32.png")};
    QTest::newRow("RepairIcon") << 8 << QStringList{res("icon_repair_32.png")};
    QTest::newRow("9") << 9 << QStringList();
}

void TestUiUtils::icon()
{
    QFETCH(int, icon);
    QFETCH(QStringList, files);

    // The fixture files are told apart by colour.
    QSet<QRgb> colours;
    const QStringList all = QDir(QStringLiteral(":/icons")).entryList();
    for (const QString& file : all)
        colours.insert(QImage(QStringLiteral(":/icons/") + file).pixel(0, 0));
    QCOMPARE(colours.size(), all.size());

    verifyIcon(tv_icon(Icons::Icon(icon)), files);
}

void TestUiUtils::turtleModeIcon()
{
    const QIcon icon = tv_icon(Icons::TurtleModeIcon);
    verifyIcon(icon, {res("icon_turtle_mode.png"), res("icon_turtle_mode_32.png")}, QIcon::On);
    verifyIcon(icon, {res("icon_turtle_mode_16_off.png"), res("icon_turtle_mode_32_off.png")},
               QIcon::Off);
}

void TestUiUtils::iconFromFiles()
{
    const QString key = res("icon_key_16.png"), eula32 = res("icon_eula_32.png"),
                  eula64 = res("icon_eula_64.png");
    verifyIcon(tv_icon_from_files(QStringList{QString(), key, QString(), eula64}), {key, eula64});
    // All eight places are used; null strings between them are skipped.
    verifyIcon(tv_icon_from_files(key, QString(), QString(), QString(), eula32, QString(), QString(),
                                  eula64),
               {key, eula32, eula64});
}

void TestUiUtils::iconFromPath_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("logged");

    const QString key = res("icon_key_16.png"), eula = res("icon_eula_32.png");
    QTest::newRow("string list") << QVariant(QStringList{key, eula}) << QStringList{key, eula}
                                 << QStringLiteral("LIST");
    QTest::newRow("variant list") << QVariant(QVariantList{key, QString(), eula})
                                  << QStringList{key, eula} << QStringLiteral("LIST");
    // Not all items are strings: a path, and the list's string form is empty.
    QTest::newRow("variant list with a map")
        << QVariant(QVariantList{key, QVariantMap{{QStringLiteral("a"), 1}}}) << QStringList()
        << QStringLiteral("PATH ");
    QTest::newRow("file") << QVariant(eula) << QStringList{eula}
                          << QStringLiteral("PATH :/icons/icon_eula_32.png");
    QTest::newRow("unknown theme name") << QVariant(QStringLiteral("@tvl-no-such-icon"))
                                        << QStringList() << QStringLiteral("PATH @tvl-no-such-icon");
    // The test's working directory holds a file of this name: it must not be loaded.
    QTest::newRow("theme name, not a file") << QVariant(QStringLiteral("@icon.png"))
                                            << QStringList() << QStringLiteral("PATH @icon.png");
}

void TestUiUtils::iconFromPath()
{
    QFETCH(QVariant, value);
    QFETCH(QStringList, files);
    QFETCH(QString, logged);

    QTemporaryDir dir;
    QVERIFY(QFile::copy(res("icon_key_32.png"), dir.filePath(QStringLiteral("@icon.png"))));
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(dir.path()));
    MessageOutput log;
    tvl::Logger::instance()->addOutput(&log);
    const QIcon icon = tv_icon_from_path(value);
    tvl::Logger::instance()->removeOutput(&log);
    const QIcon fromString = tv_icon_from_path(value.toString());
    QDir::setCurrent(previous);

    verifyIcon(icon, files);
    if (value.typeId() == QMetaType::QString)
        verifyIcon(fromString, files);
    QCOMPARE(log.messages, QStringList(QStringLiteral("0 libupdater/UiUtils tv_icon_from_path: ") + logged));
}

void TestUiUtils::iconFromThemePath()
{
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("tvltest/32x32/places")));
    QFile index(dir.filePath(QStringLiteral("tvltest/index.theme")));
    QVERIFY(index.open(QIODevice::WriteOnly));
    index.write("[Icon Theme]\nName=tvltest\nDirectories=32x32/places\n\n"
                "[32x32/places]\nSize=32\nType=Fixed\n");
    index.close();
    const QString eula = res("icon_eula_32.png");
    QVERIFY(QFile::copy(eula, dir.filePath(QStringLiteral("tvltest/32x32/places/tvl-folder.png"))));

    // A theme icon is looked up again whenever the theme changes: check before restoring.
    struct ThemeRestorer
    {
        const QStringList paths = QIcon::themeSearchPaths();
        const QString name = QIcon::themeName();
        ~ThemeRestorer()
        {
            QIcon::setThemeName(name);
            QIcon::setThemeSearchPaths(paths);
        }
    } restorer;
    QIcon::setThemeSearchPaths({dir.path()});
    QIcon::setThemeName(QStringLiteral("tvltest"));

    verifyIcon(tv_icon_from_path(QStringLiteral("@tvl-folder")), {eula});
    verifyIcon(tv_icon_from_path(QVariant(QStringLiteral("@tvl-folder"))), {eula});
    QVERIFY(tv_icon_from_path(QStringLiteral("@TVL-FOLDER")).isNull());
    // Without the "@" it is a file name, and there is no such file.
    QVERIFY(tv_icon_from_path(QStringLiteral("tvl-folder")).availableSizes().isEmpty());
}

QTEST_MAIN(TestUiUtils)
#include "tst_uiutils.moc"
