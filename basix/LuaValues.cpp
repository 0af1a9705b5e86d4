#include "LuaValues_p.h"

#include <QtCore/QAssociativeIterable>
#include <QtCore/QLocale>
#include <QtCore/QSequentialIterable>

#include <lauxlib.h>

#include <vector>

namespace tvl::lua {

namespace {

// What the QVariants built take, near enough: the variant, and the data it points to with the
// header of its allocation.
constexpr qint64 VariantSize = sizeof(QVariant);
constexpr qint64 AllocationSize = 32;
constexpr qint64 MapNodeSize = 48;
// Values converted between two looks at the clock.
constexpr int ClockInterval = 4096;

struct Converter
{
    // A step from a table to one of its values: a key of a map, or an index of a list.
    struct Step
    {
        QString key;
        lua_Integer index;
    };

    lua_State* L;
    ConversionLimits& limits;
    QString root;
    std::vector<const void*> openTables;
    // Where the conversion is, kept as steps: the text is only needed for a message.
    std::vector<Step> steps;
    QString error;
    int untilClock = ClockInterval;

    QString path() const
    {
        QString text = root;
        for (const Step& step : steps) {
            if (step.key.isNull())
                text += QLatin1Char('[') + QString::number(step.index) + QLatin1Char(']');
            else
                text = text.isEmpty() ? step.key : text + QLatin1Char('.') + step.key;
        }
        return text;
    }

    // Counts `bytes` more; false with the error set when that is past a limit.
    bool take(qint64 bytes)
    {
        limits.used += bytes;
        if (limits.memory > 0 && limits.used > limits.memory) {
            error = QStringLiteral("the value of '%1' exceeds the memory limit of %2")
                        .arg(root, formatBytes(limits.memory));
            return false;
        }
        if (limits.overdue && --untilClock == 0) {
            untilClock = ClockInterval;
            if (limits.overdue->load(std::memory_order_relaxed)) {
                error = QStringLiteral("the value of '%1' exceeds the time limit of %2 ms")
                            .arg(root)
                            .arg(limits.milliseconds);
                return false;
            }
        }
        return true;
    }

    static qint64 stringSize(qsizetype length)
    {
        return AllocationSize + qint64(length) * qint64(sizeof(QChar));
    }

    static QString keyText(lua_State* L, int index)
    {
        switch (lua_type(L, index)) {
        case LUA_TSTRING: {
            size_t length = 0;
            const char* text = lua_tolstring(L, index, &length);
            return QString::fromUtf8(text, qsizetype(length));
        }
        case LUA_TNUMBER:
            if (lua_isinteger(L, index))
                return QString::number(lua_tointeger(L, index));
            return QString::number(lua_tonumber(L, index), 'g', QLocale::FloatingPointShortest);
        case LUA_TBOOLEAN:
            return lua_toboolean(L, index) ? QStringLiteral("true") : QStringLiteral("false");
        default:
            return QString();
        }
    }

    // A table is a sequence when its keys are exactly 1..n. lua_rawlen gives a border, which
    // only equals n when there are no holes, so the keys are counted as well.
    static bool isSequence(lua_State* L, int index, lua_Integer* length)
    {
        const lua_Integer border = lua_Integer(lua_rawlen(L, index));
        lua_Integer count = 0;
        lua_pushnil(L);
        while (lua_next(L, index) != 0) {
            lua_pop(L, 1);
            if (++count > border) {
                lua_pop(L, 1);
                return false;
            }
        }
        if (count != border)
            return false;
        for (lua_Integer i = 1; i <= border; ++i) {
            const bool present = lua_rawgeti(L, index, i) != LUA_TNIL;
            lua_pop(L, 1);
            if (!present)
                return false;
        }
        *length = border;
        return true;
    }

    bool convert(int index, QVariant* result)
    {
        index = lua_absindex(L, index);
        if (!take(VariantSize))
            return false;
        switch (lua_type(L, index)) {
        case LUA_TBOOLEAN:
            *result = bool(lua_toboolean(L, index));
            return true;
        case LUA_TNUMBER:
            if (lua_isinteger(L, index))
                *result = qlonglong(lua_tointeger(L, index));
            else
                *result = double(lua_tonumber(L, index));
            return true;
        case LUA_TSTRING: {
            size_t length = 0;
            const char* text = lua_tolstring(L, index, &length);
            // UTF-8 never takes fewer bytes than UTF-16 code units.
            if (!take(stringSize(qsizetype(length))))
                return false;
            *result = QString::fromUtf8(text, qsizetype(length));
            return true;
        }
        case LUA_TTABLE:
            return convertTable(index, result);
        default:
            *result = QVariant();
            return true;
        }
    }

