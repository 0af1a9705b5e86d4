#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtGui/QIcon>

namespace tvl::updater {

/**
 * A desktop notification shown on behalf of a plugin; one object per notification. Set it up,
 * show() it, and follow clicked() and closed().
 *
 * The objects come from the bundled notifications plugin: its registered object
 * "notifications" has the invokable `tvl::updater::IUpdaterNotification*
 * createNotification(QObject* parent)`, reached with QMetaObject::invokeMethod() and
 * Q_RETURN_ARG (docs/plugins.md shows the call).
 */
class LIBUPDATER_EXPORT IUpdaterNotification : public QObject
{
    Q_OBJECT

public:
    /// Optional display hints (setHint()) and the type of their values.
    enum NotificationHint {
        UpdaterNotificationHintActionIcon = 0,          ///< QIcon of the default action
        UpdaterNotificationHintNotificationName = 1,    ///< QString naming the kind of notification
        UpdaterNotificationHintTimeout = 2,             ///< int, milliseconds until it expires
        UpdaterNotificationHintPriority = 3,            ///< NotificationPriority
        UpdaterNotificationHintFallbackActionName = 4   ///< QString, the action's text where no icon can be shown
    };
    Q_ENUM(NotificationHint)

    enum NotificationPriority {
        LowPriority = -1,
        NormalPriority = 0,
        UrgentPriority = 1
    };
    Q_ENUM(NotificationPriority)

    enum NotificationClosedReason {
        NotificationClicked = 0,
        NotificationExpired = 1,
        NotificationDismissed = 2
    };
    Q_ENUM(NotificationClosedReason)

    explicit IUpdaterNotification(QObject* parent = nullptr);
    ~IUpdaterNotification() override;

    virtual QString title() const = 0;
    virtual void setTitle(const QString& title) = 0;
    virtual QString text() const = 0;
    virtual void setText(const QString& text) = 0;
    virtual QIcon icon() const = 0;
    virtual void setIcon(const QIcon& icon) = 0;
    /// Sets one display hint; an invalid value removes it. Hints the desktop cannot honour are
    /// ignored.
    virtual void setHint(NotificationHint hint, const QVariant& value) = 0;
    /// Shows the notification, or updates it when it is already shown.
    virtual void show() = 0;
    /// Takes the notification away; closed(NotificationDismissed) follows.
    virtual void close() = 0;

    // The meta-object marks the signals protected, since only the implementation emits them;
    // for C++ they stay public so that consumers can connect through member-function pointers.
#ifdef Q_MOC_RUN
protected:
#else
public:
#endif
    /// The user clicked the notification or its action.
    Q_SIGNAL void clicked();
    Q_SIGNAL void closed(IUpdaterNotification::NotificationClosedReason reason);
};

} // namespace tvl::updater
