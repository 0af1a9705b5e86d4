#include <libupdater/libupdater.h>

#include <QtCore/QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const tvl::SimpleCommandLineParser parser(QStringList{QStringLiteral("consumer"),
                                                          QStringLiteral("--mode=check")});
    const bool ok = tvl::VersionNumber(QString::fromLatin1(tvl::updater::UPDATER_VERSION))
                        > tvl::VersionNumber(QStringLiteral("3.9"))
        && parser.option(QStringLiteral("mode")).toString() == QLatin1String("check");
    std::printf("libupdater %s %s %s\n", tvl::updater::UPDATER_VERSION,
                tvl::updater::UPDATER_REVISION, ok ? "ok" : "wrong");
    return ok ? 0 : 1;
}
