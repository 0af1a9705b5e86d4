// Feeds arbitrary bytes to the configuration-script engine as a script. Any crash, sanitizer
// report, hang or leak is a bug: every input must end in a value set or an error message.
#include <basix/ICISettings.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>

#include <cstddef>
#include <cstdint>

namespace {

QVariant echo(tvl::ICISettingsContext* context)
{
    if (context->args().size() > 2)
        context->setErrorMessage(QStringLiteral("echo expects at most 2 arguments"));
    return context->args().value(0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray source(reinterpret_cast<const char*>(data), qsizetype(size));
    tvl::ICISettings settings(QDir::temp().filePath(QStringLiteral("fuzz/config.lua")), source);
    // Small limits keep each run short; the limits themselves are part of what is fuzzed.
    settings.setInstructionLimit(200'000);
    settings.setMemoryLimit(8 * 1024 * 1024);
    settings.setValue(QStringLiteral("root"), QStringLiteral("/opt/game"));
    settings.setValue(QStringLiteral("sys.osname"), QStringLiteral("Linux"));
    settings.createFunction(QStringLiteral("echo"), echo);
    if (settings.evaluate()) {
        for (const QString& key : settings.keys())
            (void)settings.value(key);
        (void)settings.evaluate(true, true);
    } else if (settings.errorString().isEmpty()) {
        __builtin_trap();
    }
    return 0;
}
