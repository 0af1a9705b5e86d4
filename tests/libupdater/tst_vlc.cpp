#include <libupdater/vlc/VlcInstance.h>
#include <libupdater/vlc/VlcPlayer.h>
#include <libupdater/vlc/VlcVideoGraphicsItem.h>

#include <LogCapture.h>

#include <QtCore/QPointer>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QGraphicsScene>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

// libvlc's log context as libvlc hands it to a log callback (libvlc.h leaves it opaque).
struct vlc_log_t
{
    std::uintptr_t i_object_id;
    const char* psz_object_type;
    const char* psz_module;
    const char* psz_header;
    const char* file;
    int line;
    const char* func;
    unsigned long tid;
};

using tvl::updater::AbstractVideoPlayer;
using tvl::updater::VlcInstance;
using tvl::updater::VlcPlayer;
using tvl::updater::VlcVideoGraphicsItem;

namespace {

const char LoaderChildSwitch[] = "--vlc-loader-child";
const QString InstanceSource = QStringLiteral("libupdater/vlc/VlcInstance");
const QString PlayerSource = QStringLiteral("libupdater/vlc/VlcPlayer");
const QString VlcOriginPrefix = QStringLiteral("[VLC LIBRARY : ");

/**
 * The child side of the loader tests: one VlcInstance, built and destroyed, with what it
 * logged written to standard output as "record <level>\t<source>\t<function>\t<message>".
 */
int runLoaderChild(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    LogCapture capture;
    bool loaded = false;
    {
        VlcInstance instance;
        loaded = instance.isLoaded();
    }
    std::printf("loaded %d\n", int(loaded));
    for (const LogCapture::Record& record : capture.take()) {
        std::printf("record %d\t%s\t%s\t%s\n", record.level, qPrintable(record.file),
                    qPrintable(record.function), qPrintable(record.message));
    }
    return 0;
}

struct ChildResult
{
    bool finished = false;
    bool loaded = false;
    QStringList instanceLines;  ///< "<level> <message>" of the loader's own records
    QStringList instanceFunctions;
    QStringList libvlcLines;    ///< "<level> <origin> <message>" of libvlc's messages
    QStringList calls;          ///< libvlc calls reported by a stand-in
    QString output;
};

/**
 * Runs runLoaderChild() in a new process. With a `fakeKind`, the child is a copy of this
 * executable whose "vlc" directory holds that stand-in as libvlc.so, and nothing else.
 * With a `hideMode`, libvlc is hidden from the child's dlopen() as that mode says.
 */
ChildResult runLoader(const QString& fakeKind, const QString& hideMode = QString())
{
    ChildResult result;
    QTemporaryDir directory;
    QString program = QCoreApplication::applicationFilePath();
    if (!fakeKind.isEmpty()) {
        const QString application = directory.filePath(QStringLiteral("app"));
        if (!QDir().mkpath(application + QStringLiteral("/vlc")))
            return result;
        const QString fake = QStringLiteral(FAKE_LIBVLC_DIR "/%1/libvlc.so").arg(fakeKind);
        const QString copy = application + QStringLiteral("/") + QFileInfo(program).fileName();
        if (!QFile::copy(fake, application + QStringLiteral("/vlc/libvlc.so")) || !QFile::copy(program, copy))
            return result;
        program = copy;
    }

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!hideMode.isEmpty()) {
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(HIDE_LIBVLC));
        environment.insert(QStringLiteral("HIDE_LIBVLC"), hideMode);
        // The sanitizer runtime wants to be first among the loaded libraries, which a preloaded
        // library is not.
        environment.insert(QStringLiteral("ASAN_OPTIONS"),
                           QStringLiteral("verify_asan_link_order=0:")
                               + environment.value(QStringLiteral("ASAN_OPTIONS")));
    }

    QProcess child;
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(program, {QString::fromLatin1(LoaderChildSwitch)});
    result.finished = child.waitForFinished(60000) && child.exitStatus() == QProcess::NormalExit
        && child.exitCode() == 0;
    result.output = QString::fromLocal8Bit(child.readAllStandardOutput());

    const QStringList lines = result.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        if (line.startsWith(QLatin1String("loaded "))) {
            result.loaded = line == QLatin1String("loaded 1");
        } else if (line.startsWith(QLatin1String("CALL "))) {
            result.calls.append(line.mid(5));
        } else if (line.startsWith(QLatin1String("record "))) {
            const QStringList fields = line.mid(7).split(QLatin1Char('\t'));
            if (fields.size() != 4)
                continue;
            if (fields.at(1) == InstanceSource) {
                result.instanceLines.append(fields.at(0) + QLatin1Char(' ') + fields.at(3));
                result.instanceFunctions.append(fields.at(2));
            } else if (fields.at(1).startsWith(VlcOriginPrefix)) {
                result.libvlcLines.append(fields.at(0) + QLatin1Char(' ') + fields.at(1) + QLatin1Char(' ')
                                          + fields.at(3));
            }
        }
    }
    return result;
}

