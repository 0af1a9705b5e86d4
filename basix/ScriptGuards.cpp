#include "ScriptGuards_p.h"

#include "ScriptEvaluation_p.h"

#include <lauxlib.h>
#include <lua.h>

#include <climits>
#include <cmath>
#include <utility>

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

// A library function called with the arguments of this call; returns what it returns.
int callOriginal(lua_State* L)
{
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    return lua_gettop(L);
}

int guardedPattern(lua_State* L)
{
    // Upvalues: the library function and its PatternFunction.
    const auto function = PatternFunction(lua_tointeger(L, lua_upvalueindex(2)));
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
            return luaL_error(L, "pattern too complex for a subject of %d bytes",
                              int(qMin<size_t>(subjectLength, INT_MAX)));
        }
        Evaluation::charge(L, qint64(std::pow(10.0, cost)));
    }
    return callOriginal(L);
}

} // namespace

void guardStringLibrary(lua_State* L)
{
    const std::pair<const char*, PatternFunction> patternFunctions[] = {
        {"find", Find}, {"match", Match}, {"gmatch", GMatch}, {"gsub", GSub}};
    for (const auto& [name, function] : patternFunctions) {
        lua_getfield(L, -1, name);
        lua_pushinteger(L, function);
        lua_pushcclosure(L, guardedPattern, 2);
        lua_setfield(L, -2, name);
    }
}

} // namespace tvl::script
