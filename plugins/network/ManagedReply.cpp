#include "ManagedReply.h"

#include "FileSink.h"
#include "TransferScheduler.h"

#include <basix/Logger.h>

#include <QtCore/QDateTime>
#include <QtCore/QRandomGenerator>
#include <QtCore/QRegularExpression>

#include <cstring>

namespace {

// With a rate limit, the access manager keeps at most this much of an answer unread, so that the
// rest waits in the socket and TCP slows the server down.
constexpr qint64 ThrottledReadBuffer = 64 * 1024;
constexpr int MaximumRedirects = 5;

const QNetworkRequest::Attribute CopiedAttributes[] = {
    QNetworkRequest::HttpStatusCodeAttribute,     QNetworkRequest::HttpReasonPhraseAttribute,
    QNetworkRequest::RedirectionTargetAttribute,  QNetworkRequest::ConnectionEncryptedAttribute,
    QNetworkRequest::SourceIsFromCacheAttribute,  QNetworkRequest::Http2WasUsedAttribute,
};

int statusOf(const QNetworkReply* reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

bool isTransientError(QNetworkReply::NetworkError error)
{
    switch (error) {
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::TimeoutError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyConnectionClosedError:
    case QNetworkReply::ProxyTimeoutError:
        return true;
    default:
        return false;
    }
}

/// What a retry may ask If-Range with: a strong entity tag, else the modification time.
QByteArray validatorOf(const QNetworkReply* reply)
{
    const QByteArray tag = reply->rawHeader("ETag");
    if (!tag.isEmpty() && !tag.startsWith("W/"))
        return tag;
    return reply->rawHeader("Last-Modified");
}

/// "bytes first-last/total" of a 206 answer: first and total (-1 when unknown), or false.
bool parseContentRange(const QByteArray& header, qint64* first, qint64* total)
{
    static const QRegularExpression pattern(QStringLiteral("^bytes\\s+(\\d+)-(\\d+)/(\\d+|\\*)$"));
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(header.trimmed()));
    if (!match.hasMatch())
        return false;
    *first = match.captured(1).toLongLong();
    *total = match.captured(3) == QLatin1String("*") ? -1 : match.captured(3).toLongLong();
    return true;
}

} // namespace

ManagedReply::ManagedReply(QNetworkAccessManager* access, TransferScheduler* scheduler, const Settings& settings,
                           QNetworkAccessManager::Operation operation, const QNetworkRequest& request,
                           const QByteArray& body, const QString& filePath, FileSink* sink)
    : QNetworkReply(scheduler)
    , m_access(access)
    , m_scheduler(scheduler)
    , m_settings(settings)
    , m_body(body)
    , m_filePath(filePath)
    , m_sink(sink)
{
    setOperation(operation);
    setRequest(request);
    setUrl(request.url());
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);

    m_idle.setSingleShot(true);
    connect(&m_idle, &QTimer::timeout, this, &ManagedReply::onTimeout);
    m_pause.setSingleShot(true);
    connect(&m_pause, &QTimer::timeout, this, [this] {
        if (m_scheduler)
            m_scheduler->enqueue(this);
    });

    if (m_sink) {
        connect(m_sink, &FileSink::prepared, this, [this](qint64 offset, const QByteArray& validator) {
            m_delivered = offset;
            m_validator = validator;
            if (offset > 0)
                TVL_LOG(tvl::Logger::Info) << "Resuming the download of" << url() << "at byte" << offset;
            if (m_scheduler && !m_done)
                m_scheduler->enqueue(this);
        });
        connect(m_sink, &FileSink::failed, this, [this](const QString& error) {
            if (m_current)
                m_current->abort();
            finishWith(QNetworkReply::UnknownContentError, error);
        });
        connect(m_sink, &FileSink::committed, this, [this](bool ok, const QString& error) {
            finishWith(ok ? QNetworkReply::NoError : QNetworkReply::UnknownContentError, error);
        });
        QMetaObject::invokeMethod(m_sink, &FileSink::prepare, Qt::QueuedConnection);
    } else {
        // Not from the constructor: the caller connects to the reply first.
        QMetaObject::invokeMethod(
            this, [this] {
                if (m_scheduler && !m_done)
                    m_scheduler->enqueue(this);
            },
            Qt::QueuedConnection);
    }
}

