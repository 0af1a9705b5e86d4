#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

namespace tvl::vantor::zstd {

constexpr int DefaultLevel = 3;

QByteArray compress(QByteArrayView data, int level = DefaultLevel);
/// The decompressed bytes, or a null array when `data` is not one whole zstd frame whose
/// content is at most `maximumSize` bytes.
QByteArray decompress(QByteArrayView data, qint64 maximumSize);

} // namespace tvl::vantor::zstd
