#pragma once

// Reading the text of a configuration script, and checks on it before the interpreter sees it.

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tvl::script {

/// The largest script file that is read.
constexpr qint64 MaximumFileSize = 16 * 1024 * 1024;

/**
 * Reads the regular file at `path`, of at most MaximumFileSize bytes. Anything else (a
 * directory, a FIFO, a device, a larger file) is refused without being read, and without
 * waiting on a FIFO. False with `reason` set when the text cannot be had.
 */
bool readScriptFile(const QString& path, QByteArray* text, QString* reason);

/// The line (1-based) of the first byte that is not valid UTF-8, or 0 when the text is valid.
int invalidUtf8Line(const QByteArray& text);

/// Whether `text` holds nothing but white space: an editor that truncates a file before it
/// writes it must not wipe the settings.
bool isBlank(const QByteArray& text);

} // namespace tvl::script
