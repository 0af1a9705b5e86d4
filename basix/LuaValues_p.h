#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>

#include <lua.h>

#include <atomic>

namespace tvl::lua {

/// Tables nested deeper than this are refused in both directions.
constexpr int MaximumNesting = 100;

/// What one conversion to QVariant may take.
struct ConversionLimits
{
    /// Bytes of the QVariants built, 0 for no limit. A table or string referenced many times
    /// is built, and counted, once for every reference.
    qint64 memory = 0;
    /// Set when the evaluation is past its time limit of `milliseconds`; null for no limit.
    const std::atomic<bool>* overdue = nullptr;
    qint64 milliseconds = 0;
    /// Bytes built so far, by this conversion and the ones before it with the same limits.
    qint64 used = 0;
};

/**
 * Converts the value at `index` to a QVariant: nil and Lua-only values (functions, userdata,
 * threads) give an invalid QVariant, a table whose keys are exactly 1..n (or an empty table) a
 * QVariantList, any other table a QVariantMap. Never raises a Lua error and never allocates in
 * the interpreter. Returns false with `error` set when a table contains itself or nests too
 * deeply, or when the conversion exceeds `limits`; `path` names the value in that message.
 */
bool toVariant(lua_State* L, int index, const QString& path, QVariant* result, QString* error,
               ConversionLimits* limits = nullptr);

/// "16 MiB", "512 KiB", "100 bytes": a limit as messages give it.
QString formatBytes(qint64 bytes);

/// Pushes `value` converted to Lua (the mirror image of toVariant). May raise a Lua error
/// (memory, nesting).
void pushVariant(lua_State* L, const QVariant& value, int depth = 0);

/// Pushes a QString as a UTF-8 Lua string.
void pushString(lua_State* L, const QString& text);

} // namespace tvl::lua
