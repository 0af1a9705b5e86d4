#include "Logger.h"

#include "AbstractLoggerOutput.h"
#include "StandardErrorWriter_p.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QHash>
#include <QtCore/QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <cerrno>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

/*
 * How records travel
 * ------------------
 * log() builds an Entry on the caller's side with only cheap work (string copies are reference
 * counts, the time is msecs since the epoch, thread name and id come from a per-thread cache,
 * TVL_LOG's file and function stay pointers to static text) and appends it to `queue` under
 * `queueMutex`. The output thread swaps the whole vector out and writes the batch without
 * holding the queue lock. Callers wake it only when the queue goes from empty to non-empty, when
 * it reaches BatchSize, or for a control entry; once awake it lets a burst gather for up to
 * GatherTime unless somebody is waiting, so a busy caller does not pay a wake-up and a contended
 * lock for every record.
 *
 * addOutput, removeOutput and flush are entries in the same queue, so they are ordered with
 * the records exactly as the calls were. Callers that must wait (removeOutput, flush, a Fatal
 * record) take a ticket and sleep until the output side has passed it.
 *
 * Everything that calls outputs holds `outputMutex` and has t_callingOutputs set: the output
 * thread while it runs, and callers that write synchronously (after the exit handler, in a
 * forked child, when no thread could be started). That gives the one-call-at-a-time promise in
 * every mode.
 *
 * Calls made from inside an output (t_callingOutputs set on this thread):
 *  - log() writes the record straight to standard error and nowhere else. Queuing it would let
 *    an output that logs about its own writing feed itself forever, and in synchronous mode the
 *    thread already holds outputMutex.
 *  - flush() returns at once. The output side cannot wait for itself, and flushing the outputs
 *    re-entrantly would call the current output while it is still busy. What was queued is
 *    written once the current call returns.
 *  - removeOutput() queues the removal and returns at once; the output is removed in order,
 *    after the current batch's earlier records, and an owned output is deleted by the output
 *    side. addOutput() needs no waiting anyway.
 *
 * Exit: instance() registers an atexit handler. It asks the thread to stop; the thread takes
 * what is queued, switches the logger to synchronous mode under both locks (so nothing can slip
 * between the last batch and the switch, and callers' own writes come after that batch), writes
 * the batch and ends; the handler joins it and removes and deletes the owned outputs. Records
 * logged later, from other exit handlers or threads still running, are written by their
 * callers to the outputs still registered. The Logger itself is never deleted: code running
 * after the handler can still use it.
 *
 * Fork: the child has no output thread. The atfork handlers keep the queue consistent; the
 * child drops the parent's pending records (the parent writes them), keeps pending additions
 * and removals, and runs in synchronous mode. Its exit handler does nothing, so a child that
 * calls exit() after a failed exec neither waits for a thread that does not exist nor writes
 * the parent's records a second time. Cached thread ids are refreshed in the child.
 */

namespace tvl {

namespace {

std::atomic<int> s_minimumLevel{Logger::Trace};
// Changes in a forked child, where every cached thread id is stale.
std::atomic<unsigned> s_forkGeneration{1};

// Trivially destructible on purpose: a thread may log from the destructor of some other
// thread_local object after this one would otherwise have been destroyed.
struct ThreadIdentity
{
    unsigned generation;
    int id;
    bool mainThread;
    char systemName[16];
};

thread_local ThreadIdentity t_identity;
// Set while this thread calls outputs (always on the output thread).
thread_local bool t_callingOutputs = false;

const ThreadIdentity& currentIdentity()
{
    ThreadIdentity& identity = t_identity;
    const unsigned generation = s_forkGeneration.load(std::memory_order_relaxed);
    if (identity.generation != generation) {
        identity.generation = generation;
        identity.id = int(::gettid());
        identity.mainThread = identity.id == int(::getpid());
        std::memset(identity.systemName, 0, sizeof identity.systemName);
        ::prctl(PR_GET_NAME, identity.systemName);
        identity.systemName[sizeof identity.systemName - 1] = '\0';
    }
    return identity;
}

// Read on every record rather than cached, so that a QThread named after it started is shown
// with its name.
QString currentThreadObjectName(const ThreadIdentity& identity)
{
    // QThread::currentThread() adopts threads that Qt has not seen yet, and before the
    // application object exists the first thread Qt adopts becomes its main thread. Only the
    // real main thread may ask that early.
    if (!identity.mainThread && !QCoreApplication::instance())
        return QString();
    return QThread::currentThread()->objectName();
}

qint64 currentMSecsSinceEpoch()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

struct Entry
{
    enum Kind : quint8 { Record, AddOutput, RemoveOutput, Flush };