ManagedReply::~ManagedReply()
{
    if (m_scheduler)
        m_scheduler->release(this);
    if (m_current) {
        m_current->disconnect(this);
        m_current->abort();
        m_current->deleteLater();
    }
    if (m_sink) {
        if (!m_done)
            QMetaObject::invokeMethod(m_sink, &FileSink::keep, Qt::QueuedConnection);
        m_sink->deleteLater();
    }
}

qint64 ManagedReply::bytesAvailable() const
{
    return m_buffer.size() + QNetworkReply::bytesAvailable();
}

qint64 ManagedReply::readData(char* data, qint64 maxSize)
{
    const qint64 size = qMin<qint64>(maxSize, m_buffer.size());
    if (size <= 0)
        return m_done ? -1 : 0;
    std::memcpy(data, m_buffer.constData(), size_t(size));
    m_buffer.remove(0, size);
    // The reader made room: what the attempt holds beyond the bound comes next.
    if (room() > 0 && !rateLimited() && m_current && m_current->bytesAvailable() > 0 && !m_pullQueued) {
        m_pullQueued = true;
        QMetaObject::invokeMethod(this, [this] {
            m_pullQueued = false;
            if (!rateLimited())
                pull(room());
        }, Qt::QueuedConnection);
    }
    return size;
}

void ManagedReply::setReadBufferSize(qint64 size)
{
    QNetworkReply::setReadBufferSize(size);
    if (m_current)
        m_current->setReadBufferSize(attemptReadBuffer());
}

qint64 ManagedReply::attemptReadBuffer() const
{
    // Bounded, the attempt holds back the server (through TCP) while its reader is behind.
    return rateLimited() ? ThrottledReadBuffer : room() >= 0 ? readBufferSize() : 0;
}

qint64 ManagedReply::room() const
{
    if (m_sink || readBufferSize() <= 0)
        return -1;
    return qMax<qint64>(0, readBufferSize() - m_buffer.size());
}

void ManagedReply::abort()
{
    if (m_done)
        return;
    m_aborted = true;
    m_pause.stop();
    if (m_current) {
        m_current->disconnect(this);
        m_current->abort();
    }
    if (m_sink)
        QMetaObject::invokeMethod(m_sink, &FileSink::keep, Qt::QueuedConnection);
    finishWith(QNetworkReply::OperationCanceledError, tr("Operation canceled"));
}

void ManagedReply::startTransfer()
{
    if (!m_done)
        startAttempt();
}

bool ManagedReply::rateLimited() const
{
    return m_scheduler && m_scheduler->rateLimit() > 0;
}

QNetworkRequest ManagedReply::attemptRequest() const
{
    QNetworkRequest request = this->request();
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(MaximumRedirects);
    if (m_delivered > 0 && operation() == QNetworkAccessManager::GetOperation) {
        request.setRawHeader("Range", "bytes=" + QByteArray::number(m_delivered) + '-');
        if (!m_validator.isEmpty())
            request.setRawHeader("If-Range", m_validator);
    }
    return request;
}

