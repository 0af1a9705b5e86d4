#include "ICISettings.h"

#include "LuaValues_p.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace tvl {

namespace {

constexpr int MaximumIncludeDepth = 64;
constexpr int HookInterval = 1000;
constexpr char BuiltinsKey[] = "tvl.builtins";
// Pattern matching runs in C, out of reach of the instruction hook. Each call is charged its
// worst case as instructions before it runs, so that expensive matches meet the instruction
// limit, and a call whose worst case alone exceeds this many steps is refused even without one.
constexpr double MaximumPatternSteps = 1e8;

// The string library's functions that match patterns, wrapped by Evaluation::guardedPattern.
enum PatternFunction { Find, Match, GMatch, GSub };

struct NativeFunction
{
    QString name;
    ICISettings::Function handler = nullptr;
    void* userData = nullptr;
};

QString formatBytes(qint64 bytes)
{
    if (bytes % (1024 * 1024) == 0)
        return QStringLiteral("%1 MiB").arg(bytes / (1024 * 1024));
    if (bytes % 1024 == 0)
        return QStringLiteral("%1 KiB").arg(bytes / 1024);
    return QStringLiteral("%1 bytes").arg(bytes);
}

/// The line (1-based) of the first byte that is not valid UTF-8, or 0 when the text is valid.
int invalidUtf8Line(const QByteArray& text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.constData());
    const qsizetype size = text.size();
    int line = 1;
    for (qsizetype i = 0; i < size;) {
        const unsigned char lead = bytes[i];
        if (lead < 0x80) {
            if (lead == '\n')
                ++line;
            ++i;
            continue;
        }
        int continuation = 0;
        char32_t codePoint = 0;
        char32_t minimum = 0;
        if ((lead & 0xE0) == 0xC0) {
            continuation = 1;
            codePoint = lead & 0x1F;
            minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            continuation = 2;
            codePoint = lead & 0x0F;
            minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            continuation = 3;
            codePoint = lead & 0x07;
            minimum = 0x10000;
        } else {
            return line;
        }
        for (int k = 1; k <= continuation; ++k) {
            if (i + k >= size || (bytes[i + k] & 0xC0) != 0x80)
                return line;
            codePoint = (codePoint << 6) | (bytes[i + k] & 0x3F);
        }
        if (codePoint < minimum || codePoint > 0x10FFFF
            || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return line;
        i += continuation + 1;
    }
    return 0;
}

bool isBlank(const QByteArray& text)
{
    for (char c : text) {
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != '\v')
            return false;
    }
    return true;
}

// Chunks are named with a short marker ("\x01" index "\x02") instead of their path: Lua cuts
// chunk names in messages to 60 bytes, and paths are often longer. The markers are replaced by
// the full paths once a message leaves the interpreter.
QByteArray fileMarker(int index)
{
    return '\x01' + QByteArray::number(index) + '\x02';
}

// The index of the marker that `text` starts with, or -1; `length` is set to the marker's size.
// A script can put anything into an error message, markers with absurd numbers included.
int markerIndex(const char* text, qsizetype* length = nullptr)
{
    if (!text || text[0] != '\x01' || text[1] < '0' || text[1] > '9')
        return -1;
    int index = 0;
    const char* p = text + 1;
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (index > (INT_MAX - 9) / 10)
            return -1;
        index = index * 10 + (*p - '0');
    }
    if (*p != '\x02')
        return -1;
    if (length)
        *length = p + 1 - text;
    return index;
}

int chunkIndex(const char* source)
{
    return source && source[0] == '=' ? markerIndex(source + 1) : -1;
}

// Whether a message already says where it happened ("<marker>:3: ...").
bool hasLocation(const QByteArray& message)
{
    return markerIndex(message.constData()) >= 0;
}

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

QVariantMap mergeMaps(QVariantMap base, const QVariantMap& overlay)
{
    for (auto it = overlay.cbegin(); it != overlay.cend(); ++it) {
        const auto existing = base.constFind(it.key());
        if (existing != base.cend() && existing->typeId() == QMetaType::QVariantMap
            && it->typeId() == QMetaType::QVariantMap) {
            base.insert(it.key(), mergeMaps(existing->toMap(), it->toMap()));
        } else {
            base.insert(it.key(), *it);
        }
    }
    return base;
}

