#include "SimpleCommandLineParser.h"

#include <QtCore/QHash>

namespace tvl {

class SimpleCommandLineParserPrivate
{
public:
    struct Occurrence
    {
        int index = -1;    ///< position of the last occurrence in the arguments
        QString value;     ///< null when the last occurrence had no "="
    };

    void parse();
    void addOption(const QString& name, const QString& value, int index);
    const Occurrence* find(const QString& name, const QChar& shortName) const;

    QStringList arguments;
    QStringList keys;
    QStringList positional;
    QHash<QString, Occurrence> options;
};

void SimpleCommandLineParserPrivate::parse()
{
    bool optionsEnded = false;
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (optionsEnded) {
            positional.append(argument);
            continue;
        }
        if (argument == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        if (!argument.startsWith(QLatin1Char('-'))) {
            positional.append(argument);
            continue;
        }

        // "-name" is read like "--name", so one or two dashes make no difference past here.
        const int dashes = argument.startsWith(QLatin1String("--")) ? 2 : 1;
        const qsizetype equals = argument.indexOf(QLatin1Char('='), dashes);
        const QString name = argument.mid(dashes, equals < 0 ? -1 : equals - dashes);
        if (name.isEmpty() || name.startsWith(QLatin1Char('-'))) {
            // "-", "-=v", "--=v" and "---x" name nothing.
            positional.append(argument);
            continue;
        }

        QString value;
        if (equals >= 0) {
            value = argument.mid(equals + 1);
            if (value.isNull()) // "--name=" is an empty value, not a missing one
                value = QStringLiteral("");
        }
        addOption(name, value, i);
    }
}

void SimpleCommandLineParserPrivate::addOption(const QString& name, const QString& value, int index)
{
    auto it = options.find(name);
    if (it == options.end()) {
        keys.append(name);
        it = options.insert(name, Occurrence());
    }
    it->index = index;
    it->value = value;
}

const SimpleCommandLineParserPrivate::Occurrence*
SimpleCommandLineParserPrivate::find(const QString& name, const QChar& shortName) const
{
    const Occurrence* found = nullptr;
    const auto longIt = options.constFind(name);
    if (longIt != options.constEnd())
        found = &*longIt;

    // A blank short name is how callers say "none" when they must pass one positionally.
    if (!shortName.isNull() && !shortName.isSpace()) {
        const auto shortIt = options.constFind(QString(shortName));
        if (shortIt != options.constEnd() && (!found || shortIt->index > found->index))
            found = &*shortIt;
    }
    return found;
}

SimpleCommandLineParser::SimpleCommandLineParser(const QStringList& arguments)
    : d(new SimpleCommandLineParserPrivate)
{
    d->arguments = arguments;
    d->parse();
}

SimpleCommandLineParser::SimpleCommandLineParser(const SimpleCommandLineParser& other)
    : d(new SimpleCommandLineParserPrivate(*other.d))
{
}

SimpleCommandLineParser& SimpleCommandLineParser::operator=(const SimpleCommandLineParser& other)
{
    if (this != &other)
        *d = *other.d;
    return *this;
}

SimpleCommandLineParser::~SimpleCommandLineParser() = default;

bool SimpleCommandLineParser::hasSwitch(const QString& name, const QChar& shortName) const
{
    return d->find(name, shortName) != nullptr;
}

QVariant SimpleCommandLineParser::option(const QString& name, const QChar& shortName,
                                         const QVariant& defaultValue) const
{
    const SimpleCommandLineParserPrivate::Occurrence* occurrence = d->find(name, shortName);
    if (!occurrence || occurrence->value.isNull())
        return defaultValue;
    return occurrence->value;
}

QStringList SimpleCommandLineParser::keys() const
{
    return d->keys;
}

QStringList SimpleCommandLineParser::positionalArguments() const
{
    return d->positional;
}

QStringList SimpleCommandLineParser::arguments() const
{
    return d->arguments;
}

} // namespace tvl
