#include "QtLocalPeer_p.h"

#include <basix/Logger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QCryptographicHash>
#include <QtCore/QDateTime>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLockFile>
#include <QtCore/QPointer>
#include <QtCore/QStandardPaths>
#include <QtCore/QSysInfo>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtCore/QtEndian>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

#include <cerrno>
#include <csignal>
#include <sys/un.h>
#include <unistd.h>

namespace tvl::updater {

namespace {

constexpr char Acknowledgement = '\x06';
constexpr qint64 HeaderSize = 4;
/// Pause between connection attempts while the primary is still setting up its socket.
constexpr int ConnectRetryMs = 20;
/// How long a lock file may lack its owner's details before it counts as abandoned.
constexpr qint64 UnwrittenLockGraceMs = 5000;

/// The directory for lock and socket: the socket's full path must fit into sun_path.
QString instanceDirectory(qsizetype nameLength)
{
    const auto fits = [nameLength](const QString& directory) {
        return QFile::encodeName(directory).size() + 1 + nameLength
               < qsizetype(sizeof(sockaddr_un::sun_path));
    };
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty() && fits(runtime))
        return runtime;
    return QDir::tempPath();
}

/// For the waitFor...() calls: -1 waits without limit.
int remainingMs(const QDeadlineTimer& deadline)
{
    return deadline.isForever() ? -1 : int(qMax<qint64>(0, deadline.remainingTime()));
}

} // namespace

QtLocalPeer::QtLocalPeer(QObject* parent, const QString& appId)
    : QObject(parent)
    , m_id(appId)
{
    if (m_id.isEmpty())
        m_id = QCoreApplication::applicationFilePath();

    // Any string may serve as id, so only its hash goes into the file names; the user id keeps
    // two users apart where both fall back to the shared temporary directory.
    const QByteArray hash =
        QCryptographicHash::hash(m_id.toUtf8(), QCryptographicHash::Sha256).toHex().left(32);
    const QString name = QStringLiteral("qtsingleapp-%1-%2")
                             .arg(QString::fromLatin1(hash), QString::number(::getuid()));
    m_socketPath = instanceDirectory(name.size()) + QLatin1Char('/') + name;
    m_lock = std::make_unique<QLockFile>(m_socketPath + QStringLiteral("-lockfile"));
    // Staleness is decided by the owner's process alone: a primary may run for days.
    m_lock->setStaleLockTime(0);
    claim();
}

QtLocalPeer::~QtLocalPeer()
{
    // The socket goes before the lock, so that a successor that takes the lock never finds a
    // server of ours still listening.
    if (m_server) {
        m_server->close();
        delete m_server;
        m_server = nullptr;
    }
    if (m_lock->isLocked())
        m_lock->unlock();
}

void QtLocalPeer::claim()
{
    m_client = false;
    const bool leftOver = QFileInfo::exists(m_lock->fileName());
    // tryLock() removes a lock whose owner is no longer running (killed, crashed) and takes it;
    // of several processes starting together exactly one gets it.
    bool locked = m_lock->tryLock(0);
    if (!locked && m_lock->error() == QLockFile::LockFailedError && lockIsAbandonedUnwritten()) {
        // QLockFile keeps a lock it cannot attribute for good when there is no stale time.
        // Removal fails while any process still holds the file, so this cannot steal it.
        locked = m_lock->removeStaleLockFile() && m_lock->tryLock(0);
    }
    if (!locked) {
        if (m_lock->error() == QLockFile::LockFailedError) {
            m_client = true;
            return;
        }
        // Without a lock there is no telling who is first; running alone beats not running.
        TVL_LOG(tvl::Logger::Warning) << "Cannot create the instance lock" << m_lock->fileName();
        return;
    }
    if (leftOver)
        TVL_LOG(tvl::Logger::Notice) << "Took over the instance lock of a process that is gone:"
                                     << m_lock->fileName();

    // Holding the lock, any socket file at our path belongs to a dead primary.
    listen();
}

void QtLocalPeer::listen()
{
    delete m_server;
    QLocalServer::removeServer(m_socketPath);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &QtLocalPeer::acceptConnections);
    if (!m_server->listen(m_socketPath))
        TVL_LOG(tvl::Logger::Warning) << "Cannot listen on" << m_socketPath << ":"
                                      << m_server->errorString();
}

bool QtLocalPeer::lockIsAbandonedUnwritten() const
{
    const QFileInfo file(m_lock->fileName());
    qint64 pid = 0;
    QString hostName;
    QString appName;
    return file.exists() && !m_lock->getLockInfo(&pid, &hostName, &appName)
           && qAbs(file.lastModified().msecsTo(QDateTime::currentDateTime())) > UnwrittenLockGraceMs;
}

