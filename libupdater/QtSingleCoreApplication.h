#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QScopedPointer>
#include <QtCore/QString>

class QtSingleCoreApplicationPrivate;

/**
 * A QCoreApplication of which only one instance per application id and user is the primary.
 *
 * At construction the application finds out whether another process with the same id already
 * runs (isRunning()). A later instance usually hands its arguments to the primary with
 * sendMessage() and exits; the primary receives them through messageReceived(). A primary that
 * died without cleaning up (killed, crashed) does not keep the next one from taking its place.
 */
class LIBUPDATER_EXPORT QtSingleCoreApplication : public QCoreApplication
{
    Q_OBJECT

public:
    /// The id is the application's file path.
    QtSingleCoreApplication(int& argc, char** argv);
    /// Any string may serve as `id`; instances with equal ids find each other.
    QtSingleCoreApplication(const QString& id, int& argc, char** argv);
    ~QtSingleCoreApplication() override;

    /// True when another instance with the same id was the primary when this one started.
    bool isRunning() const;
    QString id() const;
    /// As QtSingleApplication::takeOver(): waits up to `timeout` ms for the primary to end, then
    /// becomes the primary; false when the old one did not let go in time.
    bool takeOver(int timeout);

public Q_SLOTS:
    /**
     * Delivers `message` to the primary instance and returns true once the primary has
     * received it. False when this instance is the primary itself, when the primary is gone,
     * or when it has not acknowledged within `timeout` milliseconds (a negative `timeout`
     * waits as long as the primary lives). Blocks the caller for at most `timeout` ms.
     */
    bool sendMessage(const QString& message, int timeout = 5000);

Q_SIGNALS:
    /// Emitted on the primary for every message another instance sent, in the order sent.
    void messageReceived(const QString& message);

private:
    Q_DISABLE_COPY(QtSingleCoreApplication)
    QScopedPointer<QtSingleCoreApplicationPrivate> d;
};
