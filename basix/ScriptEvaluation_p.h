#pragma once

#include "ICISettings_p.h"
#include "LuaValues_p.h"
#include "ScriptAllocator_p.h"
#include "ScriptWatchdog_p.h"

#include <QtCore/QElapsedTimer>

#include <lua.h>

namespace tvl::script {

struct TextReader;

// One run of a script in its own interpreter.
class Evaluation
{
public:
    Evaluation(ICISettingsPrivate* d, bool keepValues, bool strict);
    ~Evaluation();

    bool run(QVariantMap* result, QStringList* filesRead, QString* error);
    /// The included files that could not be read.
    QStringList missingFiles() const { return missing; }

    static Evaluation* of(lua_State* L) { return *static_cast<Evaluation**>(lua_getextraspace(L)); }

    /**
     * Charges `instructions` of work done in C by a library function called from the script;
     * raises the located limit error (which pcall cannot catch) when that exceeds the limit or
     * when the script is past its time limit.
     */
    static void charge(lua_State* L, qint64 instructions);

private:
    int chunkFor(const QString& path);
    QByteArray markerOf(const QString& path) { return fileMarker(chunkFor(path)); }
    QString finalError(QByteArray message);
    QByteArray location(int level) const;
    QString expandMarkers(const QByteArray& message) const;
    bool loadText(const QString& path, QByteArray* error);
    void abort(const QByteArray& message);
    void checkLimits(int level);
    lua::ConversionLimits conversionLimits() const;

    static QByteArray fileMarker(int index);
    static void memoryRefused(void* owner);
    static void countHook(lua_State* L, lua_Debug* debug);
    static int messageHandler(lua_State* L);
    static int include(lua_State* L);
    static int loadTextOnly(lua_State* L);
    static int protectedCall(lua_State* L);
    static int setMetatable(lua_State* L);
    static int undefinedGlobal(lua_State* L);
    static int callNative(lua_State* L);
    static int setup(lua_State* L);

    ICISettingsPrivate* d;
    bool keepValues;
    bool strict;
    QList<NativeFunction> functions;
    ScriptAllocator allocator;
    lua_State* L = nullptr;
    qint64 instructions = 0;
    QElapsedTimer clock;
    Watchdog::Entry watch;
    bool watched = false;
    bool closing = false;
    // Set once a limit is exceeded: from then on every protected call rethrows, so that a
    // script cannot catch its way past a limit.
    bool aborting = false;
    QByteArray abortMessage;
    // Set while the parser reads a file, and while the values given with setValue() are set.
    const TextReader* reading = nullptr;
    bool settingUp = false;
    QStringList chunkFiles;
    QStringList includeStack;
    QStringList filesRead;
    QStringList missing;
};

} // namespace tvl::script
