#include "Fetcher_p.h"

#include "Transport.h"

#include <basix/Logger.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>
#include <QtNetwork/QNetworkReply>

#include <algorithm>

namespace tvl::vantor {

void JobContext::deliver(FetchOutcome outcome)
{
    QMutexLocker locker(&mutex);
    backlog += outcome.body.size();
    outcomes.push_back(std::move(outcome));
    wake.wakeAll();
}

void JobContext::releaseBacklog(qint64 bytes, Fetcher* fetcher)
{
    backlog -= bytes;
    if (backlogFull.exchange(false))
        fetcher->poke();
}

void JobContext::cancel()
{
    cancelled = true;
    QMutexLocker locker(&mutex);
    wake.wakeAll();
}

bool JobContext::next(FetchOutcome* outcome)
{
    QMutexLocker locker(&mutex);
    while (outcomes.empty() && !cancelled)
        wake.wait(&mutex);
    if (cancelled)
        return false;
    *outcome = std::move(outcomes.front());
    outcomes.pop_front();
    return true;
}

void JobContext::setStage(Progress::Stage value, qint64 total, int files)
{
    if (stageClock.isValid())
        TVL_LOG(tvl::Logger::Info) << "Stage" << stage.load() << "took" << stageClock.elapsed() << "ms," << bytesDone.load()
                                   << "bytes";
    stageClock.start();
    bytesDone = 0;
    filesDone = 0;
    bytesTotal = total;
    filesTotal = files;
    stage = value;
}

namespace {

bool isRetryable(QNetworkReply::NetworkError error, int status)
{
    if (status == 408 || status == 429 || status >= 500)
        return true;
    switch (error) {
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // a transfer time-out ends like this
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::ProxyConnectionClosedError:
    case QNetworkReply::ProxyTimeoutError:
    case QNetworkReply::UnknownProxyError:
    case QNetworkReply::InternalServerError:
    case QNetworkReply::ServiceUnavailableError:
    case QNetworkReply::UnknownServerError:
    case QNetworkReply::ProtocolFailure:
        return true;
    default:
        return false;
    }
}

} // namespace

Fetcher::Fetcher(Transport* transport, const Options& options, std::shared_ptr<JobContext> context, QObject* parent)
    : QObject(parent)
    , m_transport(transport)
    , m_options(options)
    , m_context(std::move(context))
{
    if (m_options.rateLimit > 0) {
        m_rateTimer.setInterval(20);
        connect(&m_rateTimer, &QTimer::timeout, this, &Fetcher::refill);
        m_rateClock.start();
    }
}

Fetcher::~Fetcher()
{
    abortAll();
}

void Fetcher::enqueue(const QList<FetchItem>& items)
{
    QMetaObject::invokeMethod(this, [this, items] { add(items); }, Qt::QueuedConnection);
}

void Fetcher::poke()
{
    QMetaObject::invokeMethod(this, [this] { pump(); }, Qt::QueuedConnection);
}

void Fetcher::stop()
{
    QMetaObject::invokeMethod(this, [this] { abortAll(); }, Qt::QueuedConnection);
}

QString Fetcher::partialPath(const FetchItem& item) const
{
    if (m_options.installDirectory.isEmpty())
        return QString();
    return QDir(m_options.installDirectory).filePath(QStringLiteral(".vantor/partial/") + QFileInfo(item.path).fileName());
}

void Fetcher::keepPartial(Transfer* transfer)
{
    // A cancelled operation (a pause) keeps the beginning of each transfer under way, so that the
    // next run asks only for the rest; repository files never change, so the rest still fits.
    const QString path = partialPath(transfer->item);
    QNetworkReply* reply = transfer->reply;
    if (path.isEmpty() || !m_context->cancelled)
        return;
    if (reply && reply->isOpen())
        transfer->incoming += reply->readAll();
    const int status = reply ? reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() : 0;
    const QByteArray prefix = status == 206 ? transfer->body + transfer->incoming
        : status == 200                    ? transfer->incoming
                                           : transfer->body;
    if (prefix.isEmpty() || prefix.size() >= transfer->item.maxBytes)
        return;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(prefix) == prefix.size())
        file.commit();
}

QByteArray Fetcher::takePartial(const FetchItem& item)
{
    // One look at the directory instead of one per transfer: most runs have nothing there.
    if (!m_partialsLooked) {
        m_partialsLooked = true;
        m_partialsExist = !m_options.installDirectory.isEmpty()
            && QFileInfo::exists(QDir(m_options.installDirectory).filePath(QStringLiteral(".vantor/partial")));
    }
    const QString path = m_partialsExist ? partialPath(item) : QString();
    if (path.isEmpty() || !QFileInfo::exists(path))
        return QByteArray();
    QFile file(path);
    QByteArray prefix;
    if (file.size() < item.maxBytes && file.open(QIODevice::ReadOnly))
        prefix = file.readAll();
    file.remove();
    return prefix;
}

