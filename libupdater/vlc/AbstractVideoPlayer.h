#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QObject>
#include <QtCore/QSize>
#include <QtCore/QUrl>

class QGraphicsItem;

namespace tvl::updater {

/**
 * A video player as user-interface code sees it: open a medium, play it, and show its frames
 * through a graphics item placed in a scene. Times are in milliseconds.
 */
class LIBUPDATER_EXPORT AbstractVideoPlayer : public QObject
{
    Q_OBJECT

public:
    explicit AbstractVideoPlayer(QObject* parent = nullptr);

    /// Sets the medium to play; true when it was set. Does not start playback.
    virtual bool open(const QUrl& url) = 0;
    /// Length of the medium.
    virtual int duration() const = 0;
    virtual bool isPlaying() const = 0;
    virtual bool isPaused() const = 0;
    /// Current time in the medium.
    virtual int position() const = 0;
    virtual void setPosition(int milliseconds) = 0;
    virtual bool isMute() const = 0;
    virtual int volume() const = 0;
    /// A new item showing the frames at `size`; the caller owns it and adds it to a scene.
    virtual QGraphicsItem* createGraphicsItem(const QSize& size) = 0;

signals:
    void durationChanged(quint64 duration);
    void paused();
    void stopped();

public slots:
    virtual void setVolume(int volume) = 0;
    // The name is spelled this way in every player and every caller.
    virtual void toogleMute() = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    virtual void stop() = 0;
};

} // namespace tvl::updater
