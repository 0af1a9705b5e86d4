#include "ScriptText_p.h"

#include "LuaValues_p.h"

#include <QtCore/QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tvl::script {

bool readScriptFile(const QString& path, QByteArray* text, QString* reason)
{
    const QString tooLarge = QStringLiteral("the file is larger than %1").arg(lua::formatBytes(MaximumFileSize));
    // Opening a FIFO for reading would wait for a writer: the file is opened without waiting,
    // and its type is checked on what was opened, whatever the path pointed to a moment before.
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        *reason = qt_error_string(errno);
        return false;
    }
    struct stat status = {};
    QByteArray result;
    bool ok = ::fstat(descriptor, &status) == 0;
    if (!ok) {
        *reason = qt_error_string(errno);
    } else if (S_ISDIR(status.st_mode)) {
        *reason = QStringLiteral("it is a directory");
        ok = false;
    } else if (!S_ISREG(status.st_mode)) {
        *reason = QStringLiteral("it is not a regular file");
        ok = false;
    } else if (status.st_size > MaximumFileSize) {
        *reason = tooLarge;
        ok = false;
    }
    // Read to the end, however the size changed since: one byte past the limit is enough to
    // know that the file is too large.
    while (ok) {
        const qsizetype offset = result.size();
        result.resize(qMin<qsizetype>(offset + 64 * 1024, MaximumFileSize + 1));
        const ssize_t count = ::read(descriptor, result.data() + offset, size_t(result.size() - offset));
        if (count < 0 && errno == EINTR) {
            result.resize(offset);
            continue;
        }
        if (count < 0) {
            *reason = qt_error_string(errno);
            ok = false;
            break;
        }
        result.resize(offset + count);
        if (result.size() > MaximumFileSize) {
            *reason = tooLarge;
            ok = false;
        }
        if (count == 0)
            break;
    }
    ::close(descriptor);
    if (ok)
        *text = result;
    return ok;
}

int invalidUtf8Line(const QByteArray& text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.constData());
    const qsizetype size = text.size();
    int line = 1;
    for (qsizetype i = 0; i < size;) {
        const unsigned char lead = bytes[i];
        if (lead < 0x80) {
            if (lead == '\n')
                ++line;
            ++i;
            continue;
        }
        int continuation = 0;
        char32_t codePoint = 0;
        char32_t minimum = 0;
        if ((lead & 0xE0) == 0xC0) {
            continuation = 1;
            codePoint = lead & 0x1F;
            minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            continuation = 2;
            codePoint = lead & 0x0F;
            minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            continuation = 3;
            codePoint = lead & 0x07;
            minimum = 0x10000;
        } else {
            return line;
        }
        for (int k = 1; k <= continuation; ++k) {
            if (i + k >= size || (bytes[i + k] & 0xC0) != 0x80)
                return line;
            codePoint = (codePoint << 6) | (bytes[i + k] & 0x3F);
        }
        if (codePoint < minimum || codePoint > 0x10FFFF
            || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return line;
        i += continuation + 1;
    }
    return 0;
}

bool isBlank(const QByteArray& text)
{
    for (char c : text) {
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != '\v')
            return false;
    }
    return true;
}

} // namespace tvl::script
