#pragma once

#include <basix/BasixExport.h>
#include <basix/ICISettingsContext.h>

#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace tvl {

/**
 * Settings computed by a configuration script (plugin descriptors, the launcher's
 * configuration), written in Lua 5.4 and run in a sandbox.
 *
 * The settings are the global variables a script leaves behind:
 *
 *     name = "settings"
 *     mandatory = true
 *     depends = { "core" }          -- a sequence reads as a list
 *     data = { theme = "dark" }     -- any other table reads as a map: data.theme
 *     include("common.lua")         -- runs in the same globals, relative to this file
 *
 * Values: nil is absent (an invalid QVariant); booleans, integers (qlonglong), floats
 * (double) and strings (UTF-8) keep their type; a table whose keys are exactly 1..n is a
 * QVariantList, an empty table an empty list, any other table a QVariantMap (keys as
 * strings). Functions and other Lua-only values are not settings. setValue() converts the
 * other way (lists to sequences, maps to tables).
 *
 * Keys: "a.b.c" walks nested maps. keys() lists the dotted path of every leaf, ordered by name
 * at each level: a map is walked, everything else (a list included) is one leaf. The built-in functions and
 * library tables are never keys, unless the script assigns something else to their name.
 *
 * Sandbox: the base, string, table, math and utf8 libraries, without dofile, loadfile,
 * require, collectgarbage, print and string.dump; load() accepts text chunks only and runs
 * them in the script's globals unless given another table. Every evaluation runs in a fresh
 * interpreter whose instructions, memory and time are limited; a script that exceeds a limit stops
 * with an error, which pcall cannot catch. Errors read "file:line: message" with the file's
 * absolute path. Files must be UTF-8 (a byte-order mark is skipped) and must not be empty or
 * blank: an editor that truncates a file before writing it must not wipe the settings.
 *
 * An evaluation is all or nothing: when it fails, values(), keys() and files() keep what the
 * last successful evaluation gave, and errorString() says what went wrong.
 *
 * include(path): a relative path is taken from the directory of the file that calls it.
 * Every included file joins files(); including a file that is being evaluated (a cycle) is an
 * error. Only regular files of at most 16 MiB are read, the main file included: anything else
 * (a directory, a FIFO, a device) is an error naming the path, and is never waited on. The text of each file is read once and kept: evaluate() runs the kept texts, and
 * reload() reads them all again from disk, so a script's result changes only through reload().
 *
 * Not thread-safe; one object belongs to one thread at a time.
 */
class BASIX_EXPORT ICISettings : public QObject
{
    Q_OBJECT

public:
    /// A native function callable from scripts; see ICISettingsContext.
    using Function = QVariant (*)(ICISettingsContext* context);

    /// Reads `file`; hasError() tells whether that worked. Nothing is evaluated yet.
    explicit ICISettings(const QString& file, QObject* parent = nullptr);
    /// Takes the script text from `source`; `file` names it in errors and is the base of
    /// relative includes. It need not exist.
    ICISettings(const QString& file, const QByteArray& source, QObject* parent = nullptr);
    ~ICISettings() override;

    /// The main file, as given.
    QString file() const;

    /// True while the last read, reload or evaluation failed.
    bool hasError() const;
    /// Why the last read, reload or evaluation failed; empty when it did not.
    QString errorString() const;

    /**
     * Runs the script; true on success.
     *
     * keepValues false (the normal case) starts from a fresh set of globals holding the
     * built-ins and every value given with setValue(), so a variable removed from the script
     * disappears from keys(). With keepValues the script starts from the values of the last
     * successful evaluation instead (and the setValue() values over them).
     *
     * strict makes reading a global variable that does not exist an error
     * ("undefined variable 'x'") instead of nil; it catches misspelt names.
     */
    bool evaluate(bool keepValues = false, bool strict = false);

    /// Reads the main file and every file kept from earlier includes again from disk; false
    /// (with errorString()) when the main file cannot be read. Does not evaluate.
    bool reload();

    /// The main file and every file the last successful evaluation included, as absolute
    /// paths, the main file first. Before the first evaluation, only the main file.
    QStringList files() const;
    /// The files that the last evaluation, successful or not, tried to include but could not
    /// read (missing, unreadable, not a regular file), as absolute paths in the order tried.
    QStringList missingFiles() const;

    QStringList keys() const;
    bool contains(const QString& key) const;
    QVariant value(const QString& key, const QVariant& defaultValue = QVariant()) const;
    /// All values as one map (nested maps for tables).
    QVariantMap values() const;

    /**
     * Sets a global variable for every later evaluation (creating the tables of a dotted
     * key); value() sees it at once. An invalid QVariant removes what was set.
     */
    void setValue(const QString& key, const QVariant& value);

    /// Makes `handler` callable from scripts as the global function `name` in every later
    /// evaluation. `userData` is handed to it through the context.
    void createFunction(const QString& name, Function handler, void* userData = nullptr);

    /// Instructions one evaluation may run (counted in steps of 1000). Work that library
    /// functions do in C counts too: a comparison when sorting, an element moved or joined by the
    /// table library, 16 bytes walked by the utf8 library, a step of a pattern match (charged
    /// its worst case). 0 means no limit.
    void setInstructionLimit(qint64 instructions);
    qint64 instructionLimit() const;
    /// Bytes of memory one evaluation may hold. 0 means no limit.
    void setMemoryLimit(qint64 bytes);
    qint64 memoryLimit() const;
    /// Milliseconds one evaluation may take. A watchdog stops the script at its next
    /// instruction or function call once the time is up, inside library functions too; one
    /// operation of the interpreter (such as comparing two long strings) still runs to its end.
    /// 0 means no limit.
    void setTimeLimit(qint64 milliseconds);
    qint64 timeLimit() const;

    static constexpr qint64 DefaultInstructionLimit = 50'000'000;
    static constexpr qint64 DefaultMemoryLimit = 128 * 1024 * 1024;
    static constexpr qint64 DefaultTimeLimit = 5'000;

private:
    Q_DISABLE_COPY(ICISettings)
    QScopedPointer<class ICISettingsPrivate> d;
};

} // namespace tvl
