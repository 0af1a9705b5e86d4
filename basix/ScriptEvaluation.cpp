#include "ScriptEvaluation_p.h"

#include "DottedMap_p.h"
#include "LuaValues_p.h"
#include "ScriptGuards_p.h"
#include "ScriptText_p.h"

#include <lauxlib.h>
#include <lualib.h>

#include <climits>
#include <cstring>

namespace tvl::script {

namespace {

constexpr int MaximumIncludeDepth = 64;
constexpr int HookInterval = 1000;
constexpr char BuiltinsKey[] = "tvl.builtins";

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

// The parser runs in C and never reaches a hook: it gets a text in pieces of at most this size,
// and between two of them a script that is past its time limit is stopped.
constexpr size_t TextPiece = 64 * 1024;

} // namespace

// A file's text for the parser, a line at a time (long lines in pieces): the parser gives no
// account of where it is, and a limit hit while it reads is reported at the line it was given.
struct TextReader
{
    const char* data;
    size_t left;
    int chunk;
    int line = 0;
    bool lineEnded = true;
};

namespace {

const char* readText(lua_State* L, void* data, size_t* size)
{
    auto* reader = static_cast<TextReader*>(data);
    Evaluation::charge(L, 0);
    *size = 0;
    if (reader->left == 0)
        return nullptr;
    const size_t most = qMin(reader->left, TextPiece);
    const void* newline = std::memchr(reader->data, '\n', most);
    *size = newline ? size_t(static_cast<const char*>(newline) - reader->data) + 1 : most;
    if (reader->lineEnded)
        ++reader->line;
    reader->lineEnded = newline != nullptr;
    const char* piece = reader->data;
    reader->data += *size;
    reader->left -= *size;
    return piece;
}

// The same as a function chunk for load(): the string in upvalue 1 from the offset in upvalue 2.
int readPiece(lua_State* L)
{
    Evaluation::charge(L, 0);
    size_t length = 0;
    const char* text = lua_tolstring(L, lua_upvalueindex(1), &length);
    const auto offset = size_t(lua_tointeger(L, lua_upvalueindex(2)));
    const size_t piece = qMin(length - offset, TextPiece);
    if (piece == 0)
        return 0;
    lua_pushinteger(L, lua_Integer(offset + piece));
    lua_replace(L, lua_upvalueindex(2));
    lua_pushlstring(L, text + offset, piece);
    return 1;
}

} // namespace

// Chunks are named with a short marker ("\x01" index "\x02") instead of their path: Lua cuts
// chunk names in messages to 60 bytes, and paths are often longer. The markers are replaced by
// the full paths once a message leaves the interpreter.
QByteArray Evaluation::fileMarker(int index)
{
    return '\x01' + QByteArray::number(index) + '\x02';
}

Evaluation::Evaluation(ICISettingsPrivate* d, bool keepValues, bool strict)
    : d(d)
    , keepValues(keepValues)
    , strict(strict)
    , functions(d->functions)
    , allocator(d->memoryLimit, memoryRefused, this)
{
}

Evaluation::~Evaluation()
{
    if (watched)
        Watchdog::unwatch(&watch);
    if (L) {
        closing = true;
        lua_sethook(L, nullptr, 0, 0);
        lua_close(L);
    }
}

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
    // Without a line, the message says why there is none.
    if (!hasLocation(message))
        message.prepend(markerOf(d->absoluteFile) + (settingUp ? ": before the script ran: " : ": "));
    return expandMarkers(message);
}

