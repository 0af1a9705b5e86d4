#include "ScriptGuards_p.h"

#include "ScriptEvaluation_p.h"

#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>

#include <climits>
#include <cmath>
#include <cstring>

namespace tvl::script {

namespace {

// Pattern matching runs in C, out of reach of the instruction hook. Each call is charged its
// worst case as instructions before it runs, so that expensive matches meet the instruction
// limit, and a call whose worst case alone exceeds this many steps is refused even without one.
constexpr double MaximumPatternSteps = 1e8;

// The string library's functions that match patterns.
enum PatternFunction { Find, Match, GMatch, GSub };

} // namespace

// log10 of the worst number of steps Lua's matcher may take for a pattern over a subject of
// `length` bytes: an unanchored search starts at every position, every '*', '+' or '-' can make
// it try each position again, every '?' doubles the tries, and each try may compare every item
// of the pattern. A plain search (and a pattern without special characters, which Lua searches
// as plain text) compares up to every byte of the pattern at every position.
double patternCostLog10(const char* pattern, size_t patternLength, size_t length, bool scansAll,
                        bool plain)
{
    const double positions = std::log10(double(length) + 1);
    if (plain)
        return positions + std::log10(double(patternLength) + 1);
    size_t i = 0;
    bool anchored = false;
    if (!scansAll && patternLength > 0 && pattern[0] == '^') {
        anchored = true;
        i = 1;
    }
    int items = 0;
    int repeats = 0;
    int optionals = 0;
    while (i < patternLength) {
        const char c = pattern[i];
        if (c == '(' || c == ')') {
            ++i;
            continue;
        }
        ++items;
        if (c == '%' && i + 1 < patternLength) {
            const char kind = pattern[i + 1];
            if (kind == 'b') {
                i += 4;
                continue;
            }
            if (kind == 'f') {
                i += 2;
                if (i < patternLength && pattern[i] == '[') {
                    for (++i; i < patternLength && pattern[i] != ']'; ++i) {
                        if (pattern[i] == '%')
                            ++i;
                    }
                    ++i;
                }
                continue;
            }
            i += 2;
        } else if (c == '[') {
            ++i;
            if (i < patternLength && pattern[i] == '^')
                ++i;
            if (i < patternLength && pattern[i] == ']')
                ++i;
            for (; i < patternLength && pattern[i] != ']'; ++i) {
                if (pattern[i] == '%')
                    ++i;
            }
            ++i;
        } else {
            ++i;
        }
        if (i < patternLength) {
            const char quantifier = pattern[i];
            if (quantifier == '*' || quantifier == '+' || quantifier == '-') {
                ++repeats;
                ++i;
            } else if (quantifier == '?') {
                ++optionals;
                ++i;
            }
        }
    }
    return positions * (repeats + (anchored ? 0 : 1)) + std::log10(double(items) + 1)
        + optionals * std::log10(2.0);
}

namespace {

// The library's own functions, which the guarded ones call after they have charged the work:
// C functions without upvalues, the same in every interpreter. Called directly, not through
// the interpreter, they run as the guarded function itself, under its name in messages about
// their arguments.
struct LibraryFunctions
{
    lua_CFunction find, match, gmatch, gsub, len, codepoint, offset, codes, sort;
};

lua_CFunction field(lua_State* L, const char* name)
{
    lua_getfield(L, -1, name);
    const lua_CFunction function = lua_tocfunction(L, -1);
    lua_pop(L, 1);
    return function;
}

// Read from the first interpreter whose libraries are open.
const LibraryFunctions& library(lua_State* L)
{
    static const LibraryFunctions functions = [L] {
        LibraryFunctions f{};
        lua_getglobal(L, LUA_STRLIBNAME);
        f.find = field(L, "find");
        f.match = field(L, "match");
        f.gmatch = field(L, "gmatch");
        f.gsub = field(L, "gsub");
        lua_getglobal(L, LUA_UTF8LIBNAME);
        f.len = field(L, "len");
        f.codepoint = field(L, "codepoint");
        f.offset = field(L, "offset");
        f.codes = field(L, "codes");
        lua_getglobal(L, LUA_TABLIBNAME);
        f.sort = field(L, "sort");
        lua_pop(L, 3);
        return f;
    }();
    return functions;
}

// Work that walks a string byte by byte, as instructions.
qint64 walkCost(size_t bytes)
{
    return qint64(bytes / 16) + 1;
}

void chargePattern(lua_State* L, PatternFunction function)
{
    const bool scansAll = function == GMatch || function == GSub;
    // Only find() has the plain flag; the others ignore a fourth argument.
    const bool plain = function == Find && lua_toboolean(L, 4);
    // lua_isstring() includes numbers, which the library takes as their text.
    if (lua_isstring(L, 1) && lua_isstring(L, 2)) {
        size_t subjectLength = 0;
        size_t patternLength = 0;
        lua_tolstring(L, 1, &subjectLength);
        const char* pattern = lua_tolstring(L, 2, &patternLength);
        const double cost = patternCostLog10(pattern, patternLength, subjectLength, scansAll, plain);
        if (cost > std::log10(MaximumPatternSteps)) {
            luaL_error(L, "pattern too complex for a subject of %d bytes", int(qMin<size_t>(subjectLength, INT_MAX)));
        }
        Evaluation::charge(L, qint64(std::pow(10.0, cost)));
    }
}

int find(lua_State* L)
{
    chargePattern(L, Find);
    return library(L).find(L);
}

int match(lua_State* L)
{
    chargePattern(L, Match);
    return library(L).match(L);
}

int gmatch(lua_State* L)
{
    chargePattern(L, GMatch);
    return library(L).gmatch(L);
}

int gsub(lua_State* L)
{
    chargePattern(L, GSub);
    return library(L).gsub(L);
}

constexpr size_t CopyPiece = 1024 * 1024;

// string.rep(s, n [, sep]): the library appends one copy at a time, so that repeating an empty
// string a trillion times loops a trillion times. Here the copied text doubles with each copy:
// the work is that of copying the result once, which the memory limit bounds.
int repeat(lua_State* L)
{
    size_t length = 0;
    size_t separatorLength = 0;
    const char* text = luaL_checklstring(L, 1, &length);
    const lua_Integer count = luaL_checkinteger(L, 2);
    const char* separator = luaL_optlstring(L, 3, "", &separatorLength);
    const size_t unit = length + separatorLength;
    if (count <= 0 || unit == 0) {
        lua_pushliteral(L, "");
        return 1;
    }
    if (unit < length || unit > size_t(LUA_MAXINTEGER) / size_t(count))
        return luaL_error(L, "resulting string too large");
    const size_t total = size_t(count) * unit - separatorLength;
    luaL_Buffer buffer;
    char* out = luaL_buffinitsize(L, &buffer, total);
    size_t filled = qMin(length, total);
    std::memcpy(out, text, filled);
    if (filled < total) {
        std::memcpy(out + filled, separator, separatorLength);
        filled += separatorLength;
    }
    // The text is periodic: every prefix that is a whole number of copies can be copied on. The
    // copies are made in pieces, between which an overdue script is stopped.
    while (filled < total) {
        Evaluation::charge(L, 0);
        const size_t chunk = qMin(qMin(filled, total - filled), CopyPiece);
        std::memcpy(out + filled, out, chunk);
        filled += chunk;
    }
    luaL_pushresultsize(&buffer, total);
    return 1;
}

enum WalkedRange {
    WholeString,
    ToEnd,   ///< from i (1) to j (-1)
    ToStart, ///< from i (1) to j (i)
};

// The bytes from position `from` to position `to` of a string of `length` bytes, counted the way
// the string and utf8 libraries take positions: negative ones from the end.
size_t bytesBetween(size_t length, lua_Integer from, lua_Integer to)
{
    const auto position = [length](lua_Integer p) { return p >= 0 ? p : lua_Integer(length) + p + 1; };
    const lua_Integer first = qMax<lua_Integer>(position(from), 1);
    const lua_Integer last = qMin<lua_Integer>(position(to), lua_Integer(length));
    return last >= first ? size_t(last - first + 1) : 0;
}

lua_Integer integerOr(lua_State* L, int index, lua_Integer fallback)
{
    int isInteger = 0;
    const lua_Integer value = lua_tointegerx(L, index, &isInteger);
    return isInteger ? value : fallback;
}

// utf8.len(s [, i [, j]]) and utf8.codepoint(s [, i [, j]]) decode the bytes from i to j;
// utf8.offset and utf8.codes may walk all of the string. Charged before they run; arguments
// that are not integers are the library's to report.
void chargeWalk(lua_State* L, WalkedRange range)
{
    if (lua_type(L, 1) != LUA_TSTRING)
        return;
    const size_t length = lua_rawlen(L, 1);
    size_t bytes = length;
    if (range != WholeString) {
        const lua_Integer from = integerOr(L, 2, 1);
        bytes = bytesBetween(length, from, integerOr(L, 3, range == ToEnd ? -1 : from));
    }
    Evaluation::charge(L, walkCost(bytes));
}

int len(lua_State* L)
{
    chargeWalk(L, ToEnd);
    return library(L).len(L);
}

int codepoint(lua_State* L)
{
    chargeWalk(L, ToStart);
    return library(L).codepoint(L);
}

int offset(lua_State* L)
{
    chargeWalk(L, WholeString);
    return library(L).offset(L);
}

int codes(lua_State* L)
{
    chargeWalk(L, WholeString);
    return library(L).codes(L);
}

// The sort of the table library calls the comparator once per comparison; ours charges each
// comparison, and being a function call, it is also a point where an overdue script is stopped,
// which a comparison inside the library is not.
int compareCharged(lua_State* L)
{
    Evaluation::charge(L, 1);
    if (lua_isnoneornil(L, lua_upvalueindex(1))) {
        lua_pushboolean(L, lua_compare(L, 1, 2, LUA_OPLT));
        return 1;
    }
    lua_settop(L, 2);
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, 2, 1);
    return 1;
}

int sort(lua_State* L)
{
    // A comparator that is not a function is the library's error to report.
    if (lua_isnoneornil(L, 2) || lua_type(L, 2) == LUA_TFUNCTION) {
        lua_settop(L, 2);
        lua_pushcclosure(L, compareCharged, 1);
    }
    return library(L).sort(L);
}

// The table library's loops over ranges (insert, remove, move, concat) read and write through
// lua_geti and lua_seti, which never reach a hook when the table has no metamethods, and a
// length (__len) or a range can be as large as a script likes. They are done here, with each
// element charged as an instruction. What follows keeps the library's behaviour and messages.

enum TableAccess { Read = 1, Write = 2, Length = 4 };

bool hasField(lua_State* L, const char* key, int n)
{
    lua_pushstring(L, key);
    return lua_rawget(L, -n) != LUA_TNIL;
}

// A table, or anything with the metamethods that `access` needs.
void checkTable(lua_State* L, int arg, int access)
{
    if (lua_type(L, arg) == LUA_TTABLE)
        return;
    int n = 1;
    if (lua_getmetatable(L, arg) && (!(access & Read) || hasField(L, "__index", ++n))
        && (!(access & Write) || hasField(L, "__newindex", ++n))
        && (!(access & Length) || hasField(L, "__len", ++n))) {
        lua_pop(L, n);
    } else {
        luaL_checktype(L, arg, LUA_TTABLE);
    }
}

lua_Integer lengthOf(lua_State* L, int arg, int access)
{
    checkTable(L, arg, access | Length);
    return luaL_len(L, arg);
}

// table[to] = table[from], from table `source` to table `target`.
void copyElement(lua_State* L, int source, lua_Integer from, int target, lua_Integer to)
{
    Evaluation::charge(L, 1);
    lua_geti(L, source, from);
    lua_seti(L, target, to);
}

int insert(lua_State* L)
{
    const lua_Integer end = luaL_intop(+, lengthOf(L, 1, Read | Write), 1);
    lua_Integer position = end;
    switch (lua_gettop(L)) {
    case 2:
        break;
    case 3:
        position = luaL_checkinteger(L, 2);
        luaL_argcheck(L, lua_Unsigned(position) - 1u < lua_Unsigned(end), 2, "position out of bounds");
        for (lua_Integer i = end; i > position; --i)
            copyElement(L, 1, i - 1, 1, i);
        break;
    default:
        return luaL_error(L, "wrong number of arguments to 'insert'");
    }
    lua_seti(L, 1, position);
    return 0;
}

int remove(lua_State* L)
{
    const lua_Integer size = lengthOf(L, 1, Read | Write);
    lua_Integer position = luaL_optinteger(L, 2, size);
    if (position != size) {
        luaL_argcheck(L, lua_Unsigned(position) - 1u <= lua_Unsigned(size), 2,
                      "position out of bounds");
    }
    lua_geti(L, 1, position);
    for (; position < size; ++position)
        copyElement(L, 1, position + 1, 1, position);
    lua_pushnil(L);
    lua_seti(L, 1, position);
    return 1;
}

int move(lua_State* L)
{
    const lua_Integer first = luaL_checkinteger(L, 2);
    const lua_Integer last = luaL_checkinteger(L, 3);
    const lua_Integer to = luaL_checkinteger(L, 4);
    const int target = !lua_isnoneornil(L, 5) ? 5 : 1;
    checkTable(L, 1, Read);
    checkTable(L, target, Write);
    if (last >= first) {
        luaL_argcheck(L, first > 0 || last < LUA_MAXINTEGER + first, 3, "too many elements to move");
        const lua_Integer count = last - first + 1;
        luaL_argcheck(L, to <= LUA_MAXINTEGER - count + 1, 4, "destination wrap around");
        if (to > last || to <= first || (target != 1 && !lua_compare(L, 1, target, LUA_OPEQ))) {
            for (lua_Integer i = 0; i < count; ++i)
                copyElement(L, 1, first + i, target, to + i);
        } else {
            for (lua_Integer i = count - 1; i >= 0; --i)
                copyElement(L, 1, first + i, target, to + i);
        }
    }
    lua_pushvalue(L, target);
    return 1;
}

void addElement(lua_State* L, luaL_Buffer* buffer, lua_Integer i)
{
    Evaluation::charge(L, 1);
    lua_geti(L, 1, i);
    if (!lua_isstring(L, -1)) {
        luaL_error(L, "invalid value (at index %I) in table for 'concat'", static_cast<LUAI_UACINT>(i));
    }
    luaL_addvalue(buffer);
}

int concat(lua_State* L)
{
    lua_Integer last = lengthOf(L, 1, Read);
    size_t separatorLength = 0;
    const char* separator = luaL_optlstring(L, 2, "", &separatorLength);
    lua_Integer i = luaL_optinteger(L, 3, 1);
    last = luaL_optinteger(L, 4, last);
    luaL_Buffer buffer;
    luaL_buffinit(L, &buffer);
    for (; i < last; ++i) {
        addElement(L, &buffer, i);
        luaL_addlstring(&buffer, separator, separatorLength);
    }
    if (i == last)
        addElement(L, &buffer, i);
    luaL_pushresult(&buffer);
    return 1;
}

// Puts `function` in place of `name` in the table on top of the stack.
void replace(lua_State* L, const char* name, lua_CFunction function)
{
    lua_pushcfunction(L, function);
    lua_setfield(L, -2, name);
}

} // namespace

void guardLibraries(lua_State* L)
{
    library(L);

    lua_getglobal(L, LUA_STRLIBNAME);
    replace(L, "find", find);
    replace(L, "match", match);
    replace(L, "gmatch", gmatch);
    replace(L, "gsub", gsub);
    replace(L, "rep", repeat);
    lua_pop(L, 1);

    lua_getglobal(L, LUA_UTF8LIBNAME);
    replace(L, "len", len);
    replace(L, "codepoint", codepoint);
    replace(L, "offset", offset);
    replace(L, "codes", codes);
    lua_pop(L, 1);

    lua_getglobal(L, LUA_TABLIBNAME);
    replace(L, "sort", sort);
    replace(L, "insert", insert);
    replace(L, "remove", remove);
    replace(L, "move", move);
    replace(L, "concat", concat);
    lua_pop(L, 1);
}

} // namespace tvl::script
