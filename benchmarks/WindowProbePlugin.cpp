// A plugin for bench_window, loaded into a real launcher: it prints "PROBE ready" on standard
// output once the launcher is ready for its user and stops the launcher. With a window that is
// when a main window is exposed on the screen with a non-empty list in it; without one (--no-gui)
// it is when every plugin has been loaded.
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginEvent.h>

#include <QtCore/QTimer>
#include <QtGui/QWindow>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMainWindow>

#include <cstdio>

using namespace tvl::updater;

class WindowProbePlugin : public UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override
    {
        if (qobject_cast<QApplication*>(QCoreApplication::instance())) {
            m_poll.setInterval(2);
            connect(&m_poll, &QTimer::timeout, this, [this] {
                if (windowReady())
                    ready();
            });
            m_poll.start();
        }
        return true;
    }

    void updaterEvent(UpdaterPluginEventPtr event) override
    {
        if (event && event->type() == UpdaterPluginEvent::AllPluginsLoadedEvent && !m_poll.isActive())
            ready();
    }

private:
    static bool windowReady()
    {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* window = qobject_cast<QMainWindow*>(widget);
            if (!window || !window->isVisible() || !window->windowHandle() || !window->windowHandle()->isExposed())
                continue;
            for (const QAbstractItemView* view : window->findChildren<QAbstractItemView*>()) {
                if (view->isVisible() && view->model() && view->model()->rowCount() > 0)
                    return true;
            }
        }
        return false;
    }

    void ready()
    {
        if (m_done)
            return;
        m_done = true;
        m_poll.stop();
        std::printf("PROBE ready\n");
        std::fflush(stdout);
        api()->exit(0);
    }

    QTimer m_poll;
    bool m_done = false;
};

#include "WindowProbePlugin.moc"