// "<marker>:<line>: " of the innermost running function that belongs to one of our files, or
// an empty string when none does.
QByteArray Evaluation::location(int level) const
{
    if (reading && reading->line > 0)
        return fileMarker(reading->chunk) + ':' + QByteArray::number(reading->line) + ": ";
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
        QByteArray text;
        QString reason;
        if (!readScriptFile(path, &text, &reason)) {
            *error = QStringLiteral("cannot read '%1': %2").arg(path, reason).toUtf8();
            if (path != d->absoluteFile && !missing.contains(path))
                missing.append(path);
            return false;
        }
        d->texts.insert(path, text);
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
    TextReader reader{text.constData(), size_t(text.size()), chunkFor(path)};
    reading = &reader;
    const int status = lua_load(L, readText, &reader, name.constData(), "t");
    reading = nullptr;
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

void Evaluation::memoryRefused(void* owner)
{
    // The interpreter turns a refused allocation into an error without a location, so it is
    // taken here. Only growth is refused, and the interpreter's call chain is intact whenever
    // it grows something, so reading it is safe.
    auto* self = static_cast<Evaluation*>(owner);
    if (!self->aborting && !self->closing && self->L) {
        self->abort(self->location(0) + "memory limit of "
                    + lua::formatBytes(self->allocator.limit()).toUtf8() + " exceeded");
    }
}

// The settings built from the script's values are held to its limits as well: a table or a long
// string that the script references many times is built once for every reference.
lua::ConversionLimits Evaluation::conversionLimits() const
{
    lua::ConversionLimits limits;
    limits.memory = d->memoryLimit;
    if (watched) {
        limits.overdue = &watch.overdue;
        limits.milliseconds = d->timeLimit;
    }
    return limits;
}

void Evaluation::charge(lua_State* L, qint64 instructions)
{
    Evaluation* self = of(L);
    self->instructions += instructions;
    const qint64 limit = self->d->instructionLimit;
    // The running function is the library function, one level below the script.
    if ((limit > 0 && self->instructions > limit) || self->watch.overdue.load(std::memory_order_relaxed))
        self->checkLimits(1);
}

// Runs every HookInterval instructions, and once the watchdog has armed it, at every
// instruction and every function call.
void Evaluation::countHook(lua_State* L, lua_Debug* debug)
{
    Evaluation* self = of(L);
    if (debug->event == LUA_HOOKCOUNT && !self->watch.overdue.load(std::memory_order_relaxed))
        self->instructions += HookInterval;
    self->checkLimits(0);
}

// Raises the error of an exceeded limit, located at the script function `level` levels up.
void Evaluation::checkLimits(int level)
{
    // The clock as well, for when no watchdog could be had.
    const qint64 timeLimit = d->timeLimit;
    if (!aborting && timeLimit > 0
        && (watch.overdue.load(std::memory_order_acquire) || clock.hasExpired(timeLimit))) {
        abort(location(level) + "time limit of " + QByteArray::number(timeLimit) + " ms exceeded");
    }
    const qint64 limit = d->instructionLimit;
    if (!aborting && limit > 0 && instructions > limit)
        abort(location(level) + "instruction limit of " + QByteArray::number(limit) + " exceeded");
    if (aborting) {
        lua_pushlstring(L, abortMessage.constData(), size_t(abortMessage.size()));
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
    if (lua_type(L, 1) == LUA_TSTRING && lua_rawlen(L, 1) > TextPiece) {
        // A long text goes to the parser through a reader, the way a function chunk would,
        // under the name that load() gives a text.
        if (lua_isnil(L, 2)) {
            lua_pushvalue(L, 1);
            lua_replace(L, 2);
        }
        lua_pushvalue(L, 1);
        lua_pushinteger(L, 0);
        lua_pushcclosure(L, readPiece, 2);
        lua_replace(L, 1);
    }
    lua_pushvalue(L, lua_upvalueindex(1));
    lua_insert(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    // A reader stopped by a limit makes load() return its message: the limit stands.
    charge(L, 0);
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
    lua::ConversionLimits limits = self->conversionLimits();
    for (int i = 1; i <= count; ++i) {
        QVariant argument;
        QString error;
        if (!lua::toVariant(L, i, QStringLiteral("argument %1").arg(i), &argument, &error, &limits)) {
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
    lua_pop(L, 1);
    guardLibraries(L);
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
    initial = mergeDotted(initial, self->d->presets);
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
    L = lua_newstate(ScriptAllocator::allocate, &allocator);
    if (!L) {
        *error = QStringLiteral("%1: cannot create the script interpreter").arg(d->absoluteFile);
        return false;
    }
    *static_cast<Evaluation**>(lua_getextraspace(L)) = this;
    lua_sethook(L, countHook, LUA_MASKCOUNT, HookInterval);
    clock.start();
    if (d->timeLimit > 0) {
        watch.L = L;
        watch.hook = countHook;
        watch.deadline = Watchdog::Clock::now() + std::chrono::milliseconds(d->timeLimit);
        watched = Watchdog::watch(&watch);
    }

    lua_pushcfunction(L, messageHandler);
    const int handler = lua_gettop(L);

    lua_pushcfunction(L, setup);
    settingUp = true;
    int status = lua_pcall(L, 0, 0, handler);
    if (status == LUA_OK) {
        settingUp = false;
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
    lua::ConversionLimits limits = conversionLimits();
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
                if (!lua::toVariant(L, -1, name, &value, &conversionError, &limits)) {
                    // Nothing runs any more, so there is no line to point at.
                    *error = QStringLiteral("%1: at the end of the script, %2").arg(d->absoluteFile, conversionError);
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

} // namespace tvl::script
