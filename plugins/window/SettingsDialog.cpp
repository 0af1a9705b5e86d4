#include "SettingsDialog.h"

#include <libupdater/II18n.h>
#include <libupdater/ISettingsManager.h>
#include <libupdater/UpdaterPluginApi.h>

#include <QtCore/QEvent>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QListWidget>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QVBoxLayout>

using namespace tvl::updater;

namespace {
/// Plugins the launcher cannot do without, or whose switch-off would leave no way back here.
const QStringList Unswitchable = {QStringLiteral("settings"), QStringLiteral("window")};
constexpr int MaxConnections = 32;
constexpr int MaxRateKiB = 1024 * 1024;

QString languageName(const QString& code)
{
    // The plain name, not the one of a country's variant ("American English").
    if (code == QLatin1String("en"))
        return QStringLiteral("English");
    const QLocale locale(code);
    const QString native = locale.nativeLanguageName();
    return native.isEmpty() || code == QLatin1String("C") ? code : native.left(1).toUpper() + native.mid(1);
}
} // namespace

SettingsDialog::SettingsDialog(UpdaterPluginApi* api, const QString& project, QWidget* parent)
    : QDialog(parent)
    , m_api(api)
    , m_project(project)
    , m_languageLabel(new QLabel(this))
    , m_language(new QComboBox(this))
    , m_rateLabel(new QLabel(this))
    , m_rate(new QSpinBox(this))
    , m_connectionsLabel(new QLabel(this))
    , m_connections(new QSpinBox(this))
    , m_directoryLabel(new QLabel(this))
    , m_directory(new QLineEdit(this))
    , m_browse(new QPushButton(this))
    , m_pluginsLabel(new QLabel(this))
    , m_plugins(new QListWidget(this))
    , m_pluginsNote(new QLabel(this))
    , m_devMode(new QCheckBox(this))
    , m_closeToTray(new QCheckBox(this))
    , m_buttons(new QDialogButtonBox(QDialogButtonBox::Close, this))
{
    setObjectName(QStringLiteral("settingsDialog"));
    m_language->setObjectName(QStringLiteral("languageBox"));
    m_rate->setObjectName(QStringLiteral("rateLimitBox"));
    m_connections->setObjectName(QStringLiteral("connectionsBox"));
    m_directory->setObjectName(QStringLiteral("installDirEdit"));
    m_browse->setObjectName(QStringLiteral("browseButton"));
    m_plugins->setObjectName(QStringLiteral("pluginList"));
    m_devMode->setObjectName(QStringLiteral("devModeBox"));
    m_closeToTray->setObjectName(QStringLiteral("closeToTrayBox"));
    m_buttons->setObjectName(QStringLiteral("settingsButtons"));
    m_buttons->button(QDialogButtonBox::Close)->setObjectName(QStringLiteral("closeSettingsButton"));

    m_rate->setRange(0, MaxRateKiB);
    m_rate->setSingleStep(128);
    m_connections->setRange(1, MaxConnections);
    // A limit takes effect when typed in full, not at each of its digits.
    m_rate->setKeyboardTracking(false);
    m_connections->setKeyboardTracking(false);
    // Enter in a field closes the dialog (everything is saved already); it never opens the folder chooser.
    m_browse->setAutoDefault(false);
    m_buttons->button(QDialogButtonBox::Close)->setDefault(true);
    m_pluginsNote->setWordWrap(true);
    m_directory->setEnabled(!m_project.isEmpty());
    m_browse->setEnabled(!m_project.isEmpty());

    m_languageLabel->setBuddy(m_language);
    m_rateLabel->setBuddy(m_rate);
    m_connectionsLabel->setBuddy(m_connections);
    m_directoryLabel->setBuddy(m_directory);
    m_pluginsLabel->setBuddy(m_plugins);

    auto* directory = new QHBoxLayout;
    directory->addWidget(m_directory, 1);
    directory->addWidget(m_browse);
    auto* form = new QFormLayout;
    form->addRow(m_languageLabel, m_language);
    form->addRow(m_rateLabel, m_rate);
    form->addRow(m_connectionsLabel, m_connections);
    form->addRow(m_directoryLabel, directory);
    form->addRow(m_pluginsLabel, m_plugins);
    form->addRow(QString(), m_pluginsNote);
    form->addRow(QString(), m_devMode);
    form->addRow(QString(), m_closeToTray);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_buttons);

    setTabOrder(m_language, m_rate);
    setTabOrder(m_rate, m_connections);
    setTabOrder(m_connections, m_directory);
    setTabOrder(m_directory, m_browse);
    setTabOrder(m_browse, m_plugins);
    setTabOrder(m_plugins, m_devMode);
    setTabOrder(m_devMode, m_closeToTray);

    load();
    retranslate();

    connect(m_buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_language, &QComboBox::currentIndexChanged, this, [this](int index) {
        write(QStringLiteral("i18n.lang"), m_language->itemData(index));
    });
    connect(m_rate, &QSpinBox::valueChanged, this, [this](int value) { write(QStringLiteral("network.rate_limit"), value); });
    connect(m_connections, &QSpinBox::valueChanged, this,
            [this](int value) { write(QStringLiteral("network.max_connections"), value); });
    connect(m_directory, &QLineEdit::editingFinished, this, [this] {
        if (!m_project.isEmpty() && !m_directory->text().trimmed().isEmpty())
            write(QStringLiteral("projects.%1.dir").arg(m_project), m_directory->text().trimmed());
    });
    connect(m_browse, &QPushButton::clicked, this, &SettingsDialog::browse);
    connect(m_plugins, &QListWidget::itemChanged, this, &SettingsDialog::pluginToggled);
    connect(m_devMode, &QCheckBox::toggled, this, [this](bool on) { write(QStringLiteral("dev_mode"), on); });
    connect(m_closeToTray, &QCheckBox::toggled, this, [this](bool on) { write(QStringLiteral("ui.close_to_tray"), on); });
}

