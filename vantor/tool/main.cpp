// The vantor tool: publishes a directory to a static repository, and installs, updates,
// verifies, repairs and rolls back an install directory from one.
#include "ProgressPrinter.h"

#include <basix/Logger.h>
#include <basix/StandardErrorLoggerOutput.h>
#include <vantor/Keys.h>
#include <vantor/Operation.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

using tvl::vantor::ErrorCode;
using tvl::vantor::Operation;
using tvl::vantor::Options;

namespace {

constexpr int UsageError = int(ErrorCode::InvalidArguments);

struct Command
{
    const char* name;
    Operation::Kind kind;
    const char* summary;
};

const Command Commands[] = {
    {"publish", Operation::Publish, "publish a directory as a new version of a channel"},
    {"install", Operation::Install, "install a channel's version into a directory"},
    {"update", Operation::Update, "update an install directory to its channel's version"},
    {"check", Operation::Check, "tell whether an update is available"},
    {"verify", Operation::Verify, "hash every installed file against the installed manifest"},
    {"repair", Operation::Repair, "fetch what damaged or missing files lack"},
    {"rollback", Operation::Rollback, "go back to the version before the last update"},
    {"status", Operation::Status, "show the installed version, channel and serial"},
    {"set-channel", Operation::SetChannel, "follow another channel from the next update on"},
    {"uninstall", Operation::Uninstall, "remove every installed file"},
};

void print(FILE* stream, const QString& text)
{
    std::fprintf(stream, "%s\n", qPrintable(text));
}

int usage()
{
    QString text = QStringLiteral("Usage: vantor COMMAND [OPTIONS]  (vantor COMMAND --help for its options)\n\nCommands:\n"
                                  "  keygen        create a signing key pair\n");
    for (const Command& command : Commands)
        text += QStringLiteral("  %1%2\n").arg(QString::fromLatin1(command.name).leftJustified(14), QString::fromLatin1(command.summary));
    text += QStringLiteral("\nExit codes: 0 success, 2 bad arguments, 3 network, 4 server error, 5 bad signature, 6 unknown key,\n"
                           "7 rollback attack, 8 expired record, 9 tampered data, 10 path escape, 11 disk full, 12 permission\n"
                           "denied, 13 locked, 14 cancelled, 15 not installed, 16 corrupt records, 17 damaged files,\n"
                           "18 nothing to roll back, 19 other I/O error.");
    print(stdout, text);
    return 0;
}

int keygen(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Creates an Ed25519 key pair: FILE holds the secret key (keep it safe), "
                                                    "FILE.pub the public key that installs trust."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("where to write the secret key"));
    parser.process(arguments);
    if (parser.positionalArguments().size() != 1) {
        print(stderr, QStringLiteral("vantor keygen: give one FILE for the secret key."));
        return UsageError;
    }
    const QString path = parser.positionalArguments().first();
    if (QFile::exists(path)) {
        print(stderr, QStringLiteral("vantor keygen: %1 exists already; it is not overwritten.").arg(path));
        return UsageError;
    }
    QByteArray publicKey, secretKey;
    tvl::vantor::Keys::generate(&publicKey, &secretKey);
    QString error;
    QFile pub(path + QStringLiteral(".pub"));
    if (!tvl::vantor::Keys::writeSecretKey(path, secretKey, &error) || !pub.open(QIODevice::WriteOnly)
        || pub.write(tvl::vantor::Keys::encodePublicKey(publicKey).toLatin1() + '\n') < 0) {
        print(stderr, error.isEmpty() ? pub.errorString() : error);
        return int(ErrorCode::IoError);
    }
    print(stdout, tvl::vantor::Keys::encodePublicKey(publicKey));
    return 0;
}

int sigintPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(sigintPipe[1], &byte, 1);
}

