#include "MainWindow.h"

#include "DeveloperPanel.h"
#include "SettingsDialog.h"
#include "TrailerView.h"

#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/UiUtils.h>
#include <libupdater/UpdaterLogCollector.h>
#include <libupdater/UpdaterPluginApi.h>

#include <QtCore/QEvent>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>
#include <QtCore/QUrl>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QListWidget>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSplitter>
#include <QtWidgets/QStackedWidget>
#include <QtWidgets/QTextBrowser>
#include <QtWidgets/QVBoxLayout>

using namespace tvl::updater;
using tvl::vantor::Progress;

namespace {
constexpr int ProjectIdRole = Qt::UserRole;
constexpr int ProgressSteps = 1000;
const QSize IconSize(32, 32);

QString stageText(Progress::Stage stage)
{
    switch (stage) {
    case Progress::Checking:
        return MainWindow::tr("Checking");
    case Progress::Downloading:
        return MainWindow::tr("Downloading");
    case Progress::Patching:
        return MainWindow::tr("Assembling files");
    case Progress::Verifying:
        return MainWindow::tr("Verifying");
    case Progress::Finishing:
        return MainWindow::tr("Finishing");
    default:
        return MainWindow::tr("Working");
    }
}
} // namespace

MainWindow::MainWindow(UpdaterPluginApi* api, QWidget* parent)
    : QMainWindow(parent)
    , m_api(api)
    , m_projects(new QListWidget)
    , m_projectsLabel(new QLabel)
    , m_title(new QLabel)
    , m_media(new QStackedWidget)
    , m_banner(new QLabel)
    , m_trailer(new TrailerView)
    , m_news(new QTextBrowser)
    , m_newsLabel(new QLabel)
    , m_mainButton(new QPushButton)
    , m_settingsButton(new QPushButton)
    , m_checkButton(new QPushButton)
    , m_progress(new QProgressBar)
    , m_progressText(new QLabel)
    , m_status(new QLabel)
    , m_developer(new DeveloperPanel)
    , m_splitter(new QSplitter(Qt::Horizontal))
{
    setObjectName(QStringLiteral("mainWindow"));
    m_projects->setObjectName(QStringLiteral("projectList"));
    m_title->setObjectName(QStringLiteral("projectTitle"));
    m_media->setObjectName(QStringLiteral("mediaStack"));
    m_banner->setObjectName(QStringLiteral("banner"));
    m_news->setObjectName(QStringLiteral("newsView"));
    m_mainButton->setObjectName(QStringLiteral("mainButton"));
    m_settingsButton->setObjectName(QStringLiteral("settingsButton"));
    m_checkButton->setObjectName(QStringLiteral("checkButton"));
    m_progress->setObjectName(QStringLiteral("progressBar"));
    m_progressText->setObjectName(QStringLiteral("progressText"));
    m_status->setObjectName(QStringLiteral("statusText"));

    m_projects->setIconSize(IconSize);
    m_projects->setSelectionMode(QAbstractItemView::SingleSelection);
    m_projectsLabel->setBuddy(m_projects);
    m_newsLabel->setBuddy(m_news);
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    m_banner->setAlignment(Qt::AlignCenter);
    m_banner->setMinimumSize(320, 180);
    m_banner->setScaledContents(false);
    m_media->addWidget(m_banner);
    m_media->addWidget(m_trailer);
    m_news->setOpenExternalLinks(true);
    m_progress->setRange(0, ProgressSteps);
    m_progress->setValue(0);
    m_progressText->setWordWrap(true);
    m_mainButton->setDefault(true);
    m_mainButton->setMinimumWidth(160);
    m_status->setWordWrap(true);

    auto* left = new QWidget;
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->addWidget(m_projectsLabel);
    leftLayout->addWidget(m_projects, 1);
    leftLayout->addWidget(m_checkButton);
    leftLayout->addWidget(m_settingsButton);

    auto* actionRow = new QHBoxLayout;
    auto* progressColumn = new QVBoxLayout;
    progressColumn->addWidget(m_progress);
    progressColumn->addWidget(m_progressText);
    actionRow->addLayout(progressColumn, 1);
    actionRow->addWidget(m_mainButton);

    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->addWidget(m_title);
    rightLayout->addWidget(m_media, 3);
    rightLayout->addWidget(m_newsLabel);
    rightLayout->addWidget(m_news, 1);
    rightLayout->addLayout(actionRow);
    rightLayout->addWidget(m_status);

    m_splitter->addWidget(left);
    m_splitter->addWidget(right);
    m_splitter->addWidget(m_developer);
    m_splitter->setStretchFactor(0, 1);
    m_splitter->setStretchFactor(1, 3);
    m_splitter->setStretchFactor(2, 2);
    m_splitter->setChildrenCollapsible(false);
    m_projects->setMinimumWidth(220);
    setCentralWidget(m_splitter);
    resize(1000, 620);

    setTabOrder(m_projects, m_mainButton);
    setTabOrder(m_mainButton, m_news);
    setTabOrder(m_news, m_checkButton);
    setTabOrder(m_checkButton, m_settingsButton);

    connect(m_projects, &QListWidget::currentItemChanged, this, &MainWindow::showSelected);
    connect(m_mainButton, &QPushButton::clicked, this, &MainWindow::runMainAction);
    connect(m_settingsButton, &QPushButton::clicked, this, &MainWindow::openSettings);
    connect(m_checkButton, &QPushButton::clicked, this, &MainWindow::checkRequested);

    setWindowIcon(tv_icon(Icons::OptionsIcon));
    m_settingsButton->setIcon(tv_icon(Icons::OptionsIcon));
    m_checkButton->setIcon(tv_icon(Icons::ResetIcon));
    updateDeveloperMode();
    retranslate();
}