void Fetcher::abortAll()
{
    m_waiting.clear();
    const auto transfers = m_active.values();
    m_active.clear();
    for (Transfer* transfer : transfers) {
        keepPartial(transfer);
        if (QNetworkReply* reply = transfer->reply) {
            reply->disconnect(this);
            reply->abort();
            reply->deleteLater();
        }
        delete transfer;
    }
    m_running = 0;
    m_rateTimer.stop();
}

void Fetcher::add(const QList<FetchItem>& items)
{
    m_waiting.insert(m_waiting.end(), items.cbegin(), items.cend());
    pump();
}

void Fetcher::pump()
{
    // Under a rate limit a transfer starts only while the budget is not overdrawn: chunks are
    // small, so pacing their starts paces the bytes.
    for (;;) {
        while (!m_context->cancelled && !m_waiting.empty() && m_running < inFlightLimit()
               && m_context->backlog < BacklogLimit && (m_options.rateLimit <= 0 || m_budget >= 0)) {
            auto* transfer = new Transfer{m_waiting.front(), {}, {}, 0, 0, {}};
            m_waiting.pop_front();
            transfer->body = takePartial(transfer->item);
            ++m_running;
            begin(transfer);
        }
        if (m_context->cancelled || m_waiting.empty() || m_context->backlog < BacklogLimit)
            break;
        // The worker wakes the fetcher when it consumed some; it may have done so just now.
        m_context->backlogFull = true;
        if (m_context->backlog >= BacklogLimit || !m_context->backlogFull.exchange(false))
            break;
    }
    if (m_options.rateLimit > 0 && (m_running > 0 || !m_waiting.empty()) && !m_rateTimer.isActive()) {
        m_rateClock.restart();
        m_rateTimer.start();
    }
}

int Fetcher::inFlightLimit() const
{
    // Over HTTP/2 the transfers are streams of one connection: many cost the server and the
    // client little, and more of them in flight keep a distant server's connection full.
    const bool http2 = m_http2Seen || (m_options.http2PriorKnowledge && m_options.repository.scheme() == QLatin1String("http"));
    return std::max(1, m_options.connections) * (http2 ? Http2StreamsPerConnection : 1);
}

void Fetcher::begin(Transfer* transfer)
{
    if (m_context->cancelled) {
        delete transfer;
        return;
    }
    QString base = m_options.repository.toString();
    if (!base.endsWith(QLatin1Char('/')))
        base += QLatin1Char('/');
    QNetworkRequest request(QUrl(base + transfer->item.path));
    request.setTransferTimeout(m_options.timeoutMs);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    if (m_options.http2PriorKnowledge && request.url().scheme() == QLatin1String("http"))
        request.setAttribute(QNetworkRequest::Http2DirectAttribute, true);
    if (!transfer->body.isEmpty())
        request.setRawHeader("Range", "bytes=" + QByteArray::number(transfer->body.size()) + '-');
    if (!m_transport) {
        fail(transfer, ErrorCode::InvalidArguments, QStringLiteral("This operation fetches nothing."));
        return;
    }
    QNetworkReply* reply = m_transport->get(request);
    // The reply holds at most one byte more than the item may have: a server that sends more is
    // found out at once and throttled by TCP meanwhile, instead of filling the memory.
    reply->setReadBufferSize(transfer->item.maxBytes - transfer->body.size() + 1);
    transfer->reply = reply;
    transfer->attempt++;
    transfer->incoming.clear();
    transfer->unread = 0;
    m_active.insert(reply, transfer);
    connect(reply, &QNetworkReply::readyRead, this, [this, transfer] { readFrom(transfer, false); });
    connect(reply, &QNetworkReply::finished, this, [this, transfer] { onFinished(transfer); });
}

void Fetcher::readFrom(Transfer* transfer, bool finished)
{
    QNetworkReply* reply = transfer->reply;
    if (!reply || !reply->isOpen())
        return;
    // Without a rate limit the body stays in the reply until it has finished and is taken in
    // one piece; until then only its size is looked at.
    const bool take = finished || m_options.rateLimit > 0;
    const qint64 available = reply->bytesAvailable();
    const qint64 arrived = available - transfer->unread;
    transfer->unread = take ? 0 : available;
    if (arrived > 0) {
        if (m_options.rateLimit > 0)
            m_budget -= arrived;
        m_context->bytesDownloaded += arrived;
        if (m_context->stage == Progress::Downloading)
            m_context->bytesDone += arrived;
    }
    if (transfer->body.size() + transfer->incoming.size() + available > transfer->item.maxBytes) {
        reply->disconnect(this);
        reply->abort();
        fail(transfer, ErrorCode::HashMismatch,
             QStringLiteral("The repository sent more for %1 than its manifest allows: it is damaged or was "
                            "tampered with. Nothing was changed.").arg(transfer->item.path));
        return;
    }
    if (take && available > 0)
        transfer->incoming += reply->read(available);
}