    QString message;
    QString file;
    QString function;
    QString threadObjectName;
    QLatin1String staticFile;
    QLatin1String staticFunction;
    qint64 msecs = 0;
    quint64 ticket = 0;
    AbstractLoggerOutput* output = nullptr;
    int line = 0;
    int threadId = 0;
    Kind kind = Record;
    quint8 level = 0;
    bool staticStrings = false;
    // AddOutput: the logger owns the output. RemoveOutput: the output side deletes it.
    bool owned = false;
    char threadName[16] = {};
};

// The output thread takes the queue at this size at the latest, or after GatherTime.
constexpr size_t BatchSize = 1024;
constexpr std::chrono::milliseconds GatherTime(2);

struct Registration
{
    AbstractLoggerOutput* output;
    bool owned;
};


} // namespace

class LoggerPrivate
{
public:
    enum Mode {
        Idle,       // no output was ever added: no thread yet
        Queued,     // the output thread writes
        Synchronous // callers write (after exit, in a forked child, without a thread)
    };

    static void atExit();
    static void forkPrepare();
    static void forkParent();
    static void forkChild();

    bool accepts(int level) const;
    void fillRecord(Entry& entry, const QString& message, int line, int level) const;
    void submitRecord(Entry&& entry);

    void addOutput(AbstractLoggerOutput* output, bool owned);
    void removeOutput(AbstractLoggerOutput* output);
    void flush();
    void shutDown();

    static void writeToStandardError(const Entry& entry);

    // Queue side; every function here takes or expects queueMutex.
    void enqueue(std::unique_lock<std::mutex>& lock, Entry&& entry);
    void startThreadLocked();
    void waitFor(quint64 ticket);
    void complete(quint64 ticket);

    // Output side; needs outputMutex and t_callingOutputs.
    void run();
    void drainHere();
    void processBatch(std::vector<Entry>& batch);
    void writeRecord(const Entry& entry);
    void flushOutputs();
    QString latin1String(QLatin1String text);
    QString threadName(const Entry& entry);
    const QDateTime& timeOf(qint64 msecs);

    static Logger* s_logger;

    mutable std::mutex queueMutex;
    std::condition_variable queueCondition;
    std::condition_variable doneCondition;
    std::vector<Entry> queue;
    QList<Registration> registered; // as of the end of the queue
    std::atomic<int> outputCount{0};
    quint64 lastTicket = 0;
    quint64 doneTicket = 0;
    Mode mode = Idle;
    bool stopRequested = false;
    bool hurry = false; // a control entry is queued: somebody may be waiting
    bool forkedChild = false;
    std::thread* thread = nullptr;
    std::thread* abandonedThread = nullptr; // the parent's, in a forked child

