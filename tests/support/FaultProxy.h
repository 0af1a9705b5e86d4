#pragma once

// A small HTTP proxy for tests that sits between a client and a real server and breaks chosen
// responses: it cuts the connection after some bytes, answers 503 with Retry-After, stalls, or
// flips a byte. It runs on a thread of its own, so a test may block while a child process
// talks through it.

#include <QtCore/QMutex>
#include <QtCore/QString>
#include <QtCore/QThread>
#include <QtCore/QUrl>

#include <memory>

namespace testsupport {

class FaultProxy
{
public:
    enum Kind {
        CutAfter,      ///< close the connection after `bytes` bytes of the body
        Unavailable,   ///< answer "503 Service Unavailable" with "Retry-After: <bytes>" seconds
        Stall,         ///< send `bytes` bytes of the body, then nothing more
        FlipByte       ///< invert the body byte at offset `bytes`
    };

    /// Relays to `upstream` (the server's root URL) on a free loopback port.
    explicit FaultProxy(const QUrl& upstream);
    ~FaultProxy();

    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    QUrl url() const;

    /// The next `times` requests whose URI contains `uriPart` suffer `kind`.
    void addFault(Kind kind, const QString& uriPart, int times, qint64 bytes = 0);
    void clearFaults();
    /// How many responses were broken so far.
    int faultsApplied() const;

    struct Fault
    {
        Kind kind;
        QString uriPart;
        int times;
        qint64 bytes;
    };
    /// For the proxy's thread: the fault for a request to `uri`, if one is due.
    bool takeFault(const QString& uri, Fault* fault);

private:
    QUrl m_upstream;
    quint16 m_port = 0;
    mutable QMutex m_mutex;
    QList<Fault> m_faults;
    int m_applied = 0;
    QThread m_thread;
};

} // namespace testsupport