/// Calls log_vlc as libvlc would, then formats the same arguments again: they must be intact.
QString callLogVlc(int level, const vlc_log_t* context, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    tvl::updater::log_vlc(nullptr, level, context, format, arguments);
    const QString again = QString::vasprintf(format, arguments);
    va_end(arguments);
    return again;
}

/// Counts the repaint requests that libvlc's video thread posts to an item.
class FrameCounter : public QObject
{
public:
    explicit FrameCounter(QObject* item)
    {
        item->installEventFilter(this);
    }

    int frames = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Type(1000))
            ++frames;
        return false;
    }
};

QImage renderScene(QGraphicsScene& scene, const QSize& size)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    QPainter painter(&image);
    scene.render(&painter, QRectF(QPointF(0, 0), size), QRectF(QPointF(0, 0), size));
    return image;
}

/// How many pixels of `area` are not of the colour `rgb`.
int pixelsOtherThan(const QImage& image, const QRect& area, QRgb rgb)
{
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            if (image.pixel(x, y) != rgb)
                ++count;
        }
    }
    return count;
}

const QRgb Black = qRgb(0, 0, 0);
const QRgb White = qRgb(255, 255, 255);

/// A player with an item in a scene; stopped before the scene deletes the item.
struct Playback
{
    Playback(VlcInstance* instance, const QSize& size)
        : player(instance)
        , item(player.createGraphicsItem(size))
        , object(dynamic_cast<QObject*>(item))
        , counter(object)
        , stopped(&player, &VlcPlayer::stopped)
        , durations(&player, &AbstractVideoPlayer::durationChanged)
    {
        scene.addItem(item);
    }
    ~Playback() { player.stop(); }

    VlcPlayer player;
    QGraphicsScene scene;
    QGraphicsItem* item;
    QObject* object;
    FrameCounter counter;
    QSignalSpy stopped;
    QSignalSpy durations;
};

QUrl testVideo()
{
    return QUrl::fromLocalFile(QStringLiteral(TEST_VIDEO));
}

} // namespace

class VlcTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void loaderWithStandIns_data();
    void loaderWithStandIns();
    void loaderWithHiddenLibvlc_data();
    void loaderWithHiddenLibvlc();
    void logCallback_data();
    void logCallback();

    void playsToEnd_data();
    void playsToEnd();
    void pauseOpenWhilePlayingAndStop();
    void missingFileEnds();
    void playerWithoutMedia();
    void itemEvents_data();
    void itemEvents();
    void twoPlayersOnOneInstance_data();
    void twoPlayersOnOneInstance();

private:
    std::unique_ptr<LogCapture> m_log;
    VlcInstance* m_instance = nullptr;
};

void VlcTest::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    m_log = std::make_unique<LogCapture>();
    m_instance = new VlcInstance(this);
    QVERIFY2(m_instance->isLoaded(), "the system's libvlc (libvlc5, vlc-plugin-base) is needed");
    m_log->take();
}

void VlcTest::cleanupTestCase()
{
    delete m_instance;
    m_instance = nullptr;
    m_log.reset();
}

