#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QScopedPointer>
#include <QtCore/QString>
#include <QtWidgets/QApplication>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

class QtSingleApplicationPrivate;

/**
 * A QApplication of which only one instance per application id and user is the primary.
 *
 * At construction the application finds out whether another process with the same id already
 * runs (isRunning()). A later instance usually hands its arguments to the primary with
 * sendMessage() and exits; the primary receives them through messageReceived() and, with an
 * activation window set, brings that window to the front. A primary that died without
 * cleaning up (killed, crashed) does not keep the next one from taking its place.
 */
class LIBUPDATER_EXPORT QtSingleApplication : public QApplication
{
    Q_OBJECT

public:
    /**
     * The id is the application's file path. Qt 6 always starts the GUI, so `GUIenabled` is
     * accepted for existing callers and has no effect.
     */
    QtSingleApplication(int& argc, char** argv, bool GUIenabled = true);
    /// Any string may serve as `id`; instances with equal ids find each other.
    QtSingleApplication(const QString& id, int& argc, char** argv);
    ~QtSingleApplication() override;

    /// True when another instance with the same id was the primary when this one started.
    bool isRunning() const;
    QString id() const;
    /**
     * For an instance started while another was the primary (isRunning()): waits up to
     * `timeout` milliseconds for that primary to end, then becomes the primary itself, so that
     * a restarted application does not hand its arguments to the dying one. True when the old
     * primary let go in time; false when it did not, and this instance is the primary anyway.
     */
    bool takeOver(int timeout);

    /**
     * Makes `aw` the window that activateWindow() brings up; with `activateOnMessage` every
     * received message does that too, right after messageReceived() has been emitted. The
     * window is not owned; null clears it.
     */
    void setActivationWindow(QWidget* aw, bool activateOnMessage = true);
    QWidget* activationWindow() const;

public Q_SLOTS:
    /**
     * Delivers `message` to the primary instance and returns true once the primary has
     * received it. False when this instance is the primary itself, when the primary is gone,
     * or when it has not acknowledged within `timeout` milliseconds (a negative `timeout`
     * waits as long as the primary lives). Blocks the caller for at most `timeout` ms.
     */
    bool sendMessage(const QString& message, int timeout = 5000);
    /// Shows the activation window (restoring it when minimised), raises and activates it.
    void activateWindow();

Q_SIGNALS:
    /// Emitted on the primary for every message another instance sent, in the order sent.
    void messageReceived(const QString& message);

private:
    Q_DISABLE_COPY(QtSingleApplication)
    QScopedPointer<QtSingleApplicationPrivate> d;
};