MainWindow::~MainWindow()
{
    delete m_settings;
}

void MainWindow::setEngine(IUpdateEngine* engine)
{
    if (m_engine == engine)
        return;
    m_engine = engine;
    connect(engine, qOverload<const QString&, IUpdateEngine::UpdateState>(&IUpdateEngine::stateChanged), this,
            &MainWindow::onState);
    connect(engine, &IUpdateEngine::progress, this, &MainWindow::onProgress);
    connect(engine, &IUpdateEngine::projectUpdated, this, &MainWindow::onUpdated);
    connect(engine, &IUpdateEngine::projectChanged, this, &MainWindow::refreshProject);
    refreshProjects();
}

void MainWindow::setErrorManager(IUpdaterErrorManager* manager)
{
    m_developer->setErrorManager(manager);
}

void MainWindow::setLogCollector(UpdaterLogCollector* collector)
{
    m_developer->setLogCollector(collector);
}

void MainWindow::settingChanged(const QString& key)
{
    if (key == QLatin1String("dev_mode"))
        updateDeveloperMode();
    else if (key == QLatin1String("projects") || key.startsWith(QLatin1String("projects.")))
        refreshProjects();
}

QVariantMap MainWindow::info(const QString& project) const
{
    QVariantMap info;
    if (!project.isEmpty())
        m_api->callInPlugin(QStringLiteral("engine"), "projectInfo", Q_ARG(QString, project), Q_ARG(QVariantMap*, &info));
    return info;
}

QString MainWindow::currentProject() const
{
    const QListWidgetItem* item = m_projects->currentItem();
    return item ? item->data(ProjectIdRole).toString() : QString();
}

QString MainWindow::displayName(const QString& project) const
{
    const QString name = info(project).value(QStringLiteral("name")).toString();
    return name.isEmpty() ? project : name;
}