void VlcTest::loaderWithStandIns_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("loaded");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("libvlcLines");
    QTest::addColumn<QStringList>("calls");

    const QString start = QStringLiteral("1 Loading vlc library");
    const QString version = QStringLiteral(
        "3 [VLC]LibVlc loaded Version : fake 5 -I dummy --quiet --ignore-config --no-video-title-show");

    QTest::newRow("complete, only in the application's vlc directory")
        << "complete" << true << QStringList{start, version}
        << QStringList{QStringLiteral("4 [VLC LIBRARY : fake object] log callback installed with null data, 42")}
        << QStringList{QStringLiteral("libvlc_release")};
    QTest::newRow("without libvlc_log_set")
        << "nologset" << true
        << QStringList{start, QStringLiteral("5 Loading libvlc_log_set failed"), version} << QStringList()
        << QStringList{QStringLiteral("libvlc_release")};
    QTest::newRow("libvlc_new fails")
        << "newfails" << false
        << QStringList{start, QStringLiteral("5 [VLC] fake: no plugins found"),
                       QStringLiteral("5 [VLC] VLC not loaded")}
        << QStringList() << QStringList{QStringLiteral("libvlc_clearerr")};
    QTest::newRow("first entry point missing")
        << "nonew" << false << QStringList{start, QStringLiteral("5 Loading libvlc_new failed")}
        << QStringList() << QStringList();
    QTest::newRow("two missing, the first one reported")
        << "nosetmute" << false << QStringList{start, QStringLiteral("5 Loading libvlc_audio_set_mute failed")}
        << QStringList() << QStringList();
    QTest::newRow("libvlc_media_player_set_pause missing")
        << "nosetpause" << false
        << QStringList{start, QStringLiteral("5 Loading libvlc_media_player_set_pause failed")}
        << QStringList() << QStringList();
    QTest::newRow("last required entry point missing")
        << "nosetformat" << false
        << QStringList{start, QStringLiteral("5 Loading libvlc_video_set_format failed")} << QStringList()
        << QStringList();
}

void VlcTest::loaderWithStandIns()
{
    QFETCH(QString, kind);
    QFETCH(bool, loaded);
    QFETCH(QStringList, lines);
    QFETCH(QStringList, libvlcLines);
    QFETCH(QStringList, calls);

    const ChildResult result = runLoader(kind);
    QVERIFY2(result.finished, qPrintable(result.output));
    QCOMPARE(result.loaded, loaded);
    QCOMPARE(result.instanceLines, lines);
    for (const QString& function : result.instanceFunctions)
        QCOMPARE(function, QStringLiteral("VlcInstance"));
    QCOMPARE(result.libvlcLines, libvlcLines);
    // libvlc_release only for a created instance, once, when it is destroyed.
    QCOMPARE(result.calls, calls);
}

void VlcTest::loaderWithHiddenLibvlc_data()
{
    QTest::addColumn<QString>("hideMode");
    QTest::addColumn<bool>("loaded");
    QTest::addColumn<QString>("lastLine"); // its beginning

    QTest::newRow("no libvlc at all") << "all" << false
                                      << "5 LIbrary not loaded Cannot load library ";
    const QString version = QStringLiteral("3 [VLC]LibVlc loaded Version : ")
        + QString::fromUtf8(m_instance->libvlc_get_version());
    QTest::newRow("no libvlc.so: the versioned name") << "unversioned" << true << version;
    QTest::newRow("nothing on the search path: the system's library directory")
        << "searched" << true << version;
}

void VlcTest::loaderWithHiddenLibvlc()
{
    QFETCH(QString, hideMode);
    QFETCH(bool, loaded);
    QFETCH(QString, lastLine);

    const ChildResult result = runLoader(QString(), hideMode);
    QVERIFY2(result.finished, qPrintable(result.output));
    QCOMPARE(result.loaded, loaded);
    QCOMPARE(result.instanceLines.size(), 2);
    QCOMPARE(result.instanceLines.at(0), QStringLiteral("1 Loading vlc library"));
    QVERIFY2(result.instanceLines.at(1).startsWith(lastLine), qPrintable(result.instanceLines.at(1)));
}

