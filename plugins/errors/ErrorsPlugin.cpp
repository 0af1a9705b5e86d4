#include "ErrorsPlugin.h"

#include <basix/Logger.h>

#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginErrorEvent.h>

#include <algorithm>

using namespace tvl;
using namespace tvl::updater;

namespace {

constexpr int DefaultCapacity = 100;

bool sameError(const UpdaterError& a, const UpdaterError& b)
{
    return a.errorId() == b.errorId() && a.text() == b.text() && a.details() == b.details();
}

/**
 * What an error said when it was reported. A plugin may report an error whose content is a
 * class of its own; kept as it is, the error would call into that plugin's library once the
 * plugin is unloaded (in background mode, or at shutdown when it goes before this one).
 */
class KeptError : public IUpdaterErrorPrivate
{
public:
    explicit KeptError(const UpdaterError& error)
        : m_text(error.text())
        , m_html(error.html())
        , m_details(error.details())
        , m_code(error.errorCode())
    {
    }

    QString text() const override { return m_text; }
    QString html() const override { return m_html; }
    quint32 errorCode() const override { return m_code; }
    QString details() const override { return m_details; }

private:
    const QString m_text;
    const QString m_html;
    const QString m_details;
    const quint32 m_code;
};

} // namespace

ErrorManager::ErrorManager(int capacity, QObject* parent)
    : IUpdaterErrorManager(parent)
    , m_capacity(qMax(1, capacity))
{
    setObjectName(QStringLiteral("errors"));
}

void ErrorManager::addError(const UpdaterError& error)
{
    if (error.isNull())
        return;
    int occurrences = 1;
    if (const qsizetype same = indexOf(error); same >= 0)
        occurrences += m_entries.takeAt(same).occurrences;
    // A copy of the later report: its reclassification is what counts now.
    m_entries.append({UpdaterError(new KeptError(error)), occurrences});
    if (m_entries.size() > m_capacity)
        m_entries.remove(0, m_entries.size() - m_capacity);
    TVL_LOG(Logger::Info) << "Error" << error.errorId() << "reported" << occurrences << "time(s):" << error.text();
    Q_EMIT errorsModified();
}

void ErrorManager::removeError(const QString& errorId)
{
    if (m_entries.removeIf([&errorId](const Entry& entry) { return entry.error.errorId() == errorId; }) > 0)
        Q_EMIT errorsModified();
}

QList<UpdaterError> ErrorManager::errors() const
{
    QList<UpdaterError> result;
    result.reserve(m_entries.size());
    for (const Entry& entry : m_entries)
        result.append(entry.error);
    return result;
}

UpdaterError ErrorManager::lastError() const
{
    return m_entries.isEmpty() ? UpdaterError() : m_entries.constLast().error;
}

void ErrorManager::clear()
{
    if (m_entries.isEmpty())
        return;
    m_entries.clear();
    Q_EMIT errorsModified();
}

int ErrorManager::occurrences(const UpdaterError& error) const
{
    const qsizetype kept = indexOf(error);
    return kept >= 0 ? m_entries.at(kept).occurrences : 0;
}

qsizetype ErrorManager::indexOf(const UpdaterError& error) const
{
    const auto same = std::find_if(m_entries.cbegin(), m_entries.cend(),
                                   [&error](const Entry& entry) { return sameError(entry.error, error); });
    return same != m_entries.cend() ? same - m_entries.cbegin() : -1;
}

int ErrorManager::capacity() const
{
    return m_capacity;
}

bool ErrorsPlugin::init()
{
    bool valid = false;
    const int capacity = extraData().toMap().value(QStringLiteral("max_errors")).toInt(&valid);
    m_manager = new ErrorManager(valid && capacity > 0 ? capacity : DefaultCapacity, this);
    api()->addObject(m_manager);
    return true;
}

void ErrorsPlugin::updaterEvent(UpdaterPluginEventPtr event)
{
    if (!event || event->type() != UpdaterPluginEvent::ErrorEvent)
        return;
    const UpdaterError error = static_cast<UpdaterPluginErrorEvent*>(event.data())->error();
    if (error.isNull())
        return;
    m_manager->addError(error);
    event->accept();
}
