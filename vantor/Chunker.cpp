#include "Chunker_p.h"

#include <array>
#include <cmath>

namespace tvl::vantor {

namespace {

// The gear table decides every cut point of every repository: it must never change.
const std::array<uint64_t, 256>& gearTable()
{
    static const std::array<uint64_t, 256> table = [] {
        std::array<uint64_t, 256> values{};
        uint64_t state = 0x7661'6e74'6f72'0001ULL; // splitmix64 from a fixed seed
        for (uint64_t& value : values) {
            uint64_t z = (state += 0x9e37'79b9'7f4a'7c15ULL);
            z = (z ^ (z >> 30)) * 0xbf58'476d'1ce4'e5b9ULL;
            z = (z ^ (z >> 27)) * 0x94d0'49bb'1331'11ebULL;
            value = z ^ (z >> 31);
        }
        return values;
    }();
    return table;
}

/// A mask of `bits` bits taken from the top of the fingerprint, where each bit depends on the
/// last 64 bytes rather than on the last few.
uint64_t topMask(int bits)
{
    return bits <= 0 ? 0 : ~uint64_t(0) << (64 - bits);
}

} // namespace

Chunker::Chunker(qint64 minimum, qint64 average, qint64 maximum)
    : m_minimum(minimum)
    , m_average(average)
    , m_maximum(maximum)
{
    const int bits = int(std::lround(std::log2(double(average))));
    // Normalised chunking, level 2: harder to cut before the average, easier after it.
    m_maskSmall = topMask(bits + 2);
    m_maskLarge = topMask(bits - 2);
}

qint64 Chunker::cut(const uchar* data, qint64 available) const
{
    if (available <= m_minimum)
        return available;
    const qint64 end = std::min(available, m_maximum);
    const qint64 normal = std::min(end, m_average);
    const auto& gear = gearTable();
    uint64_t fingerprint = 0;
    qint64 i = m_minimum;
    for (; i < normal; ++i) {
        fingerprint = (fingerprint << 1) + gear[data[i]];
        if (!(fingerprint & m_maskSmall))
            return i + 1;
    }
    for (; i < end; ++i) {
        fingerprint = (fingerprint << 1) + gear[data[i]];
        if (!(fingerprint & m_maskLarge))
            return i + 1;
    }
    return end;
}

} // namespace tvl::vantor
