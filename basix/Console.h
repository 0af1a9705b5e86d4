#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QFlags>
#include <QtCore/QString>

namespace tvl {

/// Prints text on the process's console, optionally coloured.
class BASIX_EXPORT Console
{
public:
    enum Output {
        StandardOutput = 0,
        StandardError = 1
    };

    /// The eight ANSI colours; DefaultColor leaves the terminal's colour alone.
    enum Color {
        Black = 0,
        Red = 1,
        Green = 2,
        Yellow = 3,
        Blue = 4,
        Magenta = 5,
        Cyan = 6,
        White = 7,
        DefaultColor = 0xFF
    };

    enum Style {
        NoStyle = 0,
        Bold = 0x1,
        Underline = 0x2,
        Reverse = 0x4
    };
    Q_DECLARE_FLAGS(Styles, Style)

    /**
     * Writes `text` as it is (UTF-8, no line break added) and flushes the stream. Colour and
     * styles are written as ANSI escape sequences only when the stream is a terminal and the
     * environment does not set NO_COLOR; with DefaultColor and NoStyle exactly the bytes of
     * `text` are written. Safe to call from any thread; concurrent calls are not interleaved.
     */
    static void pprint(const QString& text, Output output = StandardOutput,
                       Color color = DefaultColor, Styles styles = NoStyle);
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Console::Styles)

} // namespace tvl