// Sets `value` at the dotted `key` inside `map`, creating maps on the way; an invalid value
// removes the entry.
void setPath(QVariantMap& map, const QStringList& components, int index, const QVariant& value)
{
    const QString& component = components.at(index);
    if (index == components.size() - 1) {
        if (value.isValid())
            map.insert(component, value);
        else
            map.remove(component);
        return;
    }
    QVariantMap child = map.value(component).toMap();
    setPath(child, components, index + 1, value);
    if (child.isEmpty() && !value.isValid())
        map.remove(component);
    else
        map.insert(component, child);
}

void collectKeys(const QVariantMap& map, const QString& prefix, QStringList* keys)
{
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        const QString key = prefix.isEmpty() ? it.key() : prefix + QLatin1Char('.') + it.key();
        if (it->typeId() == QMetaType::QVariantMap)
            collectKeys(it->toMap(), key, keys);
        else
            keys->append(key);
    }
}

} // namespace

class ICISettingsPrivate
{
public:
    explicit ICISettingsPrivate(const QString& file)
        : file(file)
        , absoluteFile(QDir::cleanPath(QFileInfo(file).absoluteFilePath()))
        , files{absoluteFile}
    {
    }

    const QString file;
    const QString absoluteFile;
    bool sourceInMemory = false;
    QMap<QString, QByteArray> texts;
    QString errorString;
    QVariantMap values;
    QStringList keys;
    QStringList files;
    QVariantMap presets;
    QList<NativeFunction> functions;
    qint64 instructionLimit = ICISettings::DefaultInstructionLimit;
    qint64 memoryLimit = ICISettings::DefaultMemoryLimit;
    qint64 timeLimit = ICISettings::DefaultTimeLimit;

    bool readMainFile();
    void setValues(const QVariantMap& newValues);
};

bool ICISettingsPrivate::readMainFile()
{
    QFile input(absoluteFile);
    if (!input.open(QIODevice::ReadOnly)) {
        errorString = QStringLiteral("%1: cannot read the file: %2").arg(absoluteFile, input.errorString());
        return false;
    }
    texts.insert(absoluteFile, input.readAll());
    return true;
}

void ICISettingsPrivate::setValues(const QVariantMap& newValues)
{
    values = newValues;
    keys.clear();
    collectKeys(values, QString(), &keys);
}

// The interpreter allocates many small objects and frees them all when it closes; taking them
// from size classes carved out of larger blocks costs a fraction of malloc and free.
class SmallObjectPool
{
public:
    static constexpr size_t Granularity = 16;
    static constexpr size_t LargestSmall = 256;
    static constexpr size_t BlockSize = 32 * 1024;

    SmallObjectPool() = default;
    SmallObjectPool(const SmallObjectPool&) = delete;
    SmallObjectPool& operator=(const SmallObjectPool&) = delete;

    ~SmallObjectPool()
    {
        for (void* block : m_blocks)
            std::free(block);
    }

    static bool isSmall(size_t size) { return size <= LargestSmall; }

    void* allocate(size_t size)
    {
        const size_t sizeClass = classOf(size);
        if (FreeObject* object = m_free[sizeClass]) {
            m_free[sizeClass] = object->next;
            return object;
        }
        const size_t rounded = (sizeClass + 1) * Granularity;
        if (!m_cursor || size_t(m_end - m_cursor) < rounded) {
            char* block = static_cast<char*>(std::malloc(BlockSize));
            if (!block)
                return nullptr;
            m_blocks.push_back(block);
            m_cursor = block;
            m_end = block + BlockSize;
        }
        void* object = m_cursor;
        m_cursor += rounded;
        return object;
    }

    void release(void* object, size_t size)
    {
        const size_t sizeClass = classOf(size);
        auto* freed = static_cast<FreeObject*>(object);
        freed->next = m_free[sizeClass];
        m_free[sizeClass] = freed;
    }

    static bool sameClass(size_t a, size_t b) { return classOf(a) == classOf(b); }

private:
    struct FreeObject
    {
        FreeObject* next;
    };