bool QtLocalPeer::takeOver(int timeout)
{
    const QDeadlineTimer deadline(timeout);
    while (m_client && !deadline.hasExpired()) {
        QThread::msleep(qMin(ConnectRetryMs, remainingMs(deadline)));
        claim();
    }
    if (!m_client)
        return true;

    // The old primary hangs on to the lock. Serving the socket now makes this process the one
    // that new instances talk to; the lock follows as soon as the old process lets it go, and
    // since the old one removes the socket file when it closes, the socket is made anew then.
    m_client = false;
    listen();
    auto* retry = new QTimer(this);
    connect(retry, &QTimer::timeout, this, [this, retry] {
        if (!m_lock->tryLock(0))
            return;
        retry->deleteLater();
        listen();
        TVL_LOG(tvl::Logger::Notice) << "The previous instance let go of the instance lock at last";
    });
    retry->start(ConnectRetryMs * 10);
    return false;
}

bool QtLocalPeer::isClient() const
{
    return m_client;
}

QString QtLocalPeer::applicationId() const
{
    return m_id;
}

bool QtLocalPeer::primaryIsAlive() const
{
    qint64 pid = 0;
    QString hostName;
    QString appName;
    if (!m_lock->getLockInfo(&pid, &hostName, &appName)) {
        // The owner creates the file first and writes its details right after.
        return QFileInfo::exists(m_lock->fileName()) && !lockIsAbandonedUnwritten();
    }
    if (!hostName.isEmpty() && hostName != QSysInfo::machineHostName())
        return true; // a shared directory: no way to tell, so wait for the time-out
    return ::kill(pid_t(pid), 0) == 0 || errno == EPERM;
}

bool QtLocalPeer::sendMessage(const QString& message, int timeout)
{
    if (!m_client)
        return false;

    const QByteArray payload = message.toUtf8();
    if (quint64(payload.size()) > MaximumMessageSize) {
        TVL_LOG(tvl::Logger::Warning) << "Message too long to send:" << qint64(payload.size())
                                      << "bytes";
        return false;
    }

    const QDeadlineTimer deadline = timeout < 0 ? QDeadlineTimer(QDeadlineTimer::Forever)
                                                : QDeadlineTimer(timeout);
    QLocalSocket socket;
    for (;;) {
        socket.connectToServer(m_socketPath);
        if (socket.waitForConnected(remainingMs(deadline)))
            break;
        // The primary takes the lock before it listens: a missing or refusing socket means it
        // is either still starting or gone, and only the first is worth waiting for.
        if (deadline.hasExpired() || !primaryIsAlive()) {
            TVL_LOG(tvl::Logger::Warning) << "No running instance to send the message to:"
                                          << socket.errorString();
            return false;
        }
        socket.abort();
        QThread::msleep(deadline.isForever() ? ConnectRetryMs
                                             : qMin(ConnectRetryMs, remainingMs(deadline)));
    }

    uchar header[HeaderSize];
    qToBigEndian(quint32(payload.size()), header);
    socket.write(reinterpret_cast<const char*>(header), HeaderSize);
    socket.write(payload);
    bool acknowledged = false;
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(remainingMs(deadline)))
            break;
    }
    if (socket.bytesToWrite() == 0) {
        while (socket.bytesAvailable() < 1 && socket.waitForReadyRead(remainingMs(deadline))) {
        }
        char answer = 0;
        acknowledged = socket.getChar(&answer) && answer == Acknowledgement;
    }
    if (!acknowledged)
        TVL_LOG(tvl::Logger::Warning) << "The running instance did not acknowledge the message within"
                                      << timeout << "ms";
    socket.disconnectFromServer();
    return acknowledged;
}

void QtLocalPeer::acceptConnections()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        // Each connection keeps the length of the frame it is in the middle of.
        connect(socket, &QLocalSocket::readyRead, this,
                [this, socket, expected = qint64(-1)]() mutable { readFrames(socket, expected); });
    }
}

void QtLocalPeer::readFrames(QLocalSocket* socket, qint64& expected)
{
    const QPointer<QtLocalPeer> self(this);
    const QPointer<QLocalSocket> connection(socket);
    for (;;) {
        if (expected < 0) {
            if (socket->bytesAvailable() < HeaderSize)
                return;
            uchar header[HeaderSize];
            socket->read(reinterpret_cast<char*>(header), HeaderSize);
            const quint32 size = qFromBigEndian<quint32>(header);
            if (size > MaximumMessageSize) {
                TVL_LOG(tvl::Logger::Warning) << "Dropping a connection that announces a message of"
                                              << size << "bytes";
                socket->abort();
                return;
            }
            expected = size;
        }
        if (socket->bytesAvailable() < expected)
            return;
        const QString message = QString::fromUtf8(socket->read(expected));
        expected = -1;
        socket->putChar(Acknowledgement);
        socket->flush();
        Q_EMIT messageReceived(message);
        // A receiver may have torn down the application, and with it this connection.
        if (!self || !connection)
            return;
    }
}

} // namespace tvl::updater
