#pragma once

// Checks on the text of a configuration script before the interpreter sees it.

#include <QtCore/QByteArray>

namespace tvl::script {

/// The line (1-based) of the first byte that is not valid UTF-8, or 0 when the text is valid.
int invalidUtf8Line(const QByteArray& text);

/// Whether `text` holds nothing but white space: an editor that truncates a file before it
/// writes it must not wipe the settings.
bool isBlank(const QByteArray& text);

} // namespace tvl::script