    static size_t classOf(size_t size) { return size == 0 ? 0 : (size - 1) / Granularity; }

    FreeObject* m_free[LargestSmall / Granularity] = {};
    std::vector<void*> m_blocks;
    char* m_cursor = nullptr;
    char* m_end = nullptr;
};

// One run of a script in its own interpreter.
class Evaluation
{
public:
    Evaluation(ICISettingsPrivate* d, bool keepValues, bool strict)
        : d(d)
        , keepValues(keepValues)
        , strict(strict)
        , functions(d->functions)
    {
    }

    ~Evaluation()
    {
        if (L) {
            closing = true;
            lua_close(L);
        }
    }

    bool run(QVariantMap* result, QStringList* filesRead, QString* error);

    static Evaluation* of(lua_State* L) { return *static_cast<Evaluation**>(lua_getextraspace(L)); }

    ICISettingsPrivate* d;
    bool keepValues;
    bool strict;
    QList<NativeFunction> functions;
    SmallObjectPool pool;
    lua_State* L = nullptr;
    size_t memoryUsed = 0;
    qint64 instructions = 0;
    QElapsedTimer clock;
    bool closing = false;
    // Set once a limit is exceeded: from then on every protected call rethrows, so that a
    // script cannot catch its way past a limit.
    bool aborting = false;
    QByteArray abortMessage;
    QStringList chunkFiles;
    QStringList includeStack;
    QStringList filesRead;

    int chunkFor(const QString& path);
    QByteArray markerOf(const QString& path) { return fileMarker(chunkFor(path)); }
    QString finalError(QByteArray message);
    QByteArray location(int level) const;
    QString expandMarkers(const QByteArray& message) const;
    bool loadText(const QString& path, QByteArray* error);
    void abort(const QByteArray& message);

    static void* allocate(void* userData, void* block, size_t oldSize, size_t newSize);
    static void countHook(lua_State* L, lua_Debug* debug);
    static int messageHandler(lua_State* L);
    static int include(lua_State* L);
    static int loadTextOnly(lua_State* L);
    static int protectedCall(lua_State* L);
    static int setMetatable(lua_State* L);
    static int guardedPattern(lua_State* L);
    static int undefinedGlobal(lua_State* L);
    static int callNative(lua_State* L);
    static int setup(lua_State* L);
};

int Evaluation::chunkFor(const QString& path)
{
    int index = int(chunkFiles.indexOf(path));
    if (index < 0) {
        index = int(chunkFiles.size());
        chunkFiles.append(path);
    }
    return index;
}

// The text of an error that ends the evaluation: located in the main file when nothing better
// is known, with every marker replaced by its path.
QString Evaluation::finalError(QByteArray message)
{
    if (!hasLocation(message))
        message.prepend(markerOf(d->absoluteFile) + ": ");
    return expandMarkers(message);
}

// "<marker>:<line>: " of the innermost running function that belongs to one of our files, or
// an empty string when none does.
QByteArray Evaluation::location(int level) const
{
    lua_Debug debug;
    for (; lua_getstack(L, level, &debug); ++level) {
        if (!lua_getinfo(L, "Sl", &debug))
            continue;
        if (debug.currentline > 0 && chunkIndex(debug.source) >= 0)
            return QByteArray(debug.source + 1) + ':' + QByteArray::number(debug.currentline) + ": ";
    }
    return QByteArray();
}

QString Evaluation::expandMarkers(const QByteArray& message) const
{
    QByteArray expanded;
    qsizetype last = 0;
    for (qsizetype at = message.indexOf('\x01'); at >= 0; at = message.indexOf('\x01', at + 1)) {
        qsizetype length = 0;
        const int index = markerIndex(message.constData() + at, &length);
        if (index < 0 || index >= chunkFiles.size())
            continue;
        expanded.append(message.constData() + last, at - last);
        expanded.append(chunkFiles.at(index).toUtf8());
        last = at + length;
    }
    expanded.append(message.constData() + last, message.size() - last);
    return QString::fromUtf8(expanded);
}

