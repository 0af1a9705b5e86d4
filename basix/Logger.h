#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QLatin1String>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QUrl>
#include <QtCore/QVariant>

#include <type_traits>

namespace tvl {

class AbstractLoggerOutput;

namespace detail {

// Types for which Logger::Stream has no operator of its own and that reach none of them
// through an implicit conversion either: they would otherwise not compile.
template <typename T>
constexpr bool isOtherLogItem = !std::is_convertible_v<const T&, QVariant>
    && !std::is_convertible_v<const T&, QString> && !std::is_convertible_v<const T&, QStringView>
    && !std::is_convertible_v<const T&, QLatin1String> && !std::is_convertible_v<const T&, const char*>
    && !std::is_convertible_v<const T&, bool> && !std::is_convertible_v<const T&, long long>
    && !std::is_convertible_v<const T&, double> && !std::is_convertible_v<const T&, QStringList>
    && !std::is_convertible_v<const T&, QByteArray> && !std::is_convertible_v<const T&, QUrl>
    && !std::is_pointer_v<T>;

} // namespace detail

/**
 * The process-wide logger.
 *
 * A record is a message with the name of its source (a path inside the source tree without
 * extension, such as "libupdater/UpdaterPluginsManager"), the function, the line, a numbered
 * level, the time and the thread that logged it. log() may be called from any thread: it only
 * queues the record. One output thread, started with the first output, takes the queued
 * records in order and hands each of them to every registered output, one record at a time,
 * so an output never sees two calls at once.
 *
 * Outputs added with addOutput() see the records logged after they were added, and an output
 * removed with removeOutput() has received every record logged before it was removed. flush()
 * waits until everything logged before it has been written. At a normal exit (return from
 * main() or exit()) the queue is written out before the process ends; records logged after
 * that are written synchronously by the calling thread. A record of level Fatal is flushed
 * before log() returns, since the process is usually about to die.
 *
 * Outputs are not owned unless added with TakeOwnership: an output that the caller owns must
 * be removed with removeOutput() before it is destroyed.
 */
class BASIX_EXPORT Logger
{
public:
    /// Levels from the most detailed (0) to fatal (6).
    enum Level {
        Trace = 0,
        Debug = 1,
        Info = 2,
        Notice = 3,
        Warning = 4,
        Error = 5,
        Fatal = 6
    };

    enum Ownership {
        KeepOwnership,  ///< the caller keeps the output and removes it before deleting it
        TakeOwnership   ///< the logger deletes the output when it is removed or at exit
    };

    /**
     * Builds one record from items given with <<, separated by one space, and logs it when it
     * goes out of scope. Strings are written as they are, booleans as "true"/"false", a
     * QStringList as its items joined by ", " in parentheses, a QUrl in full, a QByteArray as
     * its bytes read as UTF-8, and a QVariant as its string form (an invalid one as
     * "QVariant()", lists in parentheses, maps as "{key: value, ...}"). Any other type that
     * a QVariant can hold is written as that QVariant: containers as above, the rest as
     * QDebug writes them ("QSize(3, 4)").
     */
    class BASIX_EXPORT Stream
    {
    public:
        Stream(const QString& file, const QString& function, int line, Level level);
        /// For the TVL_LOG macro: `file` and `function` must be static strings.
        Stream(QLatin1String file, QLatin1String function, int line, Level level);
        ~Stream();

        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;

        Stream& operator<<(const QString& text);
        Stream& operator<<(QStringView text);
        Stream& operator<<(QLatin1String text);
        Stream& operator<<(const char* text);
        Stream& operator<<(QChar character);
        Stream& operator<<(char character);
        Stream& operator<<(bool value);
        Stream& operator<<(int value);
        Stream& operator<<(unsigned int value);
        Stream& operator<<(long value);
        Stream& operator<<(unsigned long value);
        Stream& operator<<(long long value);
        Stream& operator<<(unsigned long long value);
        Stream& operator<<(double value);
        Stream& operator<<(const QVariant& value);
        Stream& operator<<(const QUrl& url);
        Stream& operator<<(const QStringList& list);
        Stream& operator<<(const QByteArray& bytes);