void ManagedReply::startAttempt()
{
    ++m_attempt;
    m_timedOut = false;
    m_skip = 0;
    m_attemptOffset = m_delivered;
    const QNetworkRequest request = attemptRequest();
    QNetworkReply* attempt = nullptr;
    switch (operation()) {
    case QNetworkAccessManager::GetOperation:
        attempt = m_access->get(request);
        break;
    case QNetworkAccessManager::HeadOperation:
        attempt = m_access->head(request);
        break;
    case QNetworkAccessManager::PostOperation:
        attempt = m_access->post(request, m_body);
        break;
    case QNetworkAccessManager::PutOperation:
        attempt = m_access->put(request, m_body);
        break;
    case QNetworkAccessManager::DeleteOperation:
        attempt = m_access->deleteResource(request);
        break;
    default:
        attempt = m_access->sendCustomRequest(request, this->request().attribute(QNetworkRequest::CustomVerbAttribute).toByteArray(), m_body);
        break;
    }
    m_current = attempt;
    attempt->setReadBufferSize(attemptReadBuffer());
    connect(attempt, &QNetworkReply::metaDataChanged, this, &ManagedReply::onAttemptMetaData);
    connect(attempt, &QNetworkReply::readyRead, this, &ManagedReply::onAttemptReadyRead);
    connect(attempt, &QNetworkReply::finished, this, &ManagedReply::onAttemptFinished);
    connect(attempt, &QNetworkReply::uploadProgress, this, [this](qint64 sent, qint64 total) {
        m_idle.start(m_settings.timeoutMs);
        Q_EMIT uploadProgress(sent, total);
    });
    m_idle.start(m_settings.timeoutMs);
}

ManagedReply::Resumption ManagedReply::resumption(const QNetworkReply* attempt)
{
    const int status = statusOf(attempt);
    if (status == 206) {
        qint64 first = -1;
        qint64 total = -1;
        if (!parseContentRange(attempt->rawHeader("Content-Range"), &first, &total) || first != m_delivered)
            return Resumption::Refused;
        if (total >= 0)
            m_total = total;
        return Resumption::Continue;
    }
    if (status == 200) {
        // The whole resource again. The same one (same validator): its first bytes are dropped.
        if (!m_validator.isEmpty() && validatorOf(attempt) == m_validator) {
            m_skip = m_delivered;
            return Resumption::Continue;
        }
        // A download starts its file afresh; a reply whose consumer already read a part cannot.
        return m_sink ? Resumption::Restart : Resumption::Refused;
    }
    return Resumption::Continue; // an error answer: judged when the attempt finishes
}

void ManagedReply::onAttemptMetaData()
{
    QNetworkReply* attempt = m_current;
    if (!attempt || sender() != attempt)
        return;
    m_idle.start(m_settings.timeoutMs);
    const int status = statusOf(attempt);
    Resumption resumed = m_attemptOffset > 0 ? resumption(attempt) : Resumption::Restart;
    if (resumed == Resumption::Refused) {
        attempt->disconnect(this);
        attempt->abort();
        finishWith(QNetworkReply::UnknownContentError,
                   tr("%1 changed while it was being fetched").arg(url().toString()));
        return;
    }
    if (status < 200 || status > 299)
        return;
    if (resumed == Resumption::Restart) {
        m_delivered = 0;
        m_validator = validatorOf(attempt);
        const QVariant length = attempt->header(QNetworkRequest::ContentLengthHeader);
        m_total = length.isValid() ? length.toLongLong() : -1;
        openSink(0);
    } else if (!m_sinkOpen) {
        // The first attempt of a download that resumes a part left by an earlier one.
        if (m_total < 0) {
            const QVariant length = attempt->header(QNetworkRequest::ContentLengthHeader);
            if (length.isValid())
                m_total = m_attemptOffset + length.toLongLong();
        }
        openSink(m_delivered);
    }
    if (!m_haveMetaData) {
        m_haveMetaData = true;
        takeMetaData(attempt);
        Q_EMIT metaDataChanged();
    }
}

void ManagedReply::openSink(qint64 offset)
{
    if (!m_sink)
        return;
    m_sinkOpen = true;
    QMetaObject::invokeMethod(m_sink, "begin", Qt::QueuedConnection, Q_ARG(qint64, offset), Q_ARG(QByteArray, m_validator));
}

void ManagedReply::takeMetaData(const QNetworkReply* attempt)
{
    for (const QNetworkReply::RawHeaderPair& header : attempt->rawHeaderPairs())
        setRawHeader(header.first, header.second);
    for (const QNetworkRequest::Attribute attribute : CopiedAttributes)
        setAttribute(attribute, attempt->attribute(attribute));
    setUrl(attempt->url());
}

void ManagedReply::onAttemptReadyRead()
{
    m_idle.start(m_settings.timeoutMs);
    if (!rateLimited())
        pull(room());
}