void MainWindow::refreshProjects()
{
    QStringList ids = m_engine ? m_engine->projects() : QStringList();
    // Games the settings name but the engine does not run (yet) are listed too, as not examined.
    const QVariant table = m_api->getSetting(QStringLiteral("projects"));
    if (table.typeId() == QMetaType::QVariantMap)
        ids += table.toMap().keys();
    ids.removeDuplicates();

    const QString selected = currentProject();
    for (int row = m_projects->count() - 1; row >= 0; --row) {
        if (!ids.contains(m_projects->item(row)->data(ProjectIdRole).toString()))
            delete m_projects->takeItem(row);
    }
    for (const QString& id : std::as_const(ids)) {
        bool known = false;
        for (int row = 0; row < m_projects->count() && !known; ++row)
            known = m_projects->item(row)->data(ProjectIdRole).toString() == id;
        if (!known) {
            auto* item = new QListWidgetItem(m_projects);
            item->setData(ProjectIdRole, id);
        }
        refreshProject(id);
    }
    if (!m_projects->currentItem() && m_projects->count() > 0)
        m_projects->setCurrentRow(0);
    else if (currentProject() == selected)
        showSelected();
}

void MainWindow::refreshProject(const QString& project)
{
    bool listed = false;
    for (int row = 0; row < m_projects->count() && !listed; ++row)
        listed = m_projects->item(row)->data(ProjectIdRole).toString() == project;
    if (!listed) {
        // A game the engine has just come to know.
        if (m_engine && m_engine->projects().contains(project))
            refreshProjects();
        return;
    }
    for (int row = 0; row < m_projects->count(); ++row) {
        QListWidgetItem* item = m_projects->item(row);
        if (item->data(ProjectIdRole).toString() != project)
            continue;
        const QVariantMap details = info(project);
        const QString name = details.value(QStringLiteral("name"), project).toString();
        const QString installed = details.value(QStringLiteral("installedVersion")).toString();
        const auto state = m_engine ? m_engine->projectState(project) : IUpdateEngine::UpdateState();
        const QString text = stateText(state, installed, details.value(QStringLiteral("availableVersion")).toString());
        // Without an installed version the state says it all ("Not installed").
        const QString line = installed.isEmpty() ? text : tr("version %1").arg(installed) + QStringLiteral(" - ") + text;
        item->setText(QStringLiteral("%1\n%2").arg(name, line));
        item->setData(Qt::AccessibleTextRole, QStringLiteral("%1, %2").arg(name, line));
        const QString icon = details.value(QStringLiteral("icon")).toString();
        item->setIcon(icon.isEmpty() ? tv_icon(Icons::EulaIcon) : tv_icon_from_path(QVariant(icon)));
        if (project == currentProject())
            updateButton();
    }
}

