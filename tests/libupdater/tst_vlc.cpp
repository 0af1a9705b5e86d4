// The video classes over libvlc: the loader's failure paths in copies of this executable next to stand-ins
// for libvlc, the log callback, and real playback of a small video with the system's libvlc.
#include <libupdater/vlc/VlcInstance.h>
#include <libupdater/vlc/VlcPlayer.h>

#include <LogCapture.h>
#include <TestSupport.h>

#include <QtTest/QtTest>
#include <QtWidgets/QtWidgets>

#include <cstdio>
#include <memory>

// libvlc's log context as libvlc hands it to a log callback (libvlc.h leaves it opaque).
struct vlc_log_t { std::uintptr_t id; const char *type, *module, *header, *file; int line; const char* func; unsigned long tid; };

using namespace tvl::updater;

namespace {

/// Child: one VlcInstance built and destroyed, then what it logged (libvlc's messages with their origin) and the result.
int loaderScenario(const QByteArray&, int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    LogCapture log;
    const bool loaded = VlcInstance().isLoaded();
    for (const LogCapture::Record& r : log.take())
        std::printf("%d %s%s\n", r.level, qPrintable(r.file.startsWith('[') ? r.file + ' ' : QString()), qPrintable(r.message));
    return std::printf("loaded %d\n", int(loaded)) < 0;
}

/// Calls log_vlc as libvlc does, then formats the same arguments again: they must be intact.
QString callLogVlc(int level, const vlc_log_t* context, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_vlc(nullptr, level, context, format, arguments);
    const QString again = QString::vasprintf(format, arguments);
    va_end(arguments);
    return again;
}

/// Counts the repaint requests that libvlc's video thread posts to an item.
struct FrameCounter : QObject
{
    explicit FrameCounter(QGraphicsItem* item) { dynamic_cast<QObject*>(item)->installEventFilter(this); }
    bool eventFilter(QObject*, QEvent* event) override { frames += event->type() == QEvent::User; return false; }
    int frames = 0;
};

/// How many pixels of `area` are not of that colour in the scene drawn over white.
int pixelsOtherThan(QGraphicsScene& scene, const QRect& area, Qt::GlobalColor colour)
{
    QImage image(64, 48, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    QPainter painter(&image);
    scene.render(&painter, image.rect(), image.rect());
    int count = 0;
    for (int i = 0; i < area.width() * area.height(); ++i)
        count += image.pixel(area.x() + i % area.width(), area.y() + i / area.width()) != QColor(colour).rgb();
    return count;
}

/// A player with an item in a scene; stopped before the scene deletes the item.
struct Playback
{
    Playback(VlcInstance* instance, const QSize& size) : player(instance), item(player.createGraphicsItem(size)) { scene.addItem(item); }
    ~Playback() { player.stop(); }
    bool play(const QString& file = TEST_VIDEO) { return player.open(QUrl::fromLocalFile(file)) && (player.play(), true); }

    VlcPlayer player;
    QGraphicsScene scene;
    QGraphicsItem* item;
    FrameCounter counter{item};
    QSignalSpy stopped{&player, &VlcPlayer::stopped};
    QSignalSpy durations{&player, &AbstractVideoPlayer::durationChanged};
    QSignalSpy repaints{&scene, &QGraphicsScene::changed};
};

} // namespace

class VlcTest : public QObject
{
    Q_OBJECT

    LogCapture m_log;
    VlcInstance m_vlc;

private slots:
    void initTestCase() { QVERIFY2(m_vlc.isLoaded(), "the system's libvlc (libvlc5, vlc-plugin-base) is needed"); }

    void loader_data()
    {
        QTest::addColumn<QString>("kind"); // the stand-in in the application's vlc directory; none: libvlc hidden
        QTest::addColumn<QString>("expected"); // the stand-in's calls, the log, the result; "*" is any text
        const QString start = "1 Loading vlc library\n";
        const QString version = "3 [VLC]LibVlc loaded Version : fake 5 -I dummy --quiet --ignore-config --no-video-title-show\n";
        QTest::newRow("found only in the application's vlc directory") << "complete" << "CALL libvlc_release\n" + start
            + version + "4 [VLC LIBRARY : fake object] log callback installed with null data, 42\nloaded 1\n";
        QTest::newRow("no libvlc_log_set") << "nologset" << "CALL libvlc_release\n" + start + "5 Loading libvlc_log_set failed\n" + version + "loaded 1\n";
        QTest::newRow("libvlc_new fails") << "newfails" << "CALL libvlc_clearerr\n" + start + "5 [VLC] fake: no plugins found\n5 [VLC] VLC not loaded\nloaded 0\n";
        QTest::newRow("two entry points missing") << "nosetmute" << start + "5 Loading libvlc_audio_set_mute failed\nloaded 0\n";
        QTest::newRow("no libvlc at all") << "" << start + "5 LIbrary not loaded Cannot load library *\nloaded 0\n";
    }