    bool convertTable(int index, QVariant* result)
    {
        const void* table = lua_topointer(L, index);
        for (const void* open : openTables) {
            if (open == table) {
                error = QStringLiteral("the value of '%1' contains itself").arg(path());
                return false;
            }
        }
        if (int(openTables.size()) >= MaximumNesting) {
            error = QStringLiteral("the value of '%1' nests more than %2 tables deep")
                        .arg(path())
                        .arg(MaximumNesting);
            return false;
        }
        if (!lua_checkstack(L, 4)) {
            error = QStringLiteral("the value of '%1' nests too deeply").arg(path());
            return false;
        }
        openTables.push_back(table);

        lua_Integer length = 0;
        bool ok = take(AllocationSize);
        if (ok && isSequence(L, index, &length)) {
            QVariantList list;
            // Not more than the limit can hold: the items are counted as they are built.
            const qint64 room = limits.memory > 0 ? qMax<qint64>(0, limits.memory - limits.used) / VariantSize : length;
            list.reserve(qsizetype(qMin<qint64>(length, room)));
            for (lua_Integer i = 1; ok && i <= length; ++i) {
                lua_rawgeti(L, index, i);
                QVariant item;
                steps.push_back(Step{QString(), i});
                ok = convert(-1, &item);
                steps.pop_back();
                lua_pop(L, 1);
                list.append(item);
            }
            *result = list;
        } else if (ok) {
            QVariantMap map;
            lua_pushnil(L);
            while (lua_next(L, index) != 0) {
                const QString key = keyText(L, -2);
                if (!key.isNull() && ok) {
                    QVariant item;
                    steps.push_back(Step{key, 0});
                    ok = take(MapNodeSize + stringSize(key.size())) && convert(-1, &item);
                    steps.pop_back();
                    if (item.isValid())
                        map.insert(key, item);
                }
                lua_pop(L, 1);
                if (!ok) {
                    lua_pop(L, 1);
                    break;
                }
            }
            *result = map;
        }
        openTables.pop_back();
        return ok;
    }
};

} // namespace

QString formatBytes(qint64 bytes)
{
    if (bytes % (1024 * 1024) == 0)
        return QStringLiteral("%1 MiB").arg(bytes / (1024 * 1024));
    if (bytes % 1024 == 0)
        return QStringLiteral("%1 KiB").arg(bytes / 1024);
    return QStringLiteral("%1 bytes").arg(bytes);
}

bool toVariant(lua_State* L, int index, const QString& path, QVariant* result, QString* error,
               ConversionLimits* limits)
{
    ConversionLimits unlimited;
    Converter converter{L, limits ? *limits : unlimited, path, {}, {}, {}};
    if (converter.convert(index, result))
        return true;
    *result = QVariant();
    if (error)
        *error = converter.error;
    return false;
}

void pushString(lua_State* L, const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    lua_pushlstring(L, utf8.constData(), size_t(utf8.size()));
}

void pushVariant(lua_State* L, const QVariant& value, int depth)
{
    if (depth > MaximumNesting)
        luaL_error(L, "value nests more than %d tables deep", MaximumNesting);
    luaL_checkstack(L, 3, "value nests too deeply");

    switch (value.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        lua_pushnil(L);
        return;
    case QMetaType::Bool:
        lua_pushboolean(L, value.toBool());
        return;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        lua_pushinteger(L, lua_Integer(value.toLongLong()));
        return;
    case QMetaType::ULong:
    case QMetaType::ULongLong: {
        const qulonglong number = value.toULongLong();
        if (number <= qulonglong(LUA_MAXINTEGER))
            lua_pushinteger(L, lua_Integer(number));
        else
            lua_pushnumber(L, lua_Number(number));
        return;
    }
    case QMetaType::Double:
    case QMetaType::Float:
        lua_pushnumber(L, lua_Number(value.toDouble()));
        return;
    case QMetaType::QString:
        pushString(L, value.toString());
        return;
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        lua_pushlstring(L, bytes.constData(), size_t(bytes.size()));
        return;
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        const QAssociativeIterable map = value.value<QAssociativeIterable>();
        lua_createtable(L, 0, int(qMin<qsizetype>(map.size(), 1 << 20)));
        for (auto it = map.begin(); it != map.end(); ++it) {
            pushString(L, it.key().toString());
            pushVariant(L, it.value(), depth + 1);
            lua_rawset(L, -3);
        }
        return;
    }
    default:
        break;
    }

    if (value.canConvert<QVariantList>() && value.typeId() != QMetaType::QString) {
        const QSequentialIterable list = value.value<QSequentialIterable>();
        lua_createtable(L, int(qMin<qsizetype>(list.size(), 1 << 20)), 0);
        lua_Integer index = 0;
        for (const QVariant& item : list) {
            pushVariant(L, item, depth + 1);
            lua_rawseti(L, -2, ++index);
        }
        return;
    }
    if (value.canConvert<QString>()) {
        pushString(L, value.toString());
        return;
    }
    lua_pushnil(L);
}

} // namespace tvl::lua