void VlcTest::logCallback_data()
{
    QTest::addColumn<int>("libvlcLevel");
    QTest::addColumn<QByteArray>("format");
    QTest::addColumn<QByteArray>("objectType");
    QTest::addColumn<QString>("expected"); // "<level> <origin> <message>", empty when dropped

    // Every format takes the text first and the number second, or only the text.
    const QByteArray decoder("decoder");
    QTest::newRow("debug") << 0 << QByteArray("%s: decoded %d frames") << decoder
                           << "0 [VLC LIBRARY : decoder] café: decoded 7 frames";
    QTest::newRow("level 1 has no rank of its own") << 1 << QByteArray("%s") << decoder
                                                    << "0 [VLC LIBRARY : decoder] café";
    QTest::newRow("notice") << 2 << QByteArray("%s: %d") << QByteArray("main")
                            << "3 [VLC LIBRARY : main] café: 7";
    QTest::newRow("warning") << 3 << QByteArray("%s is late by %d ms") << QByteArray("video output")
                             << "4 [VLC LIBRARY : video output] café is late by 7 ms";
    QTest::newRow("error") << 4 << QByteArray("cannot open %s") << QByteArray("input")
                           << "5 [VLC LIBRARY : input] cannot open café";
    QTest::newRow("unknown level") << 9 << QByteArray("%s %d") << decoder << "0 [VLC LIBRARY : decoder] café 7";
    QTest::newRow("unknown option dropped") << 4 << QByteArray("option %s does not exist") << decoder
                                            << QString();
    QTest::newRow("similar text kept") << 4 << QByteArray("option %s does not exist!") << decoder
                                       << "5 [VLC LIBRARY : decoder] option café does not exist!";
    const QByteArray longFormat = QByteArray(3000, 'x') + "%s";
    QTest::newRow("longer than any fixed buffer")
        << 2 << longFormat << decoder
        << "3 [VLC LIBRARY : decoder] " + QString(3000, QLatin1Char('x')) + QStringLiteral("café");
}

void VlcTest::logCallback()
{
    QFETCH(int, libvlcLevel);
    QFETCH(QByteArray, format);
    QFETCH(QByteArray, objectType);
    QFETCH(QString, expected);

    const char* const text = "caf\xc3\xa9";
    const vlc_log_t context{1, objectType.constData(), "module", nullptr, "file.c", 1, "function", 2};
    m_log->take();
    const QString again = callLogVlc(libvlcLevel, &context, format.constData(), text, 7);
    QCOMPARE(again, QString::asprintf(format.constData(), text, 7));

    QStringList logged;
    for (const LogCapture::Record& record : m_log->take()) {
        if (record.file.startsWith(VlcOriginPrefix)) {
            QVERIFY(record.function.isEmpty());
            logged.append(QString::number(record.level) + QLatin1Char(' ') + record.file + QLatin1Char(' ')
                          + record.message);
        }
    }
    QCOMPARE(logged, expected.isEmpty() ? QStringList() : QStringList{expected});
}

void VlcTest::playsToEnd_data()
{
    QTest::addColumn<QSize>("size");
    QTest::newRow("the video's own size") << QSize(64, 48);
    QTest::newRow("smaller than the video") << QSize(40, 30);
}

