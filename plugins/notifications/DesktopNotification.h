#pragma once

#include <libupdater/IUpdaterNotification.h>

#include <QtCore/QHash>
#include <QtCore/QPointer>

class NotificationCenter;

/**
 * One notification: its texts, icon and hints, and where it was shown. show() and close()
 * hand it to the NotificationCenter that made it, which reports back through reportClicked()
 * and reportClosed().
 */
class DesktopNotification : public tvl::updater::IUpdaterNotification
{
    Q_OBJECT

public:
    /// Where a notification went when it was shown.
    enum Route {
        NotShown,
        ServiceRoute,   ///< the desktop's notification service
        TrayRoute,      ///< a message of the tray icon
        LogRoute        ///< a log line
    };

    DesktopNotification(NotificationCenter* center, QObject* parent);

    QString title() const override;
    void setTitle(const QString& title) override;
    QString text() const override;
    void setText(const QString& text) override;
    QIcon icon() const override;
    void setIcon(const QIcon& icon) override;
    void setHint(NotificationHint hint, const QVariant& value) override;
    void show() override;
    void close() override;

    QVariant hint(NotificationHint hint) const;
    /// The Timeout hint in milliseconds; -1 when unset (the desktop decides), 0 for never.
    int timeout() const;

    /**
     * The arguments of org.freedesktop.Notifications.Notify for this notification, replacing
     * the notification `replacesId` of the service (0: none). `actionIcons` tells that the
     * service draws actions as icons (its capability "action-icons").
     */
    QVariantList notifyArguments(uint replacesId, bool actionIcons) const;
    /// The key of the one action in notifyArguments().
    QString actionKey(bool actionIcons) const;

    /// Where the notification is shown now; kept by the center.
    struct Delivery
    {
        Route route = NotShown;
        uint serverId = 0;              ///< the service's id, once it answered
        bool awaitingServer = false;    ///< Notify sent, no answer yet
        bool closeWanted = false;       ///< close() came before the service's answer
        bool showAgain = false;         ///< show() came again before the service's answer
    };
    Delivery delivery;

    /// Emits clicked(); a later reportClosed() then says NotificationClicked.
    void reportClicked();
    /// Emits closed(): NotificationClicked after a click, else `reason`; forgets the delivery.
    void reportClosed(NotificationClosedReason reason);

private:
    QPointer<NotificationCenter> m_center;
    QString m_title;
    QString m_text;
    QIcon m_icon;
    QHash<int, QVariant> m_hints;
    bool m_clicked = false;
};
