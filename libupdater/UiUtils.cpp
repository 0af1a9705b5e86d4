#include "UiUtils.h"

#include <basix/Logger.h>

#include <QtCore/QRect>
#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>
#include <QtWidgets/QWidget>

#include <algorithm>

namespace tvl::updater {

namespace {

void centerOn(QWidget& widget, const QRect& area)
{
    QRect geometry = widget.geometry();
    geometry.moveCenter(area.center());
    widget.move(geometry.topLeft());
}

// A list of file names only when every item converts to a string; Qt 6's
// canConvert<QStringList>() answers for the container type alone, whatever the items are.
bool isStringList(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QStringList:
        return true;
    case QMetaType::QVariantList: {
        const QVariantList items = value.toList();
        return std::all_of(items.cbegin(), items.cend(), [](const QVariant& item) {
            return item.canConvert<QString>();
        });
    }
    default:
        return false;
    }
}

} // namespace

QString tv_seconds_to_userfriendly_duration(unsigned int seconds)
{
    const unsigned int days = seconds / 86400;
    const unsigned int hours = seconds / 3600;
    const unsigned int minutes = (seconds / 60) % 60;

    if (days == 0 && hours - 24 * days < 1) {
        if (minutes == 0)
            return QObject::tr("Less than a minute");
        return QObject::tr("Approximately %1 minute(s)").arg(minutes);
    }
    return QObject::tr("More than an hour");
}

QString tv_seconds_to_userfriendly_duration_short(unsigned int seconds)
{
    const unsigned int days = seconds / 86400;
    const unsigned int hours = seconds / 3600;
    const unsigned int minutes = (seconds / 60) % 60;

    if (days >= 1)
        return QObject::tr("%1").arg(days);
    if (hours >= 1)
        return QObject::tr("%1h%2m").arg(hours).arg(minutes);
    if (minutes == 0)
        return QObject::tr("< 1min");
    return QObject::tr("%1 min(s)").arg(minutes);
}

void tv_center_on_screen(QWidget& widget)
{
    QScreen* screen = widget.screen();
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    centerOn(widget, screen->availableGeometry());
}

void tv_center_on_widget(QWidget& widget, QWidget* parent)
{
    if (!parent)
        parent = widget.parentWidget();
    if (!parent) {
        tv_center_on_screen(widget);
        return;
    }
    centerOn(widget, parent->window()->geometry());
}

QIcon tv_icon(Icons::Icon icon)
{
    switch (icon) {
    case Icons::KeyIcon:
        return tv_icon_from_files(QStringLiteral(":/icons/icon_key_16.png"),
                                  QStringLiteral(":/icons/icon_key_32.png"));
    case Icons::EulaIcon:
        return tv_icon_from_files(QStringLiteral(":/icons/icon_eula_16.png"),
                                  QStringLiteral(":/icons/icon_eula_32.png"),
                                  QStringLiteral(":/icons/icon_eula_64.png"));
    case Icons::QuitIcon:
        return tv_icon_from_files(QStringLiteral(":/icons/icon_quit.png"),
                                  QStringLiteral(":/icons/icon_quit_32.png"));
    case Icons::TurtleModeIcon: {
        QIcon turtle;
        turtle.addFile(QStringLiteral(":/icons/icon_turtle_mode_16_off.png"), QSize(),
                       QIcon::Normal, QIcon::Off);
        turtle.addFile(QStringLiteral(":/icons/icon_turtle_mode_32_off.png"), QSize(),
                       QIcon::Normal, QIcon::Off);
        turtle.addFile(QStringLiteral(":/icons/icon_turtle_mode.png"), QSize(), QIcon::Normal,
                       QIcon::On);
        turtle.addFile(QStringLiteral(":/icons/icon_turtle_mode_32.png"), QSize(), QIcon::Normal,
                       QIcon::On);
        return turtle;
    }
    case Icons::OptionsIcon:
        return tv_icon_from_files(QStringLiteral(":/icons/icon_options.png"),
                                  QStringLiteral(":/icons/icon_options_32.png"));
    case Icons::ResetIcon:
        return tv_icon_from_files(QStringLiteral(":/icons/icon_reset.png"),
                                  QStringLiteral(":/icons/icon_reset_32.png"));
    case Icons::HelpIcon:
        return tv_icon_from_files(QStringLiteral(":/icons/icon_help_16.png"),
                                  QStringLiteral(":/icons/icon_help_32.png"));
    case Icons::RepairIcon:
        return tv_icon_from_files(QStringLiteral(":/icons/icon_repair_32.png"));
    case Icons::NoIcon:
        break;
    }
    return QIcon();
}

QIcon tv_icon_from_files(const QStringList& files)
{
    QIcon icon;
    for (const QString& file : files) {
        if (!file.isNull())
            icon.addFile(file, QSize(), QIcon::Normal, QIcon::Off);
    }
    return icon;
}

QIcon tv_icon_from_files(const QString& file1, const QString& file2, const QString& file3,
                         const QString& file4, const QString& file5, const QString& file6,
                         const QString& file7, const QString& file8)
{
    return tv_icon_from_files(
        QStringList{file1, file2, file3, file4, file5, file6, file7, file8});
}

QIcon tv_icon_from_path(const QString& path)
{
    if (path.startsWith(QLatin1Char('@')))
        return QIcon::fromTheme(path.mid(1), QIcon());
    return QIcon(path);
}

QIcon tv_icon_from_path(const QVariant& value)
{
    if (isStringList(value)) {
        TVL_LOG(0) << "LIST";
        return tv_icon_from_files(value.toStringList());
    }
    const QString path = value.toString();
    TVL_LOG(0) << "PATH" << path;
    return tv_icon_from_path(path);
}

} // namespace tvl::updater