void VlcTest::playsToEnd()
{
    QFETCH(QSize, size);
    const QSize videoSize(64, 48);
    const QRect itemArea(QPoint(0, 0), size);

    Playback playback(m_instance, size);
    QCOMPARE(playback.item->boundingRect(), QRectF(itemArea));
    QCOMPARE(playback.player.state(), VlcPlayer::Idle);

    // Black at the item's size before any frame, the rest of the scene untouched.
    QImage image = renderScene(playback.scene, videoSize);
    QCOMPARE(pixelsOtherThan(image, itemArea, Black), 0);
    QCOMPARE(pixelsOtherThan(image, QRect(QPoint(0, 0), videoSize), Black),
             videoSize.width() * videoSize.height() - size.width() * size.height());

    m_log->take();
    QVERIFY(playback.player.open(testVideo()));
    QCOMPARE(playback.player.state(), VlcPlayer::Idle);
    playback.player.play();
    QTRY_VERIFY_WITH_TIMEOUT(playback.player.isPlaying(), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(playback.stopped.count(), 1, 15000);
    QCOMPARE(playback.player.state(), VlcPlayer::Ended);

    QVERIFY2(playback.counter.frames >= 10, qPrintable(QString::number(playback.counter.frames)));
    QCoreApplication::processEvents();
    image = renderScene(playback.scene, videoSize);
    QVERIFY(pixelsOtherThan(image, itemArea, Black) > 0);
    // Frames come at the item's size, drawn unscaled: the rest of the scene stays white.
    QCOMPARE(pixelsOtherThan(image, QRect(QPoint(0, 0), videoSize), White),
             pixelsOtherThan(image, itemArea, White));

    QCOMPARE(playback.durations.count(), 1);
    const quint64 duration = playback.durations.at(0).at(0).value<quint64>();
    QVERIFY2(duration >= 1900 && duration <= 2100, qPrintable(QString::number(duration)));

    // Nothing more while the state stays Ended.
    QTest::qWait(700);
    QCOMPARE(playback.stopped.count(), 1);
    QCOMPARE(playback.durations.count(), 1);

    QStringList playerLines;
    int libvlcRecords = 0;
    for (const LogCapture::Record& record : m_log->take()) {
        if (record.file == PlayerSource) {
            QCOMPARE(record.function, QStringLiteral("checkStatus"));
            playerLines.append(QString::number(record.level) + QLatin1Char(' ') + record.message);
        } else if (record.file.startsWith(VlcOriginPrefix)) {
            ++libvlcRecords;
            QVERIFY2(QList<int>({0, 3, 4, 5}).contains(record.level), qPrintable(record.message));
            QVERIFY2(record.file.size() > VlcOriginPrefix.size() + 1, qPrintable(record.file));
        }
    }
    QVERIFY(libvlcRecords > 0);
    QCOMPARE(playerLines.count(QStringLiteral("0 Stopped")), 1);
    QVERIFY(playerLines.size() >= 3);
    QCOMPARE(playerLines.mid(playerLines.size() - 2),
             QStringList({QStringLiteral("0 Stopped"), QStringLiteral("0 State Changed Ended")}));
    QVERIFY(playerLines.contains(QStringLiteral("0 State Changed Playing")));
    for (const QString& line : std::as_const(playerLines))
        QVERIFY2(line == QLatin1String("0 Stopped") || line.startsWith(QLatin1String("0 State Changed ")),
                 qPrintable(line));
}

void VlcTest::pauseOpenWhilePlayingAndStop()
{
    const QSize size(64, 48);
    const QRect area(QPoint(0, 0), size);
    Playback playback(m_instance, size);
    QVERIFY(playback.player.open(testVideo()));
    playback.player.play();
    QTRY_VERIFY_WITH_TIMEOUT(playback.player.isPlaying() && playback.counter.frames > 0, 10000);

    playback.player.pause();
    QTRY_VERIFY_WITH_TIMEOUT(playback.player.isPaused(), 5000);
    playback.player.pause();
    QTRY_VERIFY_WITH_TIMEOUT(playback.player.isPlaying(), 5000);

    // Opening while playing stops the old medium and detaches the item: it keeps its last frame.
    QVERIFY(playback.player.open(testVideo()));
    QVERIFY(!playback.player.isPlaying());
    QTest::qWait(100);
    const int frames = playback.counter.frames;
    QTest::qWait(600);
    QCOMPARE(playback.counter.frames, frames);
    QVERIFY(pixelsOtherThan(renderScene(playback.scene, size), area, Black) > 0);
    QCOMPARE(playback.stopped.count(), 0);

    // A new item attaches again.
    QGraphicsItem* second = playback.player.createGraphicsItem(size);
    playback.scene.addItem(second);
    FrameCounter secondCounter(dynamic_cast<QObject*>(second));
    playback.player.play();
    QTRY_VERIFY_WITH_TIMEOUT(playback.player.isPlaying() && secondCounter.frames > 0, 10000);
    QCOMPARE(playback.counter.frames, frames);

    playback.player.stop();
    QTRY_COMPARE_WITH_TIMEOUT(playback.stopped.count(), 1, 5000);
    QCOMPARE(playback.player.state(), VlcPlayer::Stopped);
    playback.player.stop();
    QTest::qWait(700);
    QCOMPARE(playback.stopped.count(), 1);
}

void VlcTest::missingFileEnds()
{
    QTemporaryDir directory;
    Playback playback(m_instance, QSize(64, 48));
    QVERIFY(playback.player.open(QUrl::fromLocalFile(directory.filePath(QStringLiteral("missing.mp4")))));
    playback.player.play();
    QTRY_COMPARE_WITH_TIMEOUT(playback.stopped.count(), 1, 10000);
    QCOMPARE(playback.player.state(), VlcPlayer::Ended);
    QCOMPARE(playback.counter.frames, 0);
    QCOMPARE(playback.durations.count(), 0);
}

void VlcTest::playerWithoutMedia()
{
    VlcPlayer player(m_instance);
    QSignalSpy stopped(&player, &VlcPlayer::stopped);
    QCOMPARE(player.state(), VlcPlayer::Idle);

    // libvlc 3 gives a player its audio output at once, so mute and volume work without media.
    QVERIFY(!player.isMute());
    player.toogleMute();
    QVERIFY(player.isMute());
    player.toogleMute();
    QVERIFY(!player.isMute());
    player.setVolume(37);
    QCOMPARE(player.volume(), 37);

    player.play();
    player.pause();
    QTest::qWait(400);
    QCOMPARE(player.state(), VlcPlayer::Idle);
    QCOMPARE(stopped.count(), 0);
}

void VlcTest::itemEvents_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("user type after 1000") << 1001;
    QTest::newRow("last user type") << int(QEvent::MaxUser);
    QTest::newRow("type before 1000") << 999;
    QTest::newRow("system type") << int(QEvent::MouseButtonPress);
}