// Loads the chunk of `path` onto the stack. An error message carries the file's marker when it
// concerns a place in the file, and no location when the file cannot be read at all.
bool Evaluation::loadText(const QString& path, QByteArray* error)
{
    if (!d->texts.contains(path)) {
        QFile input(path);
        if (!input.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read '%1': %2").arg(path, input.errorString()).toUtf8();
            return false;
        }
        d->texts.insert(path, input.readAll());
    }
    QByteArray text = d->texts.value(path);
    if (text.startsWith("\xEF\xBB\xBF"))
        text.remove(0, 3);
    const QByteArray marker = markerOf(path);
    if (isBlank(text)) {
        *error = marker + ":1: the file is empty";
        return false;
    }
    if (const int line = invalidUtf8Line(text)) {
        *error = marker + ':' + QByteArray::number(line) + ": the file is not valid UTF-8 text";
        return false;
    }
    const QByteArray name = '=' + marker;
    const int status = luaL_loadbufferx(L, text.constData(), size_t(text.size()), name.constData(), "t");
    if (status != LUA_OK) {
        size_t length = 0;
        const char* message = lua_tolstring(L, -1, &length);
        QByteArray reason = aborting ? abortMessage
            : message ? QByteArray(message, qsizetype(length)) : QByteArray("cannot load the file");
        if (!hasLocation(reason))
            reason.prepend(marker + ": ");
        *error = reason;
        lua_pop(L, 1);
        return false;
    }
    return true;
}

void Evaluation::abort(const QByteArray& message)
{
    if (aborting)
        return;
    aborting = true;
    abortMessage = message;
}

void* Evaluation::allocate(void* userData, void* block, size_t oldSize, size_t newSize)
{
    auto* self = static_cast<Evaluation*>(userData);
    const size_t previous = block ? oldSize : 0;
    if (newSize == 0) {
        if (block) {
            if (SmallObjectPool::isSmall(previous))
                self->pool.release(block, previous);
            else
                std::free(block);
        }
        self->memoryUsed -= previous;
        return nullptr;
    }
    const qint64 limit = self->d->memoryLimit;
    if (newSize > previous && limit > 0 && self->memoryUsed - previous + newSize > size_t(limit)) {
        // The interpreter turns a refused allocation into an error without a location, so it
        // is taken here. Only growth is refused, and the interpreter's call chain is intact
        // whenever it grows something, so reading it is safe.
        if (!self->aborting && !self->closing && self->L) {
            self->abort(self->location(0) + "memory limit of " + formatBytes(limit).toUtf8()
                        + " exceeded");
        }
        return nullptr;
    }
    void* resized = nullptr;
    if (block && SmallObjectPool::isSmall(previous) && SmallObjectPool::isSmall(newSize)
        && SmallObjectPool::sameClass(previous, newSize)) {
        resized = block;
    } else if (!block || SmallObjectPool::isSmall(previous) || SmallObjectPool::isSmall(newSize)) {
        resized = SmallObjectPool::isSmall(newSize) ? self->pool.allocate(newSize) : std::malloc(newSize);
        if (resized && block) {
            std::memcpy(resized, block, qMin(previous, newSize));
            if (SmallObjectPool::isSmall(previous))
                self->pool.release(block, previous);
            else
                std::free(block);
        }
    } else {
        resized = std::realloc(block, newSize);
    }
    if (resized)
        self->memoryUsed = self->memoryUsed - previous + newSize;
    return resized;
}

void Evaluation::countHook(lua_State* L, lua_Debug* debug)
{
    Evaluation* self = of(L);
    // Called without hook information when a pattern match used up the budget: the running
    // function is then the library function, one level below the script.
    if (debug)
        self->instructions += HookInterval;
    const qint64 limit = self->d->instructionLimit;
    if (!self->aborting && limit > 0 && self->instructions > limit) {
        self->abort(self->location(debug ? 0 : 1) + "instruction limit of "
                    + QByteArray::number(limit) + " exceeded");
    }
    // Some library functions cost time in proportion to the length of their strings (comparing
    // long strings, for one) and are charged a single instruction: only the clock bounds them.
    const qint64 timeLimit = self->d->timeLimit;
    if (!self->aborting && timeLimit > 0 && self->clock.hasExpired(timeLimit)) {
        self->abort(self->location(debug ? 0 : 1) + "time limit of " + QByteArray::number(timeLimit)
                    + " ms exceeded");
    }
    if (self->aborting) {
        lua_pushlstring(L, self->abortMessage.constData(), size_t(self->abortMessage.size()));
        lua_error(L);
    }
}