    void loader()
    {
        QFETCH(QString, kind);
        QFETCH(QString, expected);
        QTemporaryDir application; // a copy of this executable, the stand-in in its vlc directory
        const QString copy = application.filePath("tst_vlc");
        QVERIFY(kind.isEmpty() || (QDir(application.path()).mkdir("vlc") && QFile::copy(QCoreApplication::applicationFilePath(), copy)
                                   && QFile::copy(FAKE_LIBVLC_DIR "/" + kind + "/libvlc.so", application.filePath("vlc/libvlc.so"))));
        // The sanitizer runtime wants to be first among the loaded libraries, which a preloaded one is not.
        const testsupport::ChildResult child = kind.isEmpty()
            ? testsupport::runScenario("loader", {}, {"LD_PRELOAD=" HIDE_LIBVLC, "ASAN_OPTIONS=verify_asan_link_order=0:" + qEnvironmentVariable("ASAN_OPTIONS")})
            : testsupport::runProcess(copy, {}, {"TEST_SCENARIO=loader"});
        QVERIFY2(child.exitedWith(0), child.err.constData());
        const QString pattern = QRegularExpression::anchoredPattern(QRegularExpression::escape(expected).replace("\\*", ".+"));
        QVERIFY2(QRegularExpression(pattern).match(child.out).hasMatch(), child.out.constData());
    }

    void logCallback_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("format"); // given "café" and 7
        QTest::addColumn<QString>("expected"); // "<level> <message>"
        QTest::newRow("debug") << 0 << QByteArray("%s: decoded %d frames") << "0 café: decoded 7 frames";
        QTest::newRow("notice") << 2 << QByteArray("%s: %d") << "3 café: 7";
        QTest::newRow("warning") << 3 << QByteArray("%s") << "4 café";
        QTest::newRow("error") << 4 << QByteArray("cannot open %s") << "5 cannot open café";
        QTest::newRow("unknown option dropped") << 4 << QByteArray("option %s does not exist") << "";
        QTest::newRow("similar text kept") << 4 << QByteArray("option %s does not exist!") << "5 option café does not exist!";
        QTest::newRow("longer than any fixed buffer") << 2 << QByteArray(3000, 'x') + "%s" << "3 " + QString(3000, 'x') + "café";
    }

    void logCallback()
    {
        QFETCH(int, level);
        QFETCH(QByteArray, format);
        const vlc_log_t context{1, "decoder", "module", nullptr, "file.c", 1, "function", 2};
        m_log.take();
        QCOMPARE(callLogVlc(level, &context, format.constData(), "caf\xc3\xa9", 7), QString::asprintf(format.constData(), "caf\xc3\xa9", 7));
        QTEST(m_log.lines("[VLC LIBRARY : decoder]").join('\n'), "expected"); // the origin: the object type
    }

