#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

QT_BEGIN_NAMESPACE
class QLocalServer;
class QLocalSocket;
class QLockFile;
QT_END_NAMESPACE

namespace tvl::updater {

/**
 * The instance registry behind QtSingleApplication and QtSingleCoreApplication.
 *
 * On construction the peer tries to take a lock file derived from the application id. The
 * process that gets it is the primary instance and listens on a local socket next to the lock;
 * every other process with the same id (of the same user) is a client that can send messages
 * to it. Lock ("<socket>-lockfile") and socket live in the user's runtime directory (the
 * temporary directory when there is none, or when its path is too long for a socket address).
 *
 * A message travels as a 32-bit big-endian length followed by that many bytes of UTF-8 and is
 * acknowledged with one byte once the primary has read it; the client connects anew for each
 * message. The primary never blocks: it reads and answers in its event loop.
 */
class QtLocalPeer : public QObject
{
    Q_OBJECT

public:
    /// Messages longer than this (in UTF-8 bytes) are neither sent nor accepted.
    static constexpr quint32 MaximumMessageSize = 64u * 1024u * 1024u;

    /// `appId` empty: the id is the application's file path.
    explicit QtLocalPeer(QObject* parent, const QString& appId = QString());
    ~QtLocalPeer() override;

    /// True when another process held the lock at construction, i.e. this one is not primary.
    bool isClient() const;
    /// Delivers `message` to the primary; false when this process is the primary, when there
    /// is none any more, or when it has not acknowledged the message within `timeout` ms
    /// (negative: no time limit).
    bool sendMessage(const QString& message, int timeout);
    QString applicationId() const;
    /**
     * For a client: waits up to `timeout` ms for the primary to end, then becomes the primary.
     * True when the old primary let go in time; false when it still holds the lock, in which
     * case this process serves the socket all the same and takes the lock once it is free.
     */
    bool takeOver(int timeout);

Q_SIGNALS:
    void messageReceived(const QString& message);

private:
    void claim();
    void listen();
    void acceptConnections();
    void readFrames(QLocalSocket* socket, qint64& expected);
    bool primaryIsAlive() const;
    bool lockIsAbandonedUnwritten() const;

    QString m_id;
    QString m_socketPath;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer* m_server = nullptr;
    bool m_client = false;
};

} // namespace tvl::updater