int Evaluation::messageHandler(lua_State* L)
{
    Evaluation* self = of(L);
    QByteArray message;
    if (const char* text = lua_tostring(L, 1)) {
        message = text;
    } else if (luaL_callmeta(L, 1, "__tostring") && lua_type(L, -1) == LUA_TSTRING) {
        message = lua_tostring(L, -1);
    } else {
        message = QByteArray("error object is a ") + luaL_typename(L, 1) + " value";
    }
    if (!hasLocation(message))
        message.prepend(self->location(1));
    lua_pushlstring(L, message.constData(), size_t(message.size()));
    return 1;
}

int Evaluation::include(lua_State* L)
{
    Evaluation* self = of(L);
    if (lua_gettop(L) != 1 || lua_type(L, 1) != LUA_TSTRING || lua_rawlen(L, 1) == 0)
        return luaL_error(L, "include expects one file name");
    size_t length = 0;
    const char* argument = lua_tolstring(L, 1, &length);

    QString directory;
    lua_Debug caller;
    if (lua_getstack(L, 1, &caller) && lua_getinfo(L, "S", &caller)) {
        const int index = chunkIndex(caller.source);
        if (index >= 0 && index < self->chunkFiles.size())
            directory = QFileInfo(self->chunkFiles.at(index)).absolutePath();
    }
    if (directory.isEmpty() && !self->includeStack.isEmpty())
        directory = QFileInfo(self->includeStack.constLast()).absolutePath();
    const QString path = QDir::cleanPath(
        QDir(directory).absoluteFilePath(QString::fromUtf8(argument, qsizetype(length))));

    if (self->includeStack.contains(path)) {
        QStringList cycle = self->includeStack.mid(self->includeStack.indexOf(path));
        cycle.append(path);
        const QByteArray text = cycle.join(QStringLiteral(" -> ")).toUtf8();
        return luaL_error(L, "include cycle: %s", text.constData());
    }
    if (self->includeStack.size() >= MaximumIncludeDepth)
        return luaL_error(L, "includes nest more than %d files deep", MaximumIncludeDepth);

    QByteArray error;
    if (!self->loadText(path, &error)) {
        if (!hasLocation(error))
            error.prepend(self->location(1));
        lua_pushlstring(L, error.constData(), size_t(error.size()));
        return lua_error(L);
    }
    if (!self->filesRead.contains(path))
        self->filesRead.append(path);

    self->includeStack.append(path);
    struct Pop
    {
        QStringList& stack;
        ~Pop() { stack.removeLast(); }
    } pop{self->includeStack};
    lua_call(L, 0, 0);
    return 0;
}

int Evaluation::loadTextOnly(lua_State* L)
{
    // load(chunk [, chunkname [, mode [, env]]]) with the mode forced to text.
    lua_settop(L, qMax(lua_gettop(L), 3));
    lua_pushliteral(L, "t");
    lua_replace(L, 3);
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    return lua_gettop(L);
}

int Evaluation::protectedCall(lua_State* L)
{
    // pcall and xpcall, rethrowing once a limit was exceeded.
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    Evaluation* self = of(L);
    if (self->aborting) {
        lua_pushlstring(L, self->abortMessage.constData(), size_t(self->abortMessage.size()));
        return lua_error(L);
    }
    return lua_gettop(L);
}

int Evaluation::setMetatable(lua_State* L)
{
    // Finalizers run with the instruction hook switched off, so a finalizer could loop
    // forever: tables with one are refused.
    if (lua_type(L, 2) == LUA_TTABLE && lua_getfield(L, 2, "__gc") != LUA_TNIL)
        return luaL_error(L, "finalizers (__gc) are not available in configuration scripts");
    lua_settop(L, 2);
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, 2, 1);
    return 1;
}