void MainWindow::showSelected()
{
    const QString project = currentProject();
    const QVariantMap details = info(project);
    m_title->setText(details.value(QStringLiteral("name"), project).toString());
    m_news->setPlainText(details.value(QStringLiteral("news")).toString());

    // The game's banner, else its icon, else a built-in one; made smaller to fit, never blown up.
    QPixmap banner;
    for (const char* key : {"banner", "icon"}) {
        const QString file = details.value(QLatin1String(key)).toString();
        if (banner.isNull() && !file.isEmpty())
            banner = QPixmap(file);
    }
    if (banner.isNull())
        banner = tv_icon(Icons::EulaIcon).pixmap(64, 64);
    const QSize room = m_banner->size().expandedTo(QSize(320, 180));
    if (banner.width() > room.width() || banner.height() > room.height())
        banner = banner.scaled(room, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    m_banner->setPixmap(banner);
    m_banner->setAccessibleName(tr("Banner of %1").arg(m_title->text()));

    const QString trailer = details.value(QStringLiteral("trailer")).toString();
    const QUrl url = trailer.isEmpty() ? QUrl() : QUrl::fromUserInput(trailer, QString(), QUrl::AssumeLocalFile);
    if (!url.isEmpty() && m_trailer->play(url)) {
        m_media->setCurrentWidget(m_trailer);
    } else {
        m_trailer->stop();
        m_media->setCurrentWidget(m_banner);
    }
    showProgressText();
    updateButton();
}

void MainWindow::updateButton()
{
    const QString project = currentProject();
    const auto state = m_engine && !project.isEmpty() ? m_engine->projectState(project) : IUpdateEngine::UpdateState();
    const bool paused = info(project).value(QStringLiteral("paused")).toBool();
    m_action = mainActionFor(state, paused);
    m_mainButton->setText(mainActionText(m_action));
    m_mainButton->setAccessibleName(project.isEmpty() ? mainActionText(m_action)
                                                      : QStringLiteral("%1 %2").arg(mainActionText(m_action), m_title->text()));
    m_mainButton->setEnabled(mainActionSlot(m_action) != nullptr);
    m_progress->setVisible(state.testFlag(IUpdateEngine::Updating));
    m_progressText->setVisible(state.testFlag(IUpdateEngine::Updating));
}

void MainWindow::runMainAction()
{
    const QString project = currentProject();
    const char* slot = mainActionSlot(m_action);
    if (project.isEmpty() || !slot)
        return;
    m_status->clear();
    m_api->callInPlugin(QStringLiteral("engine"), slot, Q_ARG(QString, project));
}

void MainWindow::onState(const QString& project, IUpdateEngine::UpdateState state)
{
    if (!state.testFlag(IUpdateEngine::Updating))
        m_lastProgress.remove(project);
    refreshProject(project);
    if (project == currentProject())
        showProgressText();
}

void MainWindow::onProgress(const Progress& progress)
{
    m_lastProgress.insert(progress.project, progress);
    if (progress.project == currentProject())
        showProgressText();
}

void MainWindow::showProgressText()
{
    const auto found = m_lastProgress.constFind(currentProject());
    if (found == m_lastProgress.cend()) {
        m_progress->setValue(0);
        m_progressText->clear();
        return;
    }
    const Progress& progress = *found;
    const QLocale locale;
    m_progress->setValue(int(progress.fraction() * ProgressSteps));
    QStringList parts{stageText(progress.stage)};
    if (progress.bytesTotal > 0) {
        parts.append(tr("%1 of %2").arg(locale.formattedDataSize(progress.bytesDone),
                                        locale.formattedDataSize(progress.bytesTotal)));
    }
    if (progress.bytesPerSecond > 0)
        parts.append(tr("%1/s").arg(locale.formattedDataSize(qint64(progress.bytesPerSecond))));
    if (progress.secondsLeft >= 0)
        parts.append(tv_seconds_to_userfriendly_duration(uint(progress.secondsLeft)));
    m_progressText->setText(parts.join(QStringLiteral(" - ")));
    m_progress->setAccessibleDescription(m_progressText->text());
}

void MainWindow::onUpdated(const tvl::vantor::UpdateResultPtr& result)
{
    if (!result)
        return;
    const QString name = displayName(result->project);
    m_status->setText(result->success ? tr("%1: version %2 is installed.").arg(name, result->version)
                                      : tr("%1: %2").arg(name, result->errorString));
    refreshProject(result->project);
}

void MainWindow::updateDeveloperMode()
{
    m_developer->setVisible(m_api->isDevMode());
}

void MainWindow::openSettings()
{
    if (!m_settings) {
        m_settings = new SettingsDialog(m_api, currentProject(), this);
        m_settings->setAttribute(Qt::WA_DeleteOnClose);
    }
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
}

void MainWindow::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QMainWindow::changeEvent(event);
}

void MainWindow::retranslate()
{
    setWindowTitle(tr("Game launcher"));
    m_projectsLabel->setText(tr("&Games"));
    m_newsLabel->setText(tr("&News"));
    m_settingsButton->setText(tr("&Settings..."));
    m_checkButton->setText(tr("Check for &updates"));
    m_projects->setAccessibleName(tr("Games"));
    m_news->setAccessibleName(tr("News"));
    m_settingsButton->setAccessibleName(tr("Settings"));
    m_checkButton->setAccessibleName(tr("Check every game for updates"));
    m_progress->setAccessibleName(tr("Progress"));
    m_progressText->setAccessibleName(tr("Progress details"));
    m_trailer->setAccessibleName(tr("Trailer"));
    m_developer->retranslate();
    for (int row = 0; row < m_projects->count(); ++row)
        refreshProject(m_projects->item(row)->data(ProjectIdRole).toString());
    updateButton();
    showProgressText();
}