    void playsToEnd()
    {
        // Smaller than the 64x48 video: libvlc scales the frames to the item, drawn unscaled.
        Playback playback(&m_vlc, QSize(40, 30));
        const QRect item(0, 0, 40, 30), video(0, 0, 64, 48);
        QCOMPARE(pixelsOtherThan(playback.scene, item, Qt::black), 0); // black before any frame
        QCOMPARE(pixelsOtherThan(playback.scene, video, Qt::white), 40 * 30);
        m_log.take();
        QVERIFY(playback.play());
        QTRY_VERIFY_WITH_TIMEOUT(playback.player.isPlaying() && playback.counter.frames > 0, 10000);

        // Opening while playing stops the old medium and detaches the item: only a new item gets the frames.
        QVERIFY(playback.player.open(QUrl::fromLocalFile(TEST_VIDEO)));
        QVERIFY(!playback.player.isPlaying());
        QTest::qWait(100);
        const int frames = playback.counter.frames;
        QGraphicsItem* second = playback.player.createGraphicsItem(QSize(40, 30));
        playback.scene.addItem(second);
        FrameCounter secondCounter(second);
        playback.player.play();
        QTRY_COMPARE_WITH_TIMEOUT(playback.stopped.count(), 1, 15000);
        QCOMPARE(playback.player.state(), VlcPlayer::Ended);
        QCOMPARE(playback.counter.frames, frames);
        QVERIFY(secondCounter.frames >= 10 && playback.repaints.count() >= 5);
        QVERIFY(pixelsOtherThan(playback.scene, item, Qt::black) > 0);
        QCOMPARE(pixelsOtherThan(playback.scene, video, Qt::white), pixelsOtherThan(playback.scene, item, Qt::white));
        QCOMPARE(playback.durations.count(), 1); // the same length twice
        QVERIFY(qAbs(qint64(playback.durations.at(0).at(0).value<quint64>()) - 2000) <= 100);

        QTest::qWait(700); // nothing more while the state stays Ended
        QCOMPARE(playback.stopped.count(), 1);
        QCOMPARE(playback.durations.count(), 1);
        const QStringList states = m_log.lines(QStringLiteral("libupdater/vlc/VlcPlayer"));
        QCOMPARE(states.count("0 Stopped"), 1);
        QVERIFY2(states.contains("0 State Changed Playing"), qPrintable(states.join('\n')));
        QCOMPARE(states.mid(states.size() - 2), QStringList({"0 Stopped", "0 State Changed Ended"}));
    }

    void graphicsItemCasts_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<bool>("isItem");
        QTest::newRow("class name") << QByteArray("QGraphicsItem") << true;
        QTest::newRow("identifier of older Qt versions") << QByteArray("com.trolltech.Qt.QGraphicsItem") << true;
        QTest::newRow("identifier of Qt 6") << QByteArray("org.qt-project.Qt.QGraphicsItem") << true;
        QTest::newRow("its own class") << QByteArray("tvl::updater::VlcVideoGraphicsItem") << false;
        QTest::newRow("something else") << QByteArray("com.trolltech.Qt.QGraphicsWidget") << false;
    }

    void graphicsItemCasts()
    {
        // A meta-object cast by name yields the item's QGraphicsItem part, which lies apart from its QObject part.
        QFETCH(QByteArray, name);
        QFETCH(bool, isItem);
        VlcPlayer player(&m_vlc);
        std::unique_ptr<QGraphicsItem> item(player.createGraphicsItem(QSize(8, 8)));
        auto* object = dynamic_cast<QObject*>(item.get());
        QVERIFY(object && static_cast<void*>(object) != static_cast<void*>(item.get()));
        void* cast = object->qt_metacast(name.constData());
        if (isItem)
            QCOMPARE(cast, static_cast<void*>(item.get()));
        else
            QCOMPARE(cast != nullptr, name.startsWith("tvl::"));
        player.stop();
    }

    void playersOnOneInstance()
    {
        // Two videos at once, and a missing file, which ends without a frame.
        Playback first(&m_vlc, QSize(64, 48)), second(&m_vlc, QSize(32, 24)), missing(&m_vlc, QSize(8, 8));
        QVERIFY(first.play() && second.play() && missing.play(QTemporaryDir().filePath("missing.mp4")));
        for (Playback* playback : {&first, &second, &missing}) {
            QTRY_COMPARE_WITH_TIMEOUT(playback->stopped.count(), 1, 15000);
            QCOMPARE(playback->player.state(), VlcPlayer::Ended);
            QVERIFY(playback == &missing ? playback->counter.frames == 0 : playback->counter.frames >= 10);
            QCOMPARE(playback->durations.count(), playback == &missing ? 0 : 1);
        }
        // Stopped after the end: stopped() once more, however often.
        first.player.stop();
        first.player.stop();
        QTRY_COMPARE_WITH_TIMEOUT(first.stopped.count(), 2, 5000);
        QCOMPARE(first.player.state(), VlcPlayer::Stopped);
        QTest::qWait(700);
        QCOMPARE(first.stopped.count(), 2);
    }
};

TEST_MAIN_WITH_SCENARIOS(VlcTest, QApplication, loaderScenario)

#include "tst_vlc.moc"
