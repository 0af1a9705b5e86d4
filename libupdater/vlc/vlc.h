#pragma once

// Every public header of video playback. The libvlc headers (Debian's libvlc-dev) give the types
// of its entry points, while libvlc itself is loaded at run time.
#include <libupdater/vlc/AbstractVideoPlayer.h>
#include <libupdater/vlc/VlcInstance.h>
#include <libupdater/vlc/VlcPlayer.h>
#include <libupdater/vlc/VlcVideoGraphicsItem.h>
