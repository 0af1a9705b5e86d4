#include "Zstd_p.h"

#include <zstd.h>

namespace tvl::vantor::zstd {

QByteArray compress(QByteArrayView data, int level)
{
    // One context per thread: creating one costs more than compressing a small chunk.
    thread_local struct Context {
        ZSTD_CCtx* context = ZSTD_createCCtx();
        ~Context() { ZSTD_freeCCtx(context); }
    } compressor;
    QByteArray out(qsizetype(ZSTD_compressBound(size_t(data.size()))), Qt::Uninitialized);
    const size_t written = ZSTD_compressCCtx(compressor.context, out.data(), size_t(out.size()), data.data(),
                                             size_t(data.size()), level);
    if (ZSTD_isError(written))
        return {};
    out.truncate(qsizetype(written));
    return out;
}

QByteArray decompress(QByteArrayView data, qint64 maximumSize)
{
    thread_local struct Context {
        ZSTD_DCtx* context = ZSTD_createDCtx();
        ~Context() { ZSTD_freeDCtx(context); }
    } decompressor;
    const unsigned long long size = ZSTD_getFrameContentSize(data.data(), size_t(data.size()));
    if (size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN || size > quint64(maximumSize))
        return {};
    QByteArray out(qsizetype(size), Qt::Uninitialized);
    const size_t written = ZSTD_decompressDCtx(decompressor.context, out.data(), size_t(out.size()), data.data(),
                                               size_t(data.size()));
    if (ZSTD_isError(written) || written != size)
        return {};
    if (out.isNull())
        out = QByteArray("");
    return out;
}

} // namespace tvl::vantor::zstd
