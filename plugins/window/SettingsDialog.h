#pragma once

#include <QtWidgets/QDialog>

QT_BEGIN_NAMESPACE
class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QSpinBox;
QT_END_NAMESPACE

namespace tvl::updater {
class UpdaterPluginApi;
}

/**
 * The launcher's settings as a player changes them. Every change is written at once, into the
 * user's preferences too, and takes effect where it can: the language, the network limits and
 * developer mode at once, the plugins at the next start.
 */
class SettingsDialog : public QDialog
{
    Q_OBJECT

public:
    /// `project` is the game whose install directory the dialog shows; empty for none.
    SettingsDialog(tvl::updater::UpdaterPluginApi* api, const QString& project, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void retranslate();
    void load();
    void write(const QString& key, const QVariant& value);
    void pluginToggled(QListWidgetItem* item);
    void browse();

    tvl::updater::UpdaterPluginApi* const m_api;
    const QString m_project;
    bool m_loading = false;
    QLabel* m_languageLabel;
    QComboBox* m_language;
    QLabel* m_rateLabel;
    QSpinBox* m_rate;
    QLabel* m_connectionsLabel;
    QSpinBox* m_connections;
    QLabel* m_directoryLabel;
    QLineEdit* m_directory;
    QPushButton* m_browse;
    QLabel* m_pluginsLabel;
    QListWidget* m_plugins;
    QLabel* m_pluginsNote;
    QCheckBox* m_devMode;
    QCheckBox* m_closeToTray;
    QDialogButtonBox* m_buttons;
};
