#pragma once

#include <QtCore/QtGlobal>

#include <cstdint>

namespace tvl::vantor {

/**
 * Content-defined chunking (FastCDC with normalised chunking): cut points follow the content,
 * so bytes inserted or removed in a file move the boundaries near the edit only.
 */
class Chunker
{
public:
    static constexpr qint64 DefaultMinimum = 16 * 1024;
    static constexpr qint64 DefaultAverage = 64 * 1024;
    static constexpr qint64 DefaultMaximum = 256 * 1024;

    Chunker(qint64 minimum = DefaultMinimum, qint64 average = DefaultAverage, qint64 maximum = DefaultMaximum);

    qint64 minimum() const { return m_minimum; }
    qint64 average() const { return m_average; }
    qint64 maximum() const { return m_maximum; }

    /// The length of the chunk that starts at `data`. The caller offers maximum() bytes, or
    /// all that is left of the file when less remains.
    qint64 cut(const uchar* data, qint64 available) const;

private:
    qint64 m_minimum;
    qint64 m_average;
    qint64 m_maximum;
    uint64_t m_maskSmall;
    uint64_t m_maskLarge;
};

} // namespace tvl::vantor
