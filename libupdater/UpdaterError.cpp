#include "UpdaterError.h"
#include "UpdaterError_p.h"

namespace tvl::updater {

namespace {

/// Level 4, unknown category, type 0x0400: the code of an error given only texts.
constexpr quint32 DefaultErrorCode = UpdaterError::DefaultLevel | UpdaterError::UnknownErrorCategory | 0x0400u;

quint32 withLevel(int code)
{
    const auto word = static_cast<quint32>(code);
    return (word & UpdaterError::LevelMask) ? word : (word | UpdaterError::DefaultLevel);
}

} // namespace

IUpdaterErrorPrivate::~IUpdaterErrorPrivate() = default;

QString IUpdaterErrorPrivate::details() const
{
    return QString();
}

UpdaterErrorPrivate::UpdaterErrorPrivate(const QString& text, const QString& html, quint32 errorCode)
    : m_text(text)
    , m_html(html)
    , m_errorCode(errorCode)
{
}

UpdaterErrorPrivate::~UpdaterErrorPrivate() = default;

QString UpdaterErrorPrivate::text() const
{
    return m_text.isNull() ? m_html : m_text;
}

QString UpdaterErrorPrivate::html() const
{
    return m_html.isEmpty() ? m_text : m_html;
}

quint32 UpdaterErrorPrivate::errorCode() const
{
    return m_errorCode;
}

UpdaterError::UpdaterError()
    : d(new UpdaterErrorPrivate)
{
}

UpdaterError::UpdaterError(const QString& text, const QString& html)
    : d(new UpdaterErrorPrivate(text, html, DefaultErrorCode))
{
}

UpdaterError::UpdaterError(int code, const QString& text, const QString& html)
    : d(new UpdaterErrorPrivate(text, html, withLevel(code)))
{
}

UpdaterError::UpdaterError(IUpdaterErrorPrivate* content)
    : d(content)
{
}

UpdaterError::UpdaterError(const UpdaterError& other) = default;
UpdaterError& UpdaterError::operator=(const UpdaterError& other) = default;
UpdaterError::~UpdaterError() = default;

QString UpdaterError::text() const
{
    return d->text();
}

QString UpdaterError::html() const
{
    return d->html();
}

QString UpdaterError::details() const
{
    return d->details();
}

quint32 UpdaterError::errorCode() const
{
    const quint32 own = d->errorCode();
    return reclassification == 0 ? own : ((own & TypeMask) | reclassification);
}

quint32 UpdaterError::level() const
{
    return errorCode() & LevelMask;
}

quint32 UpdaterError::category() const
{
    return errorCode() & CategoryMask;
}

quint32 UpdaterError::type() const
{
    return d->errorCode() & TypeMask;
}

QString UpdaterError::errorId() const
{
    return QStringLiteral("U%1").arg(errorCode(), 8, 16, QLatin1Char('0')).toUpper();
}

bool UpdaterError::isNull() const
{
    return text().isEmpty() && html().isEmpty();
}

void UpdaterError::reclassify(unsigned int code)
{
    reclassification = code;
}

int registerUpdaterErrorMetaType()
{
    static const int id = qRegisterMetaType<UpdaterError>("tvl::updater::UpdaterError");
    return id;
}

} // namespace tvl::updater