qint64 ManagedReply::pull(qint64 maximum)
{
    QNetworkReply* attempt = m_current;
    if (!attempt || m_done)
        return 0;
    const int status = statusOf(attempt);
    const qint64 available = attempt->bytesAvailable();
    if (available <= 0 || maximum == 0)
        return 0;
    const qint64 taken = maximum < 0 ? available : qMin(maximum, available);
    QByteArray data = attempt->read(taken);
    m_idle.start(m_settings.timeoutMs);
    if (status < 200 || status > 299) {
        if (m_draining && attempt->bytesAvailable() == 0)
            completeAttempt();
        return taken; // the body of an error answer is not the resource
    }
    if (m_skip > 0) {
        const qint64 dropped = qMin<qint64>(m_skip, data.size());
        data.remove(0, dropped);
        m_skip -= dropped;
    }
    if (data.isEmpty())
        return taken;
    m_delivered += data.size();
    const QPointer<ManagedReply> self(this);
    if (m_sink) {
        QMetaObject::invokeMethod(m_sink, "write", Qt::QueuedConnection, Q_ARG(QByteArray, data));
    } else {
        m_buffer.append(data);
        Q_EMIT readyRead();
    }
    if (self)
        Q_EMIT downloadProgress(m_delivered, m_total);
    if (self && m_draining && attempt->bytesAvailable() == 0)
        completeAttempt();
    return taken;
}

void ManagedReply::onTimeout()
{
    if (!m_current)
        return;
    if (room() == 0) {
        m_idle.start(m_settings.timeoutMs); // held back for a reader that has not made room: not the server's fault
        return;
    }
    TVL_LOG(tvl::Logger::Info) << "No data from" << url() << "for" << m_settings.timeoutMs << "ms";
    m_timedOut = true;
    m_current->abort();
}

bool ManagedReply::shouldRetry(const QNetworkReply* attempt, QNetworkReply::NetworkError error) const
{
    const auto operation = this->operation();
    if (operation != QNetworkAccessManager::GetOperation && operation != QNetworkAccessManager::HeadOperation)
        return false;
    if (m_attempt >= m_settings.attempts)
        return false;
    if (m_timedOut || isTransientError(error))
        return true;
    const int status = statusOf(attempt);
    return status == 429 || (status >= 500 && status <= 599);
}

int ManagedReply::pauseBeforeRetry(const QNetworkReply* attempt) const
{
    const QByteArray retryAfter = attempt->rawHeader("Retry-After").trimmed();
    if (!retryAfter.isEmpty()) {
        bool isNumber = false;
        const qint64 seconds = retryAfter.toLongLong(&isNumber);
        qint64 milliseconds = isNumber ? seconds * 1000 : -1;
        if (!isNumber) {
            const QDateTime when = QDateTime::fromString(QString::fromLatin1(retryAfter), Qt::RFC2822Date);
            if (when.isValid())
                milliseconds = QDateTime::currentDateTimeUtc().msecsTo(when);
        }
        if (milliseconds >= 0)
            return int(qMin<qint64>(milliseconds, m_settings.maximumPauseMs));
    }
    const qint64 pause = qint64(m_settings.firstPauseMs) << qMin(m_attempt - 1, 16);
    // A little jitter keeps many clients that failed together from coming back together.
    const double jitter = 0.8 + 0.4 * QRandomGenerator::global()->generateDouble();
    return int(qMin<double>(double(pause) * jitter, m_settings.maximumPauseMs));
}

void ManagedReply::onAttemptFinished()
{
    QNetworkReply* attempt = m_current;
    if (!attempt || sender() != attempt || m_done)
        return;
    m_idle.stop();
    const QPointer<ManagedReply> self(this);
    const QPointer<QNetworkReply> guard(attempt);
    if (!rateLimited())
        pull(room());
    if (!self || !guard || m_done || m_current != attempt)
        return; // the reader aborted, or the pull completed the attempt
    // What the attempt still holds is taken later: under a rate limit at the scheduler's pace,
    // and as its reader makes room when the reply is bounded.
    if (attempt->error() == QNetworkReply::NoError && attempt->bytesAvailable() > 0) {
        m_draining = true;
        return;
    }
    completeAttempt();
}