    std::mutex outputMutex;
    std::vector<Registration> active;
    std::vector<Entry> batch;       // for synchronous draining
    std::vector<Entry> threadBatch; // the output thread's; not on its stack, so that a forked
                                    // child (which has no such thread) can still reach it
    bool unflushed = false;
    QHash<const char*, QString> latin1Cache;
    struct ThreadName
    {
        char systemName[16];
        QString name;
    };
    QHash<int, ThreadName> threadNames;
    qint64 lastMSecs = 0;
    QDateTime lastTime;
};

Logger* LoggerPrivate::s_logger = nullptr;

bool LoggerPrivate::accepts(int level) const
{
    if (level < s_minimumLevel.load(std::memory_order_relaxed))
        return false;
    return outputCount.load(std::memory_order_relaxed) > 0 || t_callingOutputs
        || level >= Logger::Fatal;
}

void LoggerPrivate::fillRecord(Entry& entry, const QString& message, int line, int level) const
{
    const ThreadIdentity& identity = currentIdentity();
    entry.message = message;
    entry.msecs = currentMSecsSinceEpoch();
    entry.threadObjectName = currentThreadObjectName(identity);
    entry.threadId = identity.id;
    std::memcpy(entry.threadName, identity.systemName, sizeof entry.threadName);
    entry.line = line;
    entry.level = quint8(level);
}

void LoggerPrivate::submitRecord(Entry&& entry)
{
    const bool fatal = entry.level >= Logger::Fatal;
    if (t_callingOutputs) {
        writeToStandardError(entry);
        return;
    }
    std::unique_lock<std::mutex> lock(queueMutex);
    if (registered.isEmpty()) {
        lock.unlock();
        // A fatal record explains why the process is about to die: never lose it silently.
        if (fatal)
            writeToStandardError(entry);
        return;
    }
    enqueue(lock, std::move(entry));
    if (fatal)
        flush();
}

void LoggerPrivate::writeToStandardError(const Entry& entry)
{
    const QString file = entry.staticStrings ? QString(entry.staticFile) : entry.file;
    const QString function = entry.staticStrings ? QString(entry.staticFunction) : entry.function;
    const QString threadName = entry.threadObjectName.isEmpty()
        ? QString::fromUtf8(entry.threadName)
        : entry.threadObjectName;
    QString line = AbstractLoggerOutput::formatRecord(
        entry.message, file, function, threadName, entry.line, Logger::Level(entry.level),
        QDateTime::fromMSecsSinceEpoch(entry.msecs), entry.threadId);
    line += QLatin1Char('\n');
    detail::writeToStandardError(line.toUtf8());
}

void LoggerPrivate::enqueue(std::unique_lock<std::mutex>& lock, Entry&& entry)
{
    const bool controlEntry = entry.kind != Entry::Record;
    queue.push_back(std::move(entry));
    const size_t size = queue.size();
    hurry = hurry || controlEntry;
    const Mode current = mode;
    lock.unlock();
    if (current == Queued) {
        // The thread sleeps on an empty queue, or gathers a batch (see run()).
        if (size == 1 || controlEntry || size == BatchSize)
            queueCondition.notify_one();
    } else {
        drainHere();
    }
}

void LoggerPrivate::startThreadLocked()
{
    mode = Queued;
    try {
        thread = new std::thread([this] { run(); });
    } catch (...) {
        // No thread to be had: callers write their records themselves.
        thread = nullptr;
        mode = Synchronous;
    }
}

void LoggerPrivate::waitFor(quint64 ticket)
{
    std::unique_lock<std::mutex> lock(queueMutex);
    doneCondition.wait(lock, [&] { return doneTicket >= ticket; });
}

void LoggerPrivate::complete(quint64 ticket)
{
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        doneTicket = std::max(doneTicket, ticket);
    }
    doneCondition.notify_all();
}

void LoggerPrivate::addOutput(AbstractLoggerOutput* output, bool owned)
{
    if (!output)
        return;
    std::unique_lock<std::mutex> lock(queueMutex);
    for (const Registration& registration : std::as_const(registered)) {
        if (registration.output == output)
            return;
    }
    registered.append(Registration{output, owned});
    outputCount.store(int(registered.size()), std::memory_order_relaxed);
    if (mode == Idle)
        startThreadLocked();
    Entry entry;
    entry.kind = Entry::AddOutput;
    entry.output = output;
    entry.owned = owned;
    enqueue(lock, std::move(entry));
}

void LoggerPrivate::removeOutput(AbstractLoggerOutput* output)
{
    if (!output)
        return;
    std::unique_lock<std::mutex> lock(queueMutex);
    const auto found = std::find_if(registered.begin(), registered.end(),
                                    [&](const Registration& r) { return r.output == output; });
    if (found == registered.end())
        return;
    const bool owned = found->owned;
    registered.erase(found);
    outputCount.store(int(registered.size()), std::memory_order_relaxed);

    const bool waitHere = !t_callingOutputs;
    Entry entry;
    entry.kind = Entry::RemoveOutput;
    entry.output = output;
    entry.owned = owned && !waitHere;
    entry.ticket = ++lastTicket;
    const quint64 ticket = entry.ticket;
    enqueue(lock, std::move(entry));
    if (!waitHere)
        return;
    waitFor(ticket);
    if (owned)
        delete output;
}