int Evaluation::guardedPattern(lua_State* L)
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
        Evaluation* self = of(L);
        self->instructions += qint64(std::pow(10.0, cost));
        const qint64 limit = self->d->instructionLimit;
        if (limit > 0 && self->instructions > limit)
            countHook(L, nullptr);
    }
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    return lua_gettop(L);
}

int Evaluation::undefinedGlobal(lua_State* L)
{
    const char* name = lua_tostring(L, 2);
    return luaL_error(L, "undefined variable '%s'", name ? name : luaL_typename(L, 2));
}

int Evaluation::callNative(lua_State* L)
{
    Evaluation* self = of(L);
    const int index = int(lua_tointeger(L, lua_upvalueindex(1)));
    const NativeFunction function = self->functions.value(index);

    QList<QVariant> arguments;
    const int count = lua_gettop(L);
    arguments.reserve(count);
    for (int i = 1; i <= count; ++i) {
        QVariant argument;
        QString error;
        if (!lua::toVariant(L, i, QStringLiteral("argument %1").arg(i), &argument, &error)) {
            const QByteArray message = function.name.toUtf8() + ": " + error.toUtf8();
            return luaL_error(L, "%s", message.constData());
        }
        arguments.append(argument);
    }

    QString file;
    int line = 0;
    lua_Debug caller;
    for (int level = 1; lua_getstack(L, level, &caller); ++level) {
        if (lua_getinfo(L, "Sl", &caller) && caller.currentline > 0) {
            const int chunk = chunkIndex(caller.source);
            file = chunk >= 0 ? self->chunkFiles.value(chunk) : QString::fromUtf8(caller.short_src);
            line = caller.currentline;
            break;
        }
    }

    ICISettingsContext context(arguments, file, line, function.userData);
    const QVariant result = function.handler(&context);
    if (context.hasError()) {
        const QByteArray message = self->location(1) + context.errorMessage().toUtf8();
        lua_pushlstring(L, message.constData(), size_t(message.size()));
        return lua_error(L);
    }
    lua::pushVariant(L, result);
    return 1;
}

int Evaluation::setup(lua_State* L)
{
    Evaluation* self = of(L);
    static const luaL_Reg libraries[] = {
        {LUA_GNAME, luaopen_base},
        {LUA_STRLIBNAME, luaopen_string},
        {LUA_TABLIBNAME, luaopen_table},
        {LUA_MATHLIBNAME, luaopen_math},
        {LUA_UTF8LIBNAME, luaopen_utf8},
    };
    for (const luaL_Reg& library : libraries) {
        luaL_requiref(L, library.name, library.func, 1);
        lua_pop(L, 1);
    }

    lua_pushglobaltable(L);
    const int globals = lua_gettop(L);
    for (const char* name : {"dofile", "loadfile", "require", "collectgarbage", "print"}) {
        lua_pushnil(L);
        lua_setfield(L, globals, name);
    }
    lua_getfield(L, globals, LUA_STRLIBNAME);
    lua_pushnil(L);
    lua_setfield(L, -2, "dump");
    const std::pair<const char*, PatternFunction> patternFunctions[] = {
        {"find", Find}, {"match", Match}, {"gmatch", GMatch}, {"gsub", GSub}};
    for (const auto& [name, function] : patternFunctions) {
        lua_getfield(L, -1, name);
        lua_pushinteger(L, function);
        lua_pushcclosure(L, guardedPattern, 2);
        lua_setfield(L, -2, name);
    }
    lua_pop(L, 1);
    lua_getfield(L, globals, "setmetatable");
    lua_pushcclosure(L, setMetatable, 1);
    lua_setfield(L, globals, "setmetatable");

    lua_getfield(L, globals, "load");
    lua_pushcclosure(L, loadTextOnly, 1);
    lua_setfield(L, globals, "load");
    for (const char* name : {"pcall", "xpcall"}) {
        lua_getfield(L, globals, name);
        lua_pushcclosure(L, protectedCall, 1);
        lua_setfield(L, globals, name);
    }
    lua_pushcfunction(L, include);
    lua_setfield(L, globals, "include");

    for (int i = 0; i < self->functions.size(); ++i) {
        lua_pushinteger(L, i);
        lua_pushcclosure(L, callNative, 1);
        lua::pushString(L, self->functions.at(i).name);
        lua_insert(L, -2);
        lua_rawset(L, globals);
    }

    // Everything in the globals now is built in: remembered, so that it is not taken for a
    // setting unless the script replaces it.
    lua_newtable(L);
    lua_pushnil(L);
    while (lua_next(L, globals) != 0) {
        lua_pushvalue(L, -2);
        lua_insert(L, -2);
        lua_rawset(L, -4);
    }
    lua_setfield(L, LUA_REGISTRYINDEX, BuiltinsKey);

    QVariantMap initial = self->keepValues ? self->d->values : QVariantMap();
    initial = mergeMaps(initial, self->d->presets);
    for (auto it = initial.cbegin(); it != initial.cend(); ++it) {
        lua::pushString(L, it.key());
        lua::pushVariant(L, *it);
        lua_rawset(L, globals);
    }

    if (self->strict) {
        lua_newtable(L);
        lua_pushcfunction(L, undefinedGlobal);
        lua_setfield(L, -2, "__index");
        lua_setmetatable(L, globals);
    }
    return 0;
}