void VlcTest::itemEvents()
{
    QFETCH(int, type);
    VlcPlayer player(m_instance);
    QGraphicsScene scene;
    QGraphicsItem* item = player.createGraphicsItem(QSize(40, 30));
    scene.addItem(item);
    auto* object = dynamic_cast<QObject*>(item);
    QVERIFY(object);
    QCOMPARE(qobject_cast<QGraphicsItem*>(object), item);
    QSignalSpy changed(&scene, &QGraphicsScene::changed);
    QTRY_VERIFY(!changed.isEmpty()); // the item's arrival
    QTest::qWait(50);
    changed.clear();

    // Any other type is QObject's: the same answer, and no repaint.
    QEvent other{QEvent::Type(type)};
    QObject plain;
    QCOMPARE(object->event(&other), plain.event(&other));
    QTest::qWait(50);
    QCOMPARE(changed.count(), 0);

    QEvent frame(QEvent::Type(1000));
    QVERIFY(object->event(&frame));
    QTRY_VERIFY(!changed.isEmpty());
    const auto regions = changed.at(0).at(0).value<QList<QRectF>>();
    QVERIFY(!regions.isEmpty() && regions.at(0).contains(QRectF(0, 0, 40, 30)));

    // QObject's own events still arrive: a queued call, and deferred deletion.
    bool called = false;
    QMetaObject::invokeMethod(object, [&called] { called = true; }, Qt::QueuedConnection);
    QTRY_VERIFY(called);
    QPointer<QObject> guard(object);
    object->deleteLater();
    QTRY_VERIFY(guard.isNull());
    QVERIFY(scene.items().isEmpty());
}

void VlcTest::twoPlayersOnOneInstance_data()
{
    QTest::addColumn<bool>("together");
    QTest::newRow("one after the other") << false;
    QTest::newRow("at the same time") << true;
}

void VlcTest::twoPlayersOnOneInstance()
{
    QFETCH(bool, together);
    Playback first(m_instance, QSize(64, 48));
    Playback second(m_instance, QSize(32, 24));
    QVERIFY(first.player.open(testVideo()));
    QVERIFY(second.player.open(testVideo()));

    first.player.play();
    if (!together)
        QTRY_COMPARE_WITH_TIMEOUT(first.stopped.count(), 1, 15000);
    second.player.play();
    QTRY_COMPARE_WITH_TIMEOUT(first.stopped.count(), 1, 15000);
    QTRY_COMPARE_WITH_TIMEOUT(second.stopped.count(), 1, 15000);

    QCOMPARE(first.player.state(), VlcPlayer::Ended);
    QCOMPARE(second.player.state(), VlcPlayer::Ended);
    QVERIFY(first.counter.frames >= 10);
    QVERIFY(second.counter.frames >= 10);
    QCoreApplication::processEvents();
    QVERIFY(pixelsOtherThan(renderScene(first.scene, QSize(64, 48)), QRect(0, 0, 64, 48), Black) > 0);
    QVERIFY(pixelsOtherThan(renderScene(second.scene, QSize(32, 24)), QRect(0, 0, 32, 24), Black) > 0);
    QCOMPARE(first.durations.count(), 1);
    QCOMPARE(second.durations.count(), 1);
}

int main(int argc, char** argv)
{
    if (argc > 1 && std::strcmp(argv[1], LoaderChildSwitch) == 0)
        return runLoaderChild(argc, argv);

    QApplication application(argc, argv);
    application.setAttribute(Qt::AA_Use96Dpi, true);
    VlcTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_vlc.moc"