void Fetcher::refill()
{
    const qint64 elapsed = m_rateClock.restart();
    m_budget = std::min(m_budget + m_options.rateLimit * elapsed / 1000, m_options.rateLimit / 10);
    pump();
    if (m_running == 0 && m_waiting.empty())
        m_rateTimer.stop();
}

void Fetcher::onFinished(Transfer* transfer)
{
    QNetworkReply* reply = transfer->reply;
    if (!reply || !m_active.contains(reply))
        return;
    readFrom(transfer, true);
    if (!m_active.contains(reply))
        return; // refused while reading
    m_active.remove(reply);
    reply->deleteLater();
    if (m_context->cancelled) {
        keepPartial(transfer);
        delete transfer;
        return;
    }
    transfer->reply = nullptr;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QByteArray incoming = std::exchange(transfer->incoming, {});
    const bool partial = status == 206;
    const bool received = status == 200 || partial || (status == 0 && reply->url().isLocalFile());
    if (received) {
        if (partial) {
            const QByteArray range = reply->rawHeader("Content-Range");
            const qint64 start = range.startsWith("bytes ") ? range.mid(6, range.indexOf('-') - 6).toLongLong() : -1;
            if (start == transfer->body.size())
                transfer->body += incoming;
            else
                transfer->body.clear(); // an answer to some other range: start over
        } else {
            transfer->body = incoming;
        }
    }
    const QNetworkReply::NetworkError error = reply->error();
    const bool mismatchedRange = partial && transfer->body.isEmpty();
    if (error == QNetworkReply::NoError && received && !mismatchedRange) {
        m_http2Seen = m_http2Seen || reply->attribute(QNetworkRequest::Http2WasUsedAttribute).toBool();
        m_context->deliver({FetchOutcome::Fetched, transfer->item.id, std::move(transfer->body), ErrorCode::NoError, {}});
        delete transfer;
        --m_running;
        pump();
        return;
    }
    if (transfer->attempt <= m_options.retries && (mismatchedRange || isRetryable(error, status))) {
        qint64 delay = std::min<qint64>(250 << std::min(transfer->attempt - 1, 5), 8000);
        bool isNumber = false;
        const qint64 retryAfter = reply->rawHeader("Retry-After").trimmed().toLongLong(&isNumber);
        if (isNumber && retryAfter >= 0)
            delay = std::min<qint64>(retryAfter * 1000, 60'000);
        QTimer::singleShot(int(delay), this, [this, transfer] {
            if (m_context->cancelled)
                delete transfer;
            else
                begin(transfer);
        });
        return;
    }
    const QString url = reply->url().toString();
    if (status >= 400)
        fail(transfer, ErrorCode::ServerError,
             QStringLiteral("The repository answered %1 (%2) for %3. Check the repository URL, project and "
                            "channel, or try again later.")
                 .arg(QString::number(status), reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString(), url));
    else
        fail(transfer, ErrorCode::NetworkError, networkFailure(url, reply));
}

QString Fetcher::networkFailure(const QString& url, QNetworkReply* reply) const
{
    // Qt ends a transfer that timed out as "canceled", which this fetcher never does otherwise.
    const QString reason = reply->error() == QNetworkReply::OperationCanceledError
        ? QStringLiteral("nothing came for %1 s").arg(m_options.timeoutMs / 1000.0)
        : reply->errorString();
    QString message = QStringLiteral("Cannot fetch %1: %2. ").arg(url, reason);
    if (m_options.http2PriorKnowledge && reply->url().scheme() == QLatin1String("http"))
        message += QStringLiteral("HTTP/2 without TLS was asked for: the server may not speak it. ");
    return message + QStringLiteral("Check the network connection and try again; what was fetched so far is kept.");
}

void Fetcher::fail(Transfer* transfer, ErrorCode code, const QString& message)
{
    if (transfer->reply) {
        m_active.remove(transfer->reply);
        transfer->reply->deleteLater();
    }
    m_context->deliver({FetchOutcome::Fetched, transfer->item.id, {}, code, message});
    delete transfer;
    --m_running;
    pump();
}

} // namespace tvl::vantor
