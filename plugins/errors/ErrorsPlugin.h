#pragma once

#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/UpdaterPlugin.h>

/**
 * The errors reported by plugins, oldest first.
 *
 * An error counts as the same as one already kept when its errorId(), text() and details() are
 * equal: it is then kept once, moved to the end as the most recent, and its occurrences() go
 * up. Errors with the same identifier but other texts (the same failure on two files, say) are
 * kept apart. Null errors are ignored. Beyond capacity() errors, the oldest are dropped.
 * errorsModified() follows every change, and nothing else.
 *
 * What is kept is a copy of the error's code (reclassification included), texts and details
 * as they were reported, which stays readable when the plugin that reported it is gone.
 */
class ErrorManager : public tvl::updater::IUpdaterErrorManager
{
    Q_OBJECT

public:
    explicit ErrorManager(int capacity, QObject* parent = nullptr);

    void addError(const tvl::updater::UpdaterError& error) override;
    void removeError(const QString& errorId) override;
    QList<tvl::updater::UpdaterError> errors() const override;
    tvl::updater::UpdaterError lastError() const override;
    void clear() override;

    /// How many times `error` (one of errors(), or the same) was reported; 0 when it is not kept.
    Q_INVOKABLE int occurrences(const tvl::updater::UpdaterError& error) const;
    /// The most errors kept at once.
    Q_INVOKABLE int capacity() const;

private:
    qsizetype indexOf(const tvl::updater::UpdaterError& error) const;

    struct Entry
    {
        tvl::updater::UpdaterError error;
        int occurrences;
    };

    QList<Entry> m_entries;
    const int m_capacity;
};

/// Offers the ErrorManager as a service and hands it every error event, which it accepts.
class ErrorsPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
    void updaterEvent(tvl::updater::UpdaterPluginEventPtr event) override;

private:
    ErrorManager* m_manager = nullptr;
};
