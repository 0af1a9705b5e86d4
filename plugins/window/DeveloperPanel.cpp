#include "DeveloperPanel.h"

#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/UpdaterLogCollector.h>

#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QListWidget>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QVBoxLayout>

using namespace tvl::updater;

namespace {
constexpr int MaxLogLines = 2000;
constexpr int ErrorIdRole = Qt::UserRole;
} // namespace

DeveloperPanel::DeveloperPanel(QWidget* parent)
    : QWidget(parent)
    , m_logLabel(new QLabel(this))
    , m_log(new QPlainTextEdit(this))
    , m_errorsLabel(new QLabel(this))
    , m_errors(new QListWidget(this))
    , m_remove(new QPushButton(this))
    , m_clear(new QPushButton(this))
{
    setObjectName(QStringLiteral("developerPanel"));
    m_log->setObjectName(QStringLiteral("logView"));
    m_log->setReadOnly(true);
    m_log->setMaximumBlockCount(MaxLogLines);
    m_log->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_errors->setObjectName(QStringLiteral("errorList"));
    m_remove->setObjectName(QStringLiteral("removeErrorButton"));
    m_clear->setObjectName(QStringLiteral("clearErrorsButton"));
    m_logLabel->setBuddy(m_log);
    m_errorsLabel->setBuddy(m_errors);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_remove);
    buttons->addWidget(m_clear);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_errorsLabel);
    layout->addWidget(m_errors, 1);
    layout->addLayout(buttons);
    layout->addWidget(m_logLabel);
    layout->addWidget(m_log, 2);

    connect(m_remove, &QPushButton::clicked, this, &DeveloperPanel::removeSelected);
    connect(m_clear, &QPushButton::clicked, this, [this] {
        if (m_manager)
            m_manager->clear();
    });
    connect(m_errors, &QListWidget::currentRowChanged, this, [this](int row) { m_remove->setEnabled(row >= 0); });
    m_remove->setEnabled(false);
    retranslate();
}

void DeveloperPanel::retranslate()
{
    m_logLabel->setText(tr("&Log"));
    m_errorsLabel->setText(tr("&Errors"));
    m_remove->setText(tr("&Remove error"));
    m_clear->setText(tr("Clear &all errors"));
    m_log->setAccessibleName(tr("Log"));
    m_errors->setAccessibleName(tr("Errors"));
    m_remove->setAccessibleName(tr("Remove the selected error"));
    m_clear->setAccessibleName(tr("Remove all errors"));
}

void DeveloperPanel::setLogCollector(UpdaterLogCollector* collector)
{
    if (m_collector == collector)
        return;
    m_collector = collector;
    m_log->clear();
    for (const UpdaterLogCollector::Line& line : collector->lines())
        appendLog(line.level, line.text);
    // The collector writes on the logger's thread: its lines arrive here queued.
    connect(collector, &UpdaterLogCollector::newLog, this, &DeveloperPanel::appendLog, Qt::QueuedConnection);
}

void DeveloperPanel::setErrorManager(IUpdaterErrorManager* manager)
{
    if (m_manager == manager)
        return;
    m_manager = manager;
    connect(manager, &IUpdaterErrorManager::errorsModified, this, &DeveloperPanel::refreshErrors);
    refreshErrors();
}

void DeveloperPanel::appendLog(int level, const QString& text)
{
    m_log->appendPlainText(QStringLiteral("[%1] %2").arg(level).arg(text));
}

void DeveloperPanel::refreshErrors()
{
    m_errors->clear();
    if (!m_manager)
        return;
    // Newest first: that is the one being looked for.
    const QList<UpdaterError> errors = m_manager->errors();
    for (auto it = errors.crbegin(); it != errors.crend(); ++it) {
        auto* item = new QListWidgetItem(QStringLiteral("%1  %2").arg(it->errorId(), it->text()), m_errors);
        item->setData(ErrorIdRole, it->errorId());
        item->setToolTip(it->details());
    }
    m_remove->setEnabled(m_errors->currentRow() >= 0);
}

void DeveloperPanel::removeSelected()
{
    const QListWidgetItem* item = m_errors->currentItem();
    if (item && m_manager)
        m_manager->removeError(item->data(ErrorIdRole).toString());
}