void SettingsDialog::load()
{
    m_loading = true;
    QStringList languages{QStringLiteral("en")};
    if (auto* i18n = m_api->getObject<II18n>())
        languages = i18n->availableLanguages();
    if (!languages.contains(QStringLiteral("en")))
        languages.prepend(QStringLiteral("en"));
    const QString current = m_api->getSetting(QStringLiteral("i18n.lang"), QStringLiteral("en")).toString();
    for (const QString& code : std::as_const(languages))
        m_language->addItem(languageName(code), code);
    m_language->setCurrentIndex(qMax(0, m_language->findData(current.section(QLatin1Char('_'), 0, 0))));

    m_rate->setValue(m_api->getSetting(QStringLiteral("network.rate_limit"), 0).toInt());
    m_connections->setValue(m_api->getSetting(QStringLiteral("network.max_connections"), 4).toInt());
    if (!m_project.isEmpty())
        m_directory->setText(m_api->getSetting(QStringLiteral("projects.%1.dir").arg(m_project)).toString());

    const QStringList disabled = setting_to_string_list(m_api->getSetting(QStringLiteral("plugins.disable")));
    QStringList names = m_api->loadedPluginNames() + disabled;
    names.removeDuplicates();
    names.sort();
    for (const QString& name : std::as_const(names)) {
        if (Unswitchable.contains(name))
            continue;
        auto* item = new QListWidgetItem(name, m_plugins);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(disabled.contains(name) ? Qt::Unchecked : Qt::Checked);
    }
    m_devMode->setChecked(m_api->isDevMode());
    m_closeToTray->setChecked(m_api->getSetting(QStringLiteral("ui.close_to_tray"), false).toBool());
    m_loading = false;
}

void SettingsDialog::retranslate()
{
    setWindowTitle(tr("Settings"));
    m_languageLabel->setText(tr("&Language:"));
    m_rateLabel->setText(tr("Download &limit:"));
    m_rate->setSpecialValueText(tr("No limit"));
    m_rate->setSuffix(tr(" KiB/s"));
    m_connectionsLabel->setText(tr("Parallel &connections:"));
    m_directoryLabel->setText(tr("Install &folder:"));
    m_browse->setText(tr("&Browse..."));
    m_pluginsLabel->setText(tr("&Plugins:"));
    m_pluginsNote->setText(tr("Plugins switched on or off load or stay away from the next start on."));
    m_devMode->setText(tr("&Developer mode"));
    m_closeToTray->setText(tr("Closing the window keeps the launcher in the &tray"));
    m_language->setAccessibleName(tr("Language"));
    m_rate->setAccessibleName(tr("Download limit in KiB per second, 0 for no limit"));
    m_connections->setAccessibleName(tr("Parallel connections"));
    m_directory->setAccessibleName(tr("Install folder of the selected game"));
    m_browse->setAccessibleName(tr("Choose the install folder"));
    m_plugins->setAccessibleName(tr("Plugins to load"));
    m_devMode->setAccessibleName(tr("Developer mode"));
    m_closeToTray->setAccessibleName(tr("Close to tray"));
    m_buttons->button(QDialogButtonBox::Close)->setText(tr("Close"));
    m_buttons->button(QDialogButtonBox::Close)->setAccessibleName(tr("Close the settings"));
}

void SettingsDialog::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void SettingsDialog::write(const QString& key, const QVariant& value)
{
    if (m_loading)
        return;
    m_api->setSetting(key, value, SettingsAttributes(AllScopes) | PersistSetting);
    // Written through to the preferences file now: a launcher started next reads it.
    if (auto* settings = m_api->getObject<ISettingsManager>())
        settings->save();
}

void SettingsDialog::pluginToggled(QListWidgetItem*)
{
    if (m_loading)
        return;
    QStringList disabled;
    for (int row = 0; row < m_plugins->count(); ++row) {
        if (m_plugins->item(row)->checkState() == Qt::Unchecked)
            disabled.append(m_plugins->item(row)->text());
    }
    write(QStringLiteral("plugins.disable"), disabled);
}

void SettingsDialog::browse()
{
    const QString chosen = QFileDialog::getExistingDirectory(this, tr("Install folder"), m_directory->text());
    if (chosen.isEmpty())
        return;
    m_directory->setText(chosen);
    write(QStringLiteral("projects.%1.dir").arg(m_project), chosen);
}