void LoggerPrivate::flush()
{
    if (t_callingOutputs)
        return;
    std::unique_lock<std::mutex> lock(queueMutex);
    if (mode != Queued) {
        // Every caller writes its own records here, but another thread may still be writing
        // some that were logged before this call: wait for it.
        lock.unlock();
        drainHere();
        return;
    }
    Entry entry;
    entry.kind = Entry::Flush;
    entry.ticket = ++lastTicket;
    const quint64 ticket = entry.ticket;
    enqueue(lock, std::move(entry));
    waitFor(ticket);
}

void LoggerPrivate::run()
{
    t_callingOutputs = true;
    ::pthread_setname_np(::pthread_self(), "tvl-logger");
    std::vector<Entry>& work = threadBatch;
    for (bool stopping = false; !stopping;) {
        {
            std::unique_lock<std::mutex> lock(queueMutex);
            queueCondition.wait(lock, [this] { return !queue.empty() || stopRequested; });
            if (!hurry && !stopRequested && queue.size() < BatchSize) {
                queueCondition.wait_for(lock, GatherTime, [this] {
                    return hurry || stopRequested || queue.size() >= BatchSize;
                });
            }
            hurry = false;
            work.swap(queue);
            stopping = stopRequested;
        }
        std::lock_guard<std::mutex> outputLock(outputMutex);
        if (stopping) {
            // The last batch. From now on callers write their own records, which takes
            // outputMutex: switching while holding it puts their records after this batch, and
            // a thread that keeps logging cannot hold the exit up by never letting the queue
            // run empty.
            std::lock_guard<std::mutex> lock(queueMutex);
            mode = Synchronous;
            std::move(queue.begin(), queue.end(), std::back_inserter(work));
            queue.clear();
        }
        processBatch(work);
        // Keep the capacity for the next batch, unless one burst made it huge.
        const bool oversized = work.capacity() > 65536 && work.size() < 4096;
        work.clear();
        if (oversized)
            std::vector<Entry>().swap(work);
    }
}

void LoggerPrivate::drainHere()
{
    // Inside an output the drain loop further up this thread's stack, or the output thread,
    // picks the entry up.
    if (t_callingOutputs)
        return;
    std::lock_guard<std::mutex> outputLock(outputMutex);
    t_callingOutputs = true;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(queueMutex);
            if (queue.empty())
                break;
            batch.swap(queue);
        }
        processBatch(batch);
        batch.clear();
    }
    t_callingOutputs = false;
}

void LoggerPrivate::processBatch(std::vector<Entry>& entries)
{
    for (Entry& entry : entries) {
        switch (entry.kind) {
        case Entry::Record:
            writeRecord(entry);
            break;
        case Entry::AddOutput:
            try {
                entry.output->writeLogHeader();
            } catch (...) {
            }
            active.push_back(Registration{entry.output, entry.owned});
            break;
        case Entry::RemoveOutput: {
            const auto found = std::find_if(active.begin(), active.end(), [&](const Registration& r) {
                return r.output == entry.output;
            });
            if (found != active.end()) {
                active.erase(found);
                try {
                    entry.output->flush();
                    if (entry.owned)
                        delete entry.output;
                } catch (...) {
                }
            }
            complete(entry.ticket);
            break;
        }
        case Entry::Flush:
            flushOutputs();
            complete(entry.ticket);
            break;
        }
    }
    if (unflushed)
        flushOutputs();
}

void LoggerPrivate::writeRecord(const Entry& entry)
{
    if (active.empty())
        return;
    const QString file = entry.staticStrings ? latin1String(entry.staticFile) : entry.file;
    const QString function =
        entry.staticStrings ? latin1String(entry.staticFunction) : entry.function;
    const QString name = threadName(entry);
    const QDateTime& time = timeOf(entry.msecs);
    const auto level = Logger::Level(entry.level);
    for (const Registration& registration : active) {
        try {
            registration.output->write(entry.message, file, function, name, entry.line, level,
                                       time, entry.threadId);
        } catch (...) {
        }
    }
    unflushed = true;
}

void LoggerPrivate::flushOutputs()
{
    for (const Registration& registration : active) {
        try {
            registration.output->flush();
        } catch (...) {
        }
    }
    unflushed = false;
}