bool Evaluation::run(QVariantMap* result, QStringList* files, QString* error)
{
    L = lua_newstate(allocate, this);
    if (!L) {
        *error = QStringLiteral("%1: cannot create the script interpreter").arg(d->absoluteFile);
        return false;
    }
    *static_cast<Evaluation**>(lua_getextraspace(L)) = this;
    lua_sethook(L, countHook, LUA_MASKCOUNT, HookInterval);
    clock.start();

    lua_pushcfunction(L, messageHandler);
    const int handler = lua_gettop(L);

    lua_pushcfunction(L, setup);
    int status = lua_pcall(L, 0, 0, handler);
    if (status == LUA_OK) {
        QByteArray loadError;
        if (!loadText(d->absoluteFile, &loadError)) {
            *error = finalError(loadError);
            return false;
        }
        filesRead.append(d->absoluteFile);
        includeStack.append(d->absoluteFile);
        status = lua_pcall(L, 0, 0, handler);
    }
    if (status != LUA_OK || aborting) {
        QByteArray message;
        if (aborting) {
            message = abortMessage;
        } else if (status == LUA_ERRMEM) {
            message = "not enough memory";
        } else {
            size_t length = 0;
            const char* text = lua_tolstring(L, -1, &length);
            message = text ? QByteArray(text, qsizetype(length)) : QByteArray("unknown error");
        }
        *error = finalError(message);
        return false;
    }

    // The settings: every global that is not a built-in left as it was.
    lua_getfield(L, LUA_REGISTRYINDEX, BuiltinsKey);
    const int builtins = lua_gettop(L);
    lua_pushglobaltable(L);
    const int globals = lua_gettop(L);
    QVariantMap values;
    lua_pushnil(L);
    while (lua_next(L, globals) != 0) {
        if (lua_type(L, -2) == LUA_TSTRING) {
            lua_pushvalue(L, -2);
            lua_rawget(L, builtins);
            const bool builtin = lua_rawequal(L, -1, -2);
            lua_pop(L, 1);
            if (!builtin) {
                const QString name = QString::fromUtf8(lua_tostring(L, -2));
                QVariant value;
                QString conversionError;
                if (!lua::toVariant(L, -1, name, &value, &conversionError)) {
                    *error = QStringLiteral("%1: %2").arg(d->absoluteFile, conversionError);
                    return false;
                }
                if (value.isValid())
                    values.insert(name, value);
            }
        }
        lua_pop(L, 1);
    }
    *result = values;
    *files = filesRead;
    return true;
}

ICISettings::ICISettings(const QString& file, QObject* parent)
    : QObject(parent)
    , d(new ICISettingsPrivate(file))
{
    d->readMainFile();
}

ICISettings::ICISettings(const QString& file, const QByteArray& source, QObject* parent)
    : QObject(parent)
    , d(new ICISettingsPrivate(file))
{
    d->sourceInMemory = true;
    d->texts.insert(d->absoluteFile, source);
}

ICISettings::~ICISettings() = default;

QString ICISettings::file() const
{
    return d->file;
}

bool ICISettings::hasError() const
{
    return !d->errorString.isEmpty();
}

