#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtGui/QIcon>

class QWidget;

namespace tvl::updater {

namespace Icons {

/// The built-in icons, taken from the application's resources under ":/icons/".
enum Icon {
    NoIcon = 0,
    KeyIcon = 1,
    EulaIcon = 2,
    QuitIcon = 3,
    TurtleModeIcon = 4, ///< checkable: its On and Off states have their own pictures
    OptionsIcon = 5,
    ResetIcon = 6,
    HelpIcon = 7,
    RepairIcon = 8
};

} // namespace Icons

/**
 * A remaining time in words: "Less than a minute", "Approximately N minute(s)" below an hour,
 * "More than an hour" from there on. Minutes are truncated, never rounded up.
 */
LIBUPDATER_EXPORT QString tv_seconds_to_userfriendly_duration(unsigned int seconds);

/**
 * The terse form: "< 1min", "N min(s)", "HhMm" below a day, and from one day on the bare
 * number of whole days, without a unit.
 */
LIBUPDATER_EXPORT QString tv_seconds_to_userfriendly_duration_short(unsigned int seconds);

/// Moves the widget to the centre of the available area of its screen. Nothing is clamped.
LIBUPDATER_EXPORT void tv_center_on_screen(QWidget& widget);

/**
 * Moves the widget to the centre of the top-level window of `parent` (by default the widget's
 * parent widget), or of its screen when there is no parent at all. Nothing is clamped.
 */
LIBUPDATER_EXPORT void tv_center_on_widget(QWidget& widget, QWidget* parent = nullptr);

/// A built-in icon; an empty icon for NoIcon and for values outside the enumeration.
LIBUPDATER_EXPORT QIcon tv_icon(Icons::Icon icon);

/**
 * An icon made of image files of different sizes, added in order, each at its own size, so
 * that the icon picks the best-sized file itself. Null strings in the list are skipped.
 */
LIBUPDATER_EXPORT QIcon tv_icon_from_files(const QStringList& files);

/// The same for up to eight files; places left as null strings are skipped.
LIBUPDATER_EXPORT QIcon tv_icon_from_files(const QString& file1, const QString& file2 = QString(),
                                           const QString& file3 = QString(),
                                           const QString& file4 = QString(),
                                           const QString& file5 = QString(),
                                           const QString& file6 = QString(),
                                           const QString& file7 = QString(),
                                           const QString& file8 = QString());

/**
 * "@name" is the icon `name` of the current icon theme (an empty icon when the theme has none);
 * anything else is an image file.
 */
LIBUPDATER_EXPORT QIcon tv_icon_from_path(const QString& path);

/// A list of file names as for tv_icon_from_files(), any other value as a path as above.
LIBUPDATER_EXPORT QIcon tv_icon_from_path(const QVariant& value);

} // namespace tvl::updater