// TVL_LOG's strings are static, so the same pointers come back again and again. The content is
// compared too: a plugin unloaded and another loaded may reuse an address for other text.
QString LoggerPrivate::latin1String(QLatin1String text)
{
    if (!text.data())
        return QString();
    auto found = latin1Cache.find(text.data());
    if (found != latin1Cache.end() && *found == text)
        return *found;
    if (latin1Cache.size() > 4096)
        latin1Cache.clear();
    return *latin1Cache.insert(text.data(), QString(text));
}

QString LoggerPrivate::threadName(const Entry& entry)
{
    if (!entry.threadObjectName.isEmpty())
        return entry.threadObjectName;
    auto found = threadNames.find(entry.threadId);
    if (found != threadNames.end()
        && std::memcmp(found->systemName, entry.threadName, sizeof entry.threadName) == 0) {
        return found->name;
    }
    if (threadNames.size() > 1024)
        threadNames.clear();
    ThreadName name;
    std::memcpy(name.systemName, entry.threadName, sizeof name.systemName);
    name.name = QString::fromUtf8(entry.threadName);
    return threadNames.insert(entry.threadId, name)->name;
}

// Converting to local time is by far the dearest part of a record; busy loggers put many
// records into the same millisecond.
const QDateTime& LoggerPrivate::timeOf(qint64 msecs)
{
    if (msecs != lastMSecs || !lastTime.isValid()) {
        lastMSecs = msecs;
        lastTime = QDateTime::fromMSecsSinceEpoch(msecs);
    }
    return lastTime;
}

void LoggerPrivate::shutDown()
{
    std::unique_lock<std::mutex> lock(queueMutex);
    if (forkedChild)
        return;
    stopRequested = true;
    std::thread* running = thread;
    if (!running)
        mode = Synchronous;
    lock.unlock();

    if (running) {
        if (running->get_id() == std::this_thread::get_id()) {
            // exit() from inside an output: the thread cannot wait for itself. The rest of its
            // batch is lost; whoever logs later writes synchronously.
            lock.lock();
            mode = Synchronous;
            return;
        }
        queueCondition.notify_one();
        running->join();
        delete running;
        lock.lock();
        thread = nullptr;
        lock.unlock();
    }

    QList<AbstractLoggerOutput*> owned;
    lock.lock();
    for (const Registration& registration : std::as_const(registered)) {
        if (registration.owned)
            owned.append(registration.output);
    }
    lock.unlock();
    for (AbstractLoggerOutput* output : std::as_const(owned))
        removeOutput(output);
}

void LoggerPrivate::atExit()
{
    s_logger->d->shutDown();
}

void LoggerPrivate::forkPrepare()
{
    s_logger->d->queueMutex.lock();
}

void LoggerPrivate::forkParent()
{
    s_logger->d->queueMutex.unlock();
}

void LoggerPrivate::forkChild()
{
    LoggerPrivate* d = s_logger->d;
    s_forkGeneration.fetch_add(1, std::memory_order_relaxed);
    d->forkedChild = true;
    d->abandonedThread = d->thread;
    d->thread = nullptr;
    // Also when no thread was started yet: the child's exit handler does nothing, so a thread
    // started here would take its last records with it.
    d->mode = Synchronous;
    // The thread that held it does not exist here. Whatever an output was doing at the moment
    // of the fork is the child's to live with.
    new (&d->outputMutex) std::mutex;
    d->queue.erase(std::remove_if(d->queue.begin(), d->queue.end(),
                                  [](const Entry& entry) {
                                      return entry.kind == Entry::Record
                                          || entry.kind == Entry::Flush;
                                  }),
                   d->queue.end());
    d->doneTicket = d->lastTicket;
    d->queueMutex.unlock();
}

// --- Logger -----------------------------------------------------------------------------------

Logger::Logger()
    : d(new LoggerPrivate)
{
}

Logger::~Logger()
{
    delete d;
}

