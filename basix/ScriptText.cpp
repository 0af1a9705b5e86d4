#include "ScriptText_p.h"

namespace tvl::script {

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