QString ICISettings::errorString() const
{
    return d->errorString;
}

bool ICISettings::evaluate(bool keepValues, bool strict)
{
    if (!d->texts.contains(d->absoluteFile) && !d->readMainFile())
        return false;

    QVariantMap values;
    QStringList files;
    QString error;
    bool ok = false;
    {
        Evaluation evaluation(d.get(), keepValues, strict);
        ok = evaluation.run(&values, &files, &error);
    }
    if (!ok) {
        d->errorString = error.isEmpty() ? QStringLiteral("%1: evaluation failed").arg(d->absoluteFile) : error;
        return false;
    }
    d->errorString.clear();
    d->setValues(values);
    d->files = files;
    // Texts of files that are no longer included are dropped; the rest stay for reload().
    for (auto it = d->texts.begin(); it != d->texts.end();) {
        if (files.contains(it.key()))
            ++it;
        else
            it = d->texts.erase(it);
    }
    return true;
}

bool ICISettings::reload()
{
    if (!d->sourceInMemory) {
        d->texts.remove(d->absoluteFile);
        if (!d->readMainFile())
            return false;
    }
    for (auto it = d->texts.begin(); it != d->texts.end();) {
        if (it.key() == d->absoluteFile) {
            ++it;
            continue;
        }
        QFile input(it.key());
        if (input.open(QIODevice::ReadOnly)) {
            *it = input.readAll();
            ++it;
        } else {
            // Read again, and reported, by the evaluation that still includes it.
            it = d->texts.erase(it);
        }
    }
    d->errorString.clear();
    return true;
}

QStringList ICISettings::files() const
{
    return d->files;
}

QStringList ICISettings::keys() const
{
    return d->keys;
}

bool ICISettings::contains(const QString& key) const
{
    return value(key).isValid();
}

QVariant ICISettings::value(const QString& key, const QVariant& defaultValue) const
{
    const auto exact = d->values.constFind(key);
    if (exact != d->values.cend())
        return *exact;
    if (!key.contains(QLatin1Char('.')))
        return defaultValue;

    // Settings are read all the time: walk the nested maps in place, with components that
    // point into `key` instead of copies of it.
    const QVariantMap* map = &d->values;
    qsizetype start = 0;
    for (;;) {
        const qsizetype dot = key.indexOf(QLatin1Char('.'), start);
        const qsizetype end = dot < 0 ? key.size() : dot;
        const QString component = QString::fromRawData(key.constData() + start, end - start);
        const auto it = map->constFind(component);
        if (it == map->cend())
            return defaultValue;
        if (dot < 0)
            return *it;
        if (it->typeId() != QMetaType::QVariantMap)
            return defaultValue;
        map = static_cast<const QVariantMap*>(it->constData());
        start = dot + 1;
    }
}

QVariantMap ICISettings::values() const
{
    return d->values;
}

void ICISettings::setValue(const QString& key, const QVariant& value)
{
    if (key.isEmpty())
        return;
    const QStringList components = key.split(QLatin1Char('.'));
    setPath(d->presets, components, 0, value);
    QVariantMap values = d->values;
    setPath(values, components, 0, value);
    d->setValues(values);
}

void ICISettings::createFunction(const QString& name, Function handler, void* userData)
{
    d->functions.removeIf([&](const NativeFunction& function) { return function.name == name; });
    if (handler && !name.isEmpty())
        d->functions.append(NativeFunction{name, handler, userData});
}

void ICISettings::setInstructionLimit(qint64 instructions)
{
    d->instructionLimit = qMax<qint64>(0, instructions);
}

qint64 ICISettings::instructionLimit() const
{
    return d->instructionLimit;
}

void ICISettings::setMemoryLimit(qint64 bytes)
{
    d->memoryLimit = qMax<qint64>(0, bytes);
}

qint64 ICISettings::memoryLimit() const
{
    return d->memoryLimit;
}

void ICISettings::setTimeLimit(qint64 milliseconds)
{
    d->timeLimit = qMax<qint64>(0, milliseconds);
}

qint64 ICISettings::timeLimit() const
{
    return d->timeLimit;
}

} // namespace tvl