Logger* Logger::instance()
{
    // Never deleted: exit handlers and threads that outlive main() may still log.
    static Logger* const logger = [] {
        auto* created = new Logger;
        LoggerPrivate::s_logger = created;
        std::atexit(&LoggerPrivate::atExit);
        ::pthread_atfork(&LoggerPrivate::forkPrepare, &LoggerPrivate::forkParent,
                         &LoggerPrivate::forkChild);
        return created;
    }();
    return logger;
}

void Logger::log(const QString& message, const QString& file, const QString& function, int line,
                 Level level)
{
    if (!d->accepts(level))
        return;
    Entry entry;
    d->fillRecord(entry, message, line, level);
    entry.file = file;
    entry.function = function;
    d->submitRecord(std::move(entry));
}

void Logger::log(const QString& message, const QString& file, const QString& function, int line,
                 int level)
{
    log(message, file, function, line, Level(std::clamp(level, int(Trace), int(Fatal))));
}

void Logger::log(const QString& message, QLatin1String file, QLatin1String function, int line,
                 Level level)
{
    if (!d->accepts(level))
        return;
    Entry entry;
    d->fillRecord(entry, message, line, level);
    entry.staticFile = file;
    entry.staticFunction = function;
    entry.staticStrings = true;
    d->submitRecord(std::move(entry));
}

void Logger::setMinimumLevel(Level level)
{
    s_minimumLevel.store(std::clamp(int(level), int(Trace), int(Fatal)),
                         std::memory_order_relaxed);
}

Logger::Level Logger::minimumLevel() const
{
    return Level(s_minimumLevel.load(std::memory_order_relaxed));
}

bool Logger::isEnabled(Level level)
{
    return level >= s_minimumLevel.load(std::memory_order_relaxed);
}

void Logger::addOutput(AbstractLoggerOutput* output, Ownership ownership)
{
    d->addOutput(output, ownership == TakeOwnership);
}

void Logger::removeOutput(AbstractLoggerOutput* output)
{
    d->removeOutput(output);
}

QList<AbstractLoggerOutput*> Logger::outputs() const
{
    std::lock_guard<std::mutex> lock(d->queueMutex);
    QList<AbstractLoggerOutput*> result;
    result.reserve(d->registered.size());
    for (const Registration& registration : std::as_const(d->registered))
        result.append(registration.output);
    return result;
}

void Logger::flush()
{
    d->flush();
}

QString Logger::levelName(int level)
{
    static const QLatin1String names[] = {
        QLatin1String("Trace"),   QLatin1String("Debug"), QLatin1String("Info"),
        QLatin1String("Notice"),  QLatin1String("Warning"), QLatin1String("Error"),
        QLatin1String("Fatal"),
    };
    if (level < Trace || level > Fatal)
        return QString::number(level);
    return names[level];
}

// --- Qt messages ------------------------------------------------------------------------------

namespace {

std::mutex s_routeMutex;
bool s_routing = false;
QtMessageHandler s_previousHandler = nullptr;

void routeQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    Logger::Level level = Logger::Debug;
    switch (type) {
    case QtDebugMsg:
        level = Logger::Debug;
        break;
    case QtInfoMsg:
        level = Logger::Info;
        break;
    case QtWarningMsg:
        level = Logger::Warning;
        break;
    case QtCriticalMsg:
        level = Logger::Error;
        break;
    case QtFatalMsg:
        level = Logger::Fatal; // flushed before Qt aborts
        break;
    }
    if (!Logger::isEnabled(level))
        return;
    const QString file = context.file && *context.file
        ? QString::fromUtf8(context.file)
        : QString::fromLatin1(context.category ? context.category : "");
    const QString function = context.function ? QString::fromUtf8(context.function) : QString();
    Logger::instance()->log(message, file, function, context.line, level);
}

} // namespace

void Logger::routeQtMessages(bool route)
{
    std::lock_guard<std::mutex> lock(s_routeMutex);
    if (route == s_routing)
        return;
    if (route) {
        instance(); // before Qt can call the handler from some thread
        s_previousHandler = qInstallMessageHandler(&routeQtMessage);
    } else {
        qInstallMessageHandler(s_previousHandler);
        s_previousHandler = nullptr;
    }
    s_routing = route;
}

namespace detail {

void writeToStandardError(const QByteArray& bytes)
{
    const char* data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, size_t(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        data += written;
        left -= written;
    }
}

} // namespace detail

} // namespace tvl
