#include "DesktopNotification.h"
#include "NotificationsPlugin.h"

#include <QtDBus/QDBusArgument>
#include <QtGui/QGuiApplication>
#include <QtGui/QImage>

using namespace tvl::updater;

namespace {

/// The edge of the image sent with a notification, in pixels.
constexpr int ImageSize = 64;

/// The image-data hint: (iiibiiay) width, height, row stride, alpha, bits per sample, channels, pixels.
QVariant imageData(const QIcon& icon)
{
    const QImage image = icon.pixmap(QSize(ImageSize, ImageSize)).toImage().convertToFormat(QImage::Format_RGBA8888);
    if (image.isNull())
        return QVariant();
    QDBusArgument data;
    data.beginStructure();
    data << image.width() << image.height() << int(image.bytesPerLine()) << true << 8 << 4
         << QByteArray(reinterpret_cast<const char*>(image.constBits()), image.sizeInBytes());
    data.endStructure();
    return QVariant::fromValue(data);
}

} // namespace

DesktopNotification::DesktopNotification(NotificationCenter* center, QObject* parent)
    : IUpdaterNotification(parent)
    , m_center(center)
{
}

QString DesktopNotification::title() const
{
    return m_title;
}

void DesktopNotification::setTitle(const QString& title)
{
    m_title = title;
}

QString DesktopNotification::text() const
{
    return m_text;
}

void DesktopNotification::setText(const QString& text)
{
    m_text = text;
}

QIcon DesktopNotification::icon() const
{
    return m_icon;
}

void DesktopNotification::setIcon(const QIcon& icon)
{
    m_icon = icon;
}

void DesktopNotification::setHint(NotificationHint hint, const QVariant& value)
{
    if (value.isValid())
        m_hints.insert(hint, value);
    else
        m_hints.remove(hint);
}

void DesktopNotification::show()
{
    if (m_center)
        m_center->show(this);
}

void DesktopNotification::close()
{
    if (m_center)
        m_center->close(this);
}

QVariant DesktopNotification::hint(NotificationHint hint) const
{
    return m_hints.value(hint);
}

int DesktopNotification::timeout() const
{
    bool valid = false;
    const int milliseconds = hint(UpdaterNotificationHintTimeout).toInt(&valid);
    return valid && milliseconds >= 0 ? milliseconds : -1;
}

QVariantList DesktopNotification::notifyArguments(uint replacesId, bool actionIcons) const
{
    QVariantMap hints;
    // Low, normal and urgent are the service's urgencies 0, 1 and 2, sent as a byte.
    const int priority = qBound(int(LowPriority), hint(UpdaterNotificationHintPriority).toInt(), int(UrgentPriority));
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue(uchar(priority - LowPriority)));
    if (const QString kind = hint(UpdaterNotificationHintNotificationName).toString(); !kind.isEmpty())
        hints.insert(QStringLiteral("category"), kind);
    if (!m_icon.isNull()) {
        if (!m_icon.name().isEmpty())
            hints.insert(QStringLiteral("image-path"), m_icon.name());
        else if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
            hints.insert(QStringLiteral("image-data"), imageData(m_icon));
    }
    if (actionIcons)
        hints.insert(QStringLiteral("action-icons"), true);

    QString label = hint(UpdaterNotificationHintFallbackActionName).toString();
    if (label.isEmpty())
        label = tr("Open");
    return {QGuiApplication::applicationDisplayName(), replacesId, QString(), m_title, m_text,
            QStringList{actionKey(actionIcons), label}, hints, timeout()};
}

QString DesktopNotification::actionKey(bool actionIcons) const
{
    // With action icons the service reads the key as the name of the icon to draw.
    const QString iconName = hint(UpdaterNotificationHintActionIcon).value<QIcon>().name();
    return actionIcons && !iconName.isEmpty() ? iconName : QStringLiteral("default");
}

void DesktopNotification::reportClicked()
{
    m_clicked = true;
    Q_EMIT clicked();
}

void DesktopNotification::reportClosed(NotificationClosedReason reason)
{
    delivery = Delivery();
    const bool clicked = std::exchange(m_clicked, false);
    Q_EMIT closed(clicked ? NotificationClicked : reason);
}