QString describe(const Operation& operation, const tvl::vantor::UpdateResult& result)
{
    switch (operation.kind()) {
    case Operation::Publish:
        return QStringLiteral("Published %1 %2 on channel \"%3\" (serial %4).")
            .arg(result.project, result.version, result.channel, QString::number(result.serial));
    case Operation::Check:
        return result.updateAvailable ? QStringLiteral("Version %1 is available (installed: %2).")
                                            .arg(result.version, result.previousVersion.isEmpty() ? QStringLiteral("none") : result.previousVersion)
                                      : QStringLiteral("Version %1 is installed and current.").arg(result.version);
    case Operation::Status:
        return QStringLiteral("project %1\nversion %2\nchannel %3\nserial %4\nrollback %5%6")
            .arg(result.project, result.version, result.channel, QString::number(result.serial),
                 result.rollbackPossible ? QStringLiteral("possible") : QStringLiteral("not possible"),
                 result.pinned ? QStringLiteral("\npinned (rolled back: update explicitly to leave this version)") : QString());
    case Operation::Verify:
        return QStringLiteral("All files of version %1 are intact.").arg(result.version);
    case Operation::Repair:
        return result.damagedFiles.isEmpty() ? QStringLiteral("Nothing was damaged.")
                                             : QStringLiteral("Repaired %1 file(s), %2 fetched.")
                                                   .arg(result.damagedFiles.size()).arg(ProgressPrinter::bytes(double(result.bytesDownloaded)));
    case Operation::Uninstall:
        return QStringLiteral("Uninstalled %1.").arg(result.previousVersion);
    case Operation::SetChannel:
        return QStringLiteral("Following channel \"%1\" from the next update on.").arg(operation.options().channel);
    default:
        if (result.version == result.previousVersion)
            return QStringLiteral("Version %1 is installed and current.").arg(result.version);
        return QStringLiteral("Installed version %1%2: %3 file(s) changed, %4 fetched.")
            .arg(result.version, result.previousVersion.isEmpty() ? QString() : QStringLiteral(" (was %1)").arg(result.previousVersion))
            .arg(result.updatedFiles.size())
            .arg(ProgressPrinter::bytes(double(result.bytesDownloaded)));
    }
}

