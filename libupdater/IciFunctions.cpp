#include "IciFunctions.h"

#include "Updater.h"

#include <basix/ICISettings.h>
#include <basix/ICISettingsContext.h>
#include <basix/Logger.h>
#include <basix/SimpleCommandLineParser.h>
#include <basix/StringUtils.h>
#include <basix/VersionNumber.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>
#include <QtCore/QStandardPaths>

namespace tvl::updater {

namespace {

// Reports a wrong argument count: true (and the message set) unless exactly `count` were given.
bool wrongCount(tvl::ICISettingsContext* context, int count, const QString& message)
{
    if (context->args().size() == count)
        return false;
    context->setErrorMessage(message);
    return true;
}

QString argument(tvl::ICISettingsContext* context, int index)
{
    return context->args().at(index).toString();
}

// `pattern` as an expression that must match the whole text; false when the pattern is invalid.
// It is checked on its own too: wrapped in the anchoring group, an unbalanced pattern such as
// "a)(b" would turn into a valid expression.
bool wholeTextExpression(const QString& pattern, QRegularExpression* expression)
{
    if (!QRegularExpression(pattern).isValid())
        return false;
    *expression = QRegularExpression(QRegularExpression::anchoredPattern(pattern),
                                      QRegularExpression::DotMatchesEverythingOption);
    return expression->isValid();
}

// The option names of the updater's command line as they were when first asked for.
const QStringList& cachedOptionNames()
{
    static const QStringList names = tv_updater_args()->keys();
    return names;
}

} // namespace

void registerIciFunctions(tvl::ICISettings* settings)
{
    settings->createFunction(QStringLiteral("same_paths"), ici_same_paths, nullptr);
    settings->createFunction(QStringLiteral("data_location"), ici_data_location, nullptr);
    settings->createFunction(QStringLiteral("global_data_location"), ici_global_data_location, nullptr);
    settings->createFunction(QStringLiteral("set_application_name"), ici_set_application_name, nullptr);
    settings->createFunction(QStringLiteral("file_exists"), ici_file_exists, nullptr);
    settings->createFunction(QStringLiteral("application_path"), ici_application_path, nullptr);
    settings->createFunction(QStringLiteral("print"), ici_print, nullptr);
    settings->createFunction(QStringLiteral("compare_versions"), ici_compare_versions, nullptr);
    settings->createFunction(QStringLiteral("regex_match"), ici_regex_match, nullptr);
    settings->createFunction(QStringLiteral("command_line_args"), command_line_args, nullptr);
}

QVariant ici_same_paths(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 2, QStringLiteral("same_paths expects exactly 2 arguments")))
        return false;
    return QFileInfo(argument(context, 0)) == QFileInfo(argument(context, 1));
}

QVariant ici_data_location(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 0, QStringLiteral("data_location expects exactly 0 argument")))
        return false;
    return QFileInfo(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation)).absolutePath();
}

QVariant ici_global_data_location(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 0, QStringLiteral("global_data_location expects exactly 0 argument")))
        return false;
    return tv_default_path(DesktopServices::DataLocation);
}

QVariant ici_set_application_name(tvl::ICISettingsContext* context)
{
    if (!wrongCount(context, 1, QStringLiteral("set_application_name expects exactly 1 argument")))
        QCoreApplication::setApplicationName(argument(context, 0));
    return QVariant();
}

QVariant ici_file_exists(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 1, QStringLiteral("file_exists expects exactly 1 argument")))
        return false;
    return QFileInfo(argument(context, 0)).exists();
}

QVariant ici_application_path(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 0, QStringLiteral("application_path expects no argument")))
        return QVariant();
    return QCoreApplication::applicationFilePath();
}

QVariant ici_print(tvl::ICISettingsContext* context)
{
    if (!wrongCount(context, 1, QStringLiteral("application_path expects exactly 1 argument")))
        tvl::Logger::instance()->log(argument(context, 0), context->file(), QString(), context->line(), 2);
    return QVariant();
}

QVariant ici_compare_versions(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 2, QStringLiteral("compare_versions expects exactly 2 arguments")))
        return false;
    const tvl::VersionNumber first(argument(context, 0));
    const tvl::VersionNumber second(argument(context, 1));
    if (first < second)
        return -1;
    if (first > second)
        return 1;
    return 0;
}

QVariant ici_regex_match(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 2, QStringLiteral("compare_versions expects exactly 2 arguments")))
        return false;
    QRegularExpression expression;
    if (!wholeTextExpression(argument(context, 0), &expression))
        return false;
    return expression.match(argument(context, 1)).hasMatch();
}

QVariant command_line_args(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 2,
                   QStringLiteral("command_line_args expects exactly 2 arguments : "
                                  "command_line_args(filter, format)\n"
                                  "filter is a regex, capturing the key - "
                                  "format is something like \"--%(name)=%(value)\""))) {
        return QVariant();
    }
    QRegularExpression filter;
    if (!wholeTextExpression(argument(context, 0), &filter))
        return QStringList();
    const QString format = argument(context, 1);
    if (!format.contains(QLatin1String("%(name)")) || !format.contains(QLatin1String("%(value)")))
        return QStringList();

    const tvl::SimpleCommandLineParser* parser = tv_updater_args();
    const bool captures = filter.captureCount() > 0;
    QStringList arguments;
    for (const QString& key : cachedOptionNames()) {
        const QRegularExpressionMatch match = filter.match(key);
        if (!match.hasMatch())
            continue;
        const QString value = parser->option(key, QLatin1Char(' '), QVariant()).toString();
        if (value.isNull())
            continue;
        const QString name = captures ? match.captured(1) : key;
        arguments.append(tvl::tv_string_replace(
            format, {{QStringLiteral("name"), name}, {QStringLiteral("value"), value}}));
    }
    return arguments;
}

QVariant ici_to_hex(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 1, QStringLiteral("to_hex expects exactly 1 argument")))
        return QVariant();
    return argument(context, 0).toUtf8().toHex();
}

QVariant ici_to_base64(tvl::ICISettingsContext* context)
{
    if (wrongCount(context, 1, QStringLiteral("to_base64 expects exactly 1 argument")))
        return QVariant();
    return argument(context, 0).toUtf8().toBase64();
}

} // namespace tvl::updater
