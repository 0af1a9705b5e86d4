#pragma once

#include <QtCore/QPointer>
#include <QtWidgets/QWidget>

QT_BEGIN_NAMESPACE
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
QT_END_NAMESPACE

namespace tvl::updater {
class IUpdaterErrorManager;
class UpdaterLogCollector;
} // namespace tvl::updater

/// For developer mode: the recent log lines of the log collector and the errors the error manager keeps.
class DeveloperPanel : public QWidget
{
    Q_OBJECT

public:
    explicit DeveloperPanel(QWidget* parent = nullptr);

    void setLogCollector(tvl::updater::UpdaterLogCollector* collector);
    void setErrorManager(tvl::updater::IUpdaterErrorManager* manager);
    void retranslate();

private:
    void appendLog(int level, const QString& text);
    void refreshErrors();
    void removeSelected();

    QLabel* m_logLabel;
    QPlainTextEdit* m_log;
    QLabel* m_errorsLabel;
    QListWidget* m_errors;
    QPushButton* m_remove;
    QPushButton* m_clear;
    QPointer<tvl::updater::UpdaterLogCollector> m_collector;
    QPointer<tvl::updater::IUpdaterErrorManager> m_manager;
};
