#include "Operation_p.h"

#include "Crypto_p.h"
#include "Fetcher_p.h"
#include "Job_p.h"
#include "NetworkTransport.h"

namespace tvl::vantor {

OperationPrivate::OperationPrivate(Operation* owner, Operation::Kind operationKind, const Options& operationOptions)
    : q(owner)
    , kind(operationKind)
    , options(operationOptions)
{
    // Four reports a second at least, while the operation runs.
    timer.setInterval(200);
    QObject::connect(&timer, &QTimer::timeout, q, [this] { reportProgress(); });
}

void OperationPrivate::reportProgress()
{
    Progress progress;
    progress.project = options.project;
    progress.stage = Progress::Stage(context->stage.load());
    progress.bytesDone = context->bytesDone;
    progress.bytesTotal = context->bytesTotal;
    progress.filesDone = context->filesDone;
    progress.filesTotal = context->filesTotal;
    const qint64 now = clock.elapsed();
    if (progress.stage != rateStage || progress.bytesDone < rateBytes) {
        rateStage = progress.stage;
        rateBytes = progress.bytesDone;
        rateTime = now;
        rate = 0.0;
    } else if (now - rateTime >= 200) {
        const double current = double(progress.bytesDone - rateBytes) * 1000.0 / double(now - rateTime);
        rate = rate <= 0.0 ? current : 0.7 * rate + 0.3 * current;
        rateBytes = progress.bytesDone;
        rateTime = now;
    }
    progress.bytesPerSecond = rate;
    if (rate > 0.0 && progress.bytesTotal > 0)
        progress.secondsLeft = qint64(double(std::max<qint64>(0, progress.bytesTotal - progress.bytesDone)) / rate + 0.5);
    last = progress;
    Q_EMIT q->progress(progress);
}

void OperationPrivate::finish(const UpdateResultPtr& operationResult)
{
    timer.stop();
    thread->wait();
    delete thread;
    thread = nullptr;
    delete fetcher;
    fetcher = nullptr;
    result = operationResult;
    running = false;
    Progress progress = last;
    progress.project = options.project;
    progress.stage = Progress::Idle;
    progress.secondsLeft = 0;
    last = progress;
    Q_EMIT q->progress(progress);
    Q_EMIT q->finished(result);
}

Operation::Operation(Kind kind, const Options& options, QObject* parent)
    : QObject(parent)
    , d(new OperationPrivate(this, kind, options))
{
    registerMetaTypes();
    initializeCrypto();
}

Operation::~Operation()
{
    if (d->thread) {
        d->context->cancel();
        if (d->fetcher)
            d->fetcher->abortAll();
        d->thread->wait();
        delete d->thread;
    }
    delete d->fetcher;
}

Operation::Kind Operation::kind() const
{
    return d->kind;
}

Options Operation::options() const
{
    return d->options;
}

bool Operation::isRunning() const
{
    return d->running;
}

bool Operation::isFinished() const
{
    return !d->result.isNull();
}

UpdateResultPtr Operation::result() const
{
    return d->result;
}

Progress Operation::lastProgress() const
{
    return d->last;
}

QString Operation::kindName(Kind kind)
{
    switch (kind) {
    case Check: return QStringLiteral("check");
    case Install: return QStringLiteral("install");
    case Update: return QStringLiteral("update");
    case Verify: return QStringLiteral("verify");
    case Repair: return QStringLiteral("repair");
    case Rollback: return QStringLiteral("rollback");
    case Uninstall: return QStringLiteral("uninstall");
    case Status: return QStringLiteral("status");
    case SetChannel: return QStringLiteral("set-channel");
    case Publish: return QStringLiteral("publish");
    }
    return {};
}

void Operation::start()
{
    if (d->running || d->result)
        return;
    d->running = true;
    d->context = std::make_shared<JobContext>();
    Transport* transport = d->options.transport;
    // Verifying, publishing and the local records need no network: no access manager for them.
    const bool local = d->kind == Verify || d->kind == Publish || d->kind == Status || d->kind == SetChannel || d->kind == Uninstall;
    if (!transport && !local) {
        if (!d->ownTransport)
            d->ownTransport = new NetworkTransport(this);
        transport = d->ownTransport;
    }
    d->fetcher = new Fetcher(transport, d->options, d->context);
    auto job = std::make_shared<Job>(d->kind, d->options, d->context, d->fetcher);
    d->thread = QThread::create([this, job] {
        const UpdateResultPtr result = job->run();
        QMetaObject::invokeMethod(this, [this, result] { d->finish(result); }, Qt::QueuedConnection);
    });
    d->thread->setObjectName(QStringLiteral("vantor-") + kindName(d->kind));
    d->clock.start();
    d->thread->start(QThread::LowPriority);
    d->timer.start();
    d->reportProgress();
}

void Operation::cancel()
{
    if (!d->running)
        return;
    d->context->cancel();
    d->fetcher->abortAll();
}

} // namespace tvl::vantor