void ManagedReply::completeAttempt()
{
    QNetworkReply* attempt = m_current;
    m_draining = false;
    if (!attempt || m_done)
        return;
    attempt->disconnect(this);
    attempt->deleteLater();
    m_current = nullptr;

    const int status = statusOf(attempt);
    QNetworkReply::NetworkError error = m_timedOut ? QNetworkReply::TimeoutError : attempt->error();
    // A connection closed early can end an answer with a known length as if it were complete.
    const bool shortAnswer = error == QNetworkReply::NoError && operation() == QNetworkAccessManager::GetOperation
        && m_total >= 0 && m_delivered < m_total;
    if (shortAnswer)
        error = QNetworkReply::RemoteHostClosedError;
    if (error == QNetworkReply::NoError) {
        if (!m_haveMetaData) {
            m_haveMetaData = true;
            takeMetaData(attempt);
            Q_EMIT metaDataChanged();
        }
        if (m_sink) {
            if (m_scheduler)
                m_scheduler->release(this);
            QMetaObject::invokeMethod(m_sink, &FileSink::commit, Qt::QueuedConnection);
        } else {
            finishWith(QNetworkReply::NoError, QString());
        }
        return;
    }

    if (m_sink && status == 416 && m_delivered > 0) {
        // The part is as long as the resource or longer: judged afresh from its start.
        qint64 first = -1;
        qint64 total = -1;
        parseContentRange(attempt->rawHeader("Content-Range").replace("*", "0-0"), &first, &total);
        if (total == m_delivered) {
            if (m_scheduler)
                m_scheduler->release(this);
            QMetaObject::invokeMethod(m_sink, &FileSink::commit, Qt::QueuedConnection);
            return;
        }
        m_delivered = 0;
        m_validator.clear();
        m_sinkOpen = false;
        if (m_attempt < m_settings.attempts) {
            if (m_scheduler)
                m_scheduler->release(this);
            m_pause.start(0);
            return;
        }
    }

    if (shouldRetry(attempt, error)) {
        const int pause = pauseBeforeRetry(attempt);
        TVL_LOG(tvl::Logger::Info) << "Retrying" << url() << "in" << pause << "ms after"
                                   << (status ? QStringLiteral("HTTP %1").arg(status) : attempt->errorString())
                                   << QStringLiteral("(attempt %1 of %2)").arg(m_attempt + 1).arg(m_settings.attempts);
        if (m_scheduler)
            m_scheduler->release(this);
        m_pause.start(pause);
        return;
    }

    if (!m_haveMetaData) {
        m_haveMetaData = true;
        takeMetaData(attempt);
        Q_EMIT metaDataChanged();
    }
    if (m_sink) {
        // A transient failure keeps what was fetched for the next try; a refusal does not.
        const bool transient = m_timedOut || status == 429 || status >= 500 || isTransientError(error);
        if (transient)
            QMetaObject::invokeMethod(m_sink, &FileSink::keep, Qt::QueuedConnection);
        else
            QMetaObject::invokeMethod(m_sink, &FileSink::discard, Qt::QueuedConnection);
    }
    finishWith(error, m_timedOut ? tr("No data from %1 for %2 s").arg(url().toString()).arg(m_settings.timeoutMs / 1000)
                     : shortAnswer ? tr("%1 ended after %2 of %3 bytes").arg(url().toString()).arg(m_delivered).arg(m_total)
                                   : attempt->errorString());
}

void ManagedReply::finishWith(QNetworkReply::NetworkError error, const QString& text)
{
    if (m_done)
        return;
    m_done = true;
    m_idle.stop();
    m_pause.stop();
    if (m_scheduler)
        m_scheduler->release(this);
    const QPointer<ManagedReply> self(this);
    if (error != QNetworkReply::NoError) {
        setError(error, text);
        Q_EMIT errorOccurred(error);
    }
    if (!self)
        return;
    setFinished(true);
    Q_EMIT finished();
}