        template <typename T, std::enable_if_t<detail::isOtherLogItem<T>, bool> = true>
        Stream& operator<<(const T& value)
        {
            return *this << QVariant::fromValue(value);
        }

        /// The message built so far.
        QString message() const;

    private:
        /// The message, with a separator appended when it holds an item already.
        QString& next();

        QString m_message;
        QString m_file;
        QString m_function;
        QLatin1String m_staticFile;
        QLatin1String m_staticFunction;
        int m_line;
        Level m_level;
        bool m_hasItems = false;
    };

    /// The one logger of the process, created on first use; never null.
    static Logger* instance();

    /// Queues a record. Records below minimumLevel() are dropped.
    void log(const QString& message, const QString& file, const QString& function, int line,
             Level level);
    /// The same with a numeric level; numbers outside 0..6 are clamped.
    void log(const QString& message, const QString& file, const QString& function, int line,
             int level);
    /**
     * The same with static strings for file and function (no copy on the caller's side). They
     * are read later, on the output thread: code in a library that is about to be unloaded
     * calls flush() first, so that no queued record points into it.
     */
    void log(const QString& message, QLatin1String file, QLatin1String function, int line,
             Level level);

    /// Records below this level are dropped at once. Default: Trace (everything).
    void setMinimumLevel(Level level);
    Level minimumLevel() const;
    /// True when a record of `level` would be kept: lets callers skip building it.
    static bool isEnabled(Level level);

    /**
     * Registers an output. Its writeLogHeader() is called on the output thread before the
     * first record, then write() for every record logged from now on. Adding an output twice
     * does nothing.
     */
    void addOutput(AbstractLoggerOutput* output, Ownership ownership = KeepOwnership);
    /**
     * Writes every record logged so far to `output`, then unregisters it; returns once the
     * output will not be called again. An owned output is deleted.
     */
    void removeOutput(AbstractLoggerOutput* output);
    /// The outputs registered now.
    QList<AbstractLoggerOutput*> outputs() const;

    /// Returns once every record logged before the call has been written to every output.
    void flush();

    /**
     * Routes Qt's own messages (qDebug, qInfo, qWarning, qCritical, qFatal) into the logger,
     * at levels Debug, Info, Warning, Error and Fatal, with the category name as source when
     * Qt gives no file. Passing false restores the handler that was installed before.
     */
    static void routeQtMessages(bool route = true);

    /// Name of a level as written by the standard outputs ("Trace" ... "Fatal").
    static QString levelName(int level);

private:
    Logger();
    ~Logger();
    Q_DISABLE_COPY(Logger)

    friend class LoggerPrivate;
    class LoggerPrivate* d;
};

namespace detail {

/// Length of a __FILE__ path without its extension, for the source names of TVL_LOG.
constexpr int logSourceLength(const char* path)
{
    int length = 0;
    int dot = -1;
    for (; path[length] != '\0'; ++length) {
        if (path[length] == '.')
            dot = length;
        else if (path[length] == '/')
            dot = -1;
    }
    return dot >= 0 ? dot : length;
}

} // namespace detail

} // namespace tvl

/**
 * Logs one record from the current source file, function and line:
 *
 *     TVL_LOG(tvl::Logger::Notice) << "Uninitialize" << name;
 *
 * The source name is the file's path relative to the project's top directory without its
 * extension (the build maps __FILE__ with -fmacro-prefix-map); a file may define
 * TVL_LOG_SOURCE as a string literal before including this header to name itself. Nothing is
 * evaluated when the level is below the logger's minimum.
 */
#ifndef TVL_LOG_SOURCE
#  define TVL_LOG_SOURCE __FILE__
#endif

#define TVL_LOG(level)                                                                            \
    for (bool tvlLogEnabled = ::tvl::Logger::isEnabled(::tvl::Logger::Level(level)); tvlLogEnabled; \
         tvlLogEnabled = false)                                                                   \
        ::tvl::Logger::Stream(                                                                    \
            QLatin1String(TVL_LOG_SOURCE, ::tvl::detail::logSourceLength(TVL_LOG_SOURCE)),       \
            QLatin1String(__func__), __LINE__, ::tvl::Logger::Level(level))
