// One instance of a single-instance application, for tst_singleapplication.
//
//   singleapp_helper <kind> <id> <outfile> [message...]
//
// kind: "core" (QtSingleCoreApplication), "gui" (QtSingleApplication), "wait" (core, reads one
// line from standard input before sending, with a long time-out). An empty id means the
// constructor without id. Prints "primary" or "secondary" and then id() on standard output.
// The primary appends ">" + message + "\n" for every message received to <outfile> and quits
// on "quit"; it ignores its own messages. A secondary sends its messages in order (an argument
// "@path" sends the contents of that file) and exits with 10 when all were acknowledged, 11 at
// the first that was not.
#include <libupdater/QtSingleApplication.h>
#include <libupdater/QtSingleCoreApplication.h>

#include <QtCore/QFile>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

namespace {

template<typename App>
int run(App& app, const QString& kind, const QString& outPath, const QStringList& messages)
{
    std::printf("%s\n%s\n", app.isRunning() ? "secondary" : "primary", qPrintable(app.id()));
    std::fflush(stdout);

    if (!app.isRunning()) {
        QObject::connect(&app, &App::messageReceived, &app, [&app, outPath](const QString& message) {
            QFile out(outPath);
            if (!out.open(QIODevice::WriteOnly | QIODevice::Append))
                std::exit(3);
            out.write('>' + message.toUtf8() + '\n');
            out.close();
            if (message == QLatin1String("quit"))
                app.quit();
        });
        return app.exec();
    }

    if (kind == QLatin1String("wait")) {
        std::string line;
        std::getline(std::cin, line);
    }
    const int timeout = kind == QLatin1String("wait") ? 60000 : 5000;
    for (QString message : messages) {
        if (message.startsWith(QLatin1Char('@'))) {
            QFile file(message.mid(1));
            if (!file.open(QIODevice::ReadOnly))
                return 4;
            message = QString::fromUtf8(file.readAll());
        }
        if (!app.sendMessage(message, timeout))
            return 11;
    }
    return 10;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    // An application name unlike the executable's: the lock must not depend on it.
    QCoreApplication::setApplicationName(QStringLiteral("Single Instance Helper"));
    const QString kind = QString::fromLocal8Bit(argv[1]);
    const QString id = QString::fromLocal8Bit(argv[2]);
    const QString outPath = QString::fromLocal8Bit(argv[3]);
    QStringList messages;
    for (int i = 4; i < argc; ++i)
        messages << QString::fromLocal8Bit(argv[i]);

    if (kind == QLatin1String("gui")) {
        auto app = id.isEmpty() ? std::make_unique<QtSingleApplication>(argc, argv)
                                : std::make_unique<QtSingleApplication>(id, argc, argv);
        return run(*app, kind, outPath, messages);
    }
    auto app = id.isEmpty() ? std::make_unique<QtSingleCoreApplication>(argc, argv)
                            : std::make_unique<QtSingleCoreApplication>(id, argc, argv);
    return run(*app, kind, outPath, messages);
}