int run(const Command& command, const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(command.summary));
    parser.addHelpOption();
    const bool publishing = command.kind == Operation::Publish;
    const QCommandLineOption project(QStringLiteral("project"), QStringLiteral("the project's name"), QStringLiteral("NAME"));
    const QCommandLineOption channel(QStringLiteral("channel"), QStringLiteral("the channel (default \"stable\")"), QStringLiteral("NAME"),
                                     QStringLiteral("stable"));
    const QCommandLineOption repository(QStringLiteral("repository"),
                                        publishing ? QStringLiteral("the repository directory (default: the current directory)")
                                                   : QStringLiteral("the repository's URL (http://, https:// or a local directory)"),
                                        publishing ? QStringLiteral("DIR") : QStringLiteral("URL"));
    const QCommandLineOption directory(QStringLiteral("dir"), QStringLiteral("the install directory"), QStringLiteral("DIR"));
    const QCommandLineOption publicKey(QStringLiteral("public-key"), QStringLiteral("a trusted public key, or a file holding one (repeatable)"),
                                       QStringLiteral("KEY"));
    const QCommandLineOption connections(QStringLiteral("connections"), QStringLiteral("parallel transfers (default 4; four times as many over HTTP/2)"), QStringLiteral("N"),
                                         QStringLiteral("4"));
    const QCommandLineOption rateLimit(QStringLiteral("rate-limit"), QStringLiteral("bytes per second over all transfers (0: none)"),
                                       QStringLiteral("BYTES"), QStringLiteral("0"));
    const QCommandLineOption timeout(QStringLiteral("timeout"), QStringLiteral("seconds without data before a transfer is retried (default 30)"),
                                     QStringLiteral("SECONDS"), QStringLiteral("30"));
    const QCommandLineOption wait(QStringLiteral("wait"), QStringLiteral("seconds to wait for another process on the directory (default 0)"),
                                  QStringLiteral("SECONDS"), QStringLiteral("0"));
    const QCommandLineOption rollbackLimit(QStringLiteral("rollback-limit"),
                                           QStringLiteral("bytes of replaced files kept for a rollback (default 1073741824)"),
                                           QStringLiteral("BYTES"), QStringLiteral("1073741824"));
    const QCommandLineOption http2(QStringLiteral("http2-prior-knowledge"),
                                   QStringLiteral("speak HTTP/2 to an http:// repository without asking first (https:// "
                                                  "negotiates it on its own)"));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("the version being published"), QStringLiteral("V"));
    const QCommandLineOption key(QStringLiteral("key"), QStringLiteral("the secret key file written by \"vantor keygen\""), QStringLiteral("FILE"));
    const QCommandLineOption level(QStringLiteral("level"), QStringLiteral("zstd level of new chunks (default 3)"), QStringLiteral("N"),
                                   QStringLiteral("3"));
    const QCommandLineOption validDays(QStringLiteral("valid-days"), QStringLiteral("days until the release record expires (default 30)"),
                                       QStringLiteral("DAYS"), QStringLiteral("30"));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("log what happens on standard error"));
    parser.addOption(verbose);
    if (publishing) {
        parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("the directory to publish"));
        parser.addOptions({project, channel, version, key, repository, level, validDays});
    } else {
        parser.addOptions({directory, repository, project, channel, publicKey, connections, rateLimit, timeout, wait, rollbackLimit, http2});
    }
    parser.process(arguments);

    Options options;
    options.project = parser.value(project);
    options.channel = parser.value(channel);
    QString error;
    bool numbers = true;
    const auto number = [&](const QCommandLineOption& option) {
        bool ok = false;
        const double value = parser.value(option).toDouble(&ok);
        numbers = numbers && ok && value >= 0;
        return value;
    };
    if (publishing) {
        if (parser.positionalArguments().size() != 1 || !parser.isSet(project) || !parser.isSet(version) || !parser.isSet(key)) {
            print(stderr, QStringLiteral("vantor publish: give DIR, --project, --version and --key (see vantor publish --help)."));
            return UsageError;
        }
        options.sourceDirectory = parser.positionalArguments().first();
        options.repositoryDirectory = parser.isSet(repository) ? parser.value(repository) : QDir::currentPath();
        options.version = parser.value(version);
        options.compressionLevel = int(number(level));
        options.validForSeconds = qint64(number(validDays) * 86400.0);
        options.secretKey = tvl::vantor::Keys::readSecretKey(parser.value(key), &error);
        if (options.secretKey.isEmpty()) {
            print(stderr, QStringLiteral("vantor publish: ") + error);
            return UsageError;
        }
    } else {
        if (!parser.isSet(directory)) {
            print(stderr, QStringLiteral("vantor %1: give the install directory with --dir.").arg(QString::fromLatin1(command.name)));
            return UsageError;
        }
        options.installDirectory = parser.value(directory);
        if (parser.isSet(repository))
            options.repository = QUrl::fromUserInput(parser.value(repository), QDir::currentPath(), QUrl::AssumeLocalFile);
        for (const QString& text : parser.values(publicKey)) {
            const QByteArray decoded = tvl::vantor::Keys::decodePublicKey(text, &error);
            if (decoded.isEmpty()) {
                print(stderr, QStringLiteral("vantor %1: %2").arg(QString::fromLatin1(command.name), error));
                return UsageError;
            }
            options.trustedKeys.append(decoded);
        }
        options.connections = std::max(1, int(number(connections)));
        options.rateLimit = qint64(number(rateLimit));
        options.timeoutMs = int(number(timeout) * 1000.0);
        options.lockTimeoutMs = int(number(wait) * 1000.0);
        options.rollbackLimit = qint64(number(rollbackLimit));
        options.http2PriorKnowledge = parser.isSet(http2);
    }
    if (!numbers) {
        print(stderr, QStringLiteral("vantor %1: a numeric option is not a number.").arg(QString::fromLatin1(command.name)));
        return UsageError;
    }
    if (parser.isSet(verbose))
        tvl::Logger::instance()->addOutput(new tvl::StandardErrorLoggerOutput, tvl::Logger::TakeOwnership);

    Operation operation(command.kind, options);
    ProgressPrinter printer(stderr);
    QObject::connect(&operation, &Operation::progress, [&printer](const tvl::vantor::Progress& progress) { printer.show(progress); });
    QObject::connect(&operation, &Operation::finished, qApp, [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);

    // Ctrl+C cancels in order, so that what was fetched is kept for the next run.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, sigintPipe) == 0) {
        auto* notifier = new QSocketNotifier(sigintPipe[0], QSocketNotifier::Read, &operation);
        QObject::connect(notifier, &QSocketNotifier::activated, &operation, [&operation] {
            char byte;
            [[maybe_unused]] const ssize_t read = ::read(sigintPipe[0], &byte, 1);
            operation.cancel();
        });
        std::signal(SIGINT, onSignal);
        std::signal(SIGTERM, onSignal);
    }
    operation.start();
    QCoreApplication::exec();
    printer.finish();
    const tvl::vantor::UpdateResultPtr result = operation.result();
    if (!result->success) {
        print(stderr, QStringLiteral("vantor %1: %2").arg(QString::fromLatin1(command.name), result->errorString));
        for (const QString& path : result->damagedFiles)
            print(stderr, QStringLiteral("  damaged: ") + path);
        return int(result->error);
    }
    result->project = result->project.isEmpty() ? options.project : result->project;
    if (publishing)
        result->channel = options.channel;
    print(stdout, describe(operation, *result));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vantor"));
    QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2 || arguments.at(1) == QLatin1String("--help") || arguments.at(1) == QLatin1String("-h"))
        return arguments.size() < 2 ? (usage(), UsageError) : usage();
    const QString name = arguments.takeAt(1);
    arguments.first() = QStringLiteral("vantor ") + name;
    if (name == QLatin1String("keygen"))
        return keygen(arguments);
    for (const Command& command : Commands) {
        if (name == QLatin1String(command.name))
            return run(command, arguments);
    }
    print(stderr, QStringLiteral("vantor: unknown command \"%1\"; \"vantor --help\" lists them.").arg(name));
    return UsageError;
}
