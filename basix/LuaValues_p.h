#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>

#include <lua.h>

namespace tvl::lua {

/// Tables nested deeper than this are refused in both directions.
constexpr int MaximumNesting = 100;

/**
 * Converts the value at `index` to a QVariant: nil and Lua-only values (functions, userdata,
 * threads) give an invalid QVariant, a table whose keys are exactly 1..n (or an empty table) a
 * QVariantList, any other table a QVariantMap. Never raises a Lua error and never allocates in
 * the interpreter. Returns false with `error` set when a table contains itself or nests too
 * deeply; `path` names the value in that message.
 */
bool toVariant(lua_State* L, int index, const QString& path, QVariant* result, QString* error);

/// Pushes `value` converted to Lua (the mirror image of toVariant). May raise a Lua error
/// (memory, nesting).
void pushVariant(lua_State* L, const QVariant& value, int depth = 0);

/// Pushes a QString as a UTF-8 Lua string.
void pushString(lua_State* L, const QString& text);

} // namespace tvl::lua
